#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <string_view>

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
  // Not std::chrono::system_clock, because on 32-bit ARM libstdc++'s ends in January 2038.
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  std::tm utc{};
  ::gmtime_r(&now.tv_sec, &utc);
  std::array<char, 24> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  std::array<char, 24> fraction{};
  std::snprintf(fraction.data(), fraction.size(), ".%03ldZ", now.tv_nsec / 1'000'000);
  return std::string(date.data()) + fraction.data();
}

/// Whether the byte is an ASCII control character, or one of the two that make a C1 control character in UTF-8.
bool is_control(std::string_view text, std::size_t i) {
  constexpr unsigned char c1_lead = 0xC2;
  const auto at = [text](std::size_t k) { return k < text.size() ? static_cast<unsigned char>(text[k]) : 0U; };
  const auto is_c1_tail = [](unsigned int byte) { return byte >= 0x80 && byte < 0xA0; };
  if (at(i) == c1_lead) return is_c1_tail(at(i + 1));
  if (is_c1_tail(at(i))) return i > 0 && at(i - 1) == c1_lead;
  return at(i) < 0x20 || at(i) == 0x7F;
}

/// Escapes control characters, so that one line stays one line and no text controls the terminal: "a\nb" -> "a\x0ab".
/// Other UTF-8 is kept.
void append_escaped(std::string& line, std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (!is_control(text, i)) {
      line += text[i];
      continue;
    }
    const auto byte = static_cast<unsigned char>(text[i]);
    line += "\\x";
    line += digits[byte >> 4U];
    line += digits[byte & 0xFU];
  }
}

/// Blocks SIGPIPE in this thread while it lives: if the reader of the log has exited, the write fails with EPIPE and
/// the process goes on. Changes nothing if the signal was already blocked.
class NoSigpipe {
 public:
  NoSigpipe() {
    ::sigemptyset(&sigpipe);
    ::sigaddset(&sigpipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &sigpipe, &before);
  }
  ~NoSigpipe() {
    if (::sigismember(&before, SIGPIPE) == 1) return;
    const timespec at_once{};
    if (raised) ::sigtimedwait(&sigpipe, nullptr, &at_once);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  NoSigpipe(const NoSigpipe&) = delete;
  NoSigpipe& operator=(const NoSigpipe&) = delete;

  bool raised = false;

 private:
  sigset_t sigpipe{};
  sigset_t before{};
};

/// One write(2) per line, so that lines of several processes do not mix either; more only after an interrupted or
/// short write. What standard error does not accept is lost.
void write_whole(std::string_view line) {
  NoSigpipe guard;
  while (!line.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      guard.raised = written < 0 && errno == EPIPE;
      return;
    }
    line.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

void stderr_sink(int level, const std::string& module, const std::string& text) {
  std::string line = time_stamp() + " " + level_name(level) + " ";
  append_escaped(line, module);
  line += ": ";
  append_escaped(line, text);
  line += '\n';
  write_whole(line);
}

}  // namespace ecu::vorn::logging
