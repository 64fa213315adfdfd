#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>

#include "logging/logging.h"

namespace ecu::vorn::logging {
namespace {

const char* level_name(int level) {
  constexpr std::array<const char*, 8> names = {"EMERGENCY", "ALERT",  "CRITICAL", "ERROR",
                                                "WARNING",   "NOTICE", "INFO",     "DEBUG"};
  return level >= 0 && level < static_cast<int>(names.size()) ? names[static_cast<std::size_t>(level)] : "LOG";
}

/// UTC with milliseconds, ISO 8601: 2024-05-04T12:30:01.250Z
std::string time_stamp() {
  using namespace std::chrono;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  const auto millis = static_cast<int>(duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000);
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  std::array<char, 24> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  std::array<char, 8> fraction{};
  std::snprintf(fraction.data(), fraction.size(), ".%03dZ", millis);
  return std::string(date.data()) + fraction.data();
}

/// One line stays one line, and no text drives the terminal: "a\nb" -> "a\x0ab".
void append_escaped(std::string& line, const std::string& text) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7f) {
      line += c;
      continue;
    }
    line += "\\x";
    line += digits[byte >> 4U];
    line += digits[byte & 0xFU];
  }
}

/// One write(2) a line, so that lines of several processes do not mix either. Goes on only where it was cut short.
void write_whole(const std::string& line) {
  std::size_t done = 0;
  while (done < line.size()) {
    const ssize_t written = ::write(STDERR_FILENO, line.data() + done, line.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    done += static_cast<std::size_t>(written);
  }
}

}  // namespace

void stderr_sink(int level, const std::string& module, const std::string& text) {
  const int saved_errno = errno;
  std::string line = time_stamp() + " " + level_name(level) + " ";
  append_escaped(line, module);
  line += ": ";
  append_escaped(line, text);
  line += '\n';
  write_whole(line);
  errno = saved_errno;
}

}  // namespace ecu::vorn::logging
