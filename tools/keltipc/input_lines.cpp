#include "input_lines.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "hex.h"
#include "log_record.h"

namespace keltipc {
namespace {

constexpr std::size_t longest_line = std::size_t{1024} * 1024;

/// What is kept of a line that is too long, for the message.
constexpr std::size_t kept_of_long_line = 100;

std::string name_of(const std::string& path) { return path == standard_input ? "standard input" : quote(path); }

}  // namespace

Descriptor open_input(const std::string& path) {
  const bool is_standard = path == standard_input;
  Descriptor input(is_standard ? ::dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
  struct stat record {};
  if (!input || ::fstat(input.get(), &record) != 0) throw FileError(name_of(path) + ": " + std::strerror(errno));
  if (S_ISDIR(record.st_mode)) throw FileError(name_of(path) + ": " + std::strerror(EISDIR));
  return input;
}

InputLines::InputLines(int input, const std::string& path, Kind its_kind, Wait on_pause)
    : input_name(name_of(path)), fd(input), kind(its_kind), wait(std::move(on_pause)) {}

bool InputLines::next() {
  while (read_line()) {
    ++number;
    stripped = without_blanks_around(line);
    if (stripped.empty()) continue;
    if (stripped.front() == '#' && (kind == Kind::signals || !is_fault_line(stripped))) continue;
    is_cut_off = kind == Kind::log && line.back() != '\n';
    return !is_cut_off;
  }
  return false;
}

/// The next line, or what is left at the end of the input.
bool InputLines::read_line() {
  is_too_long = false;
  for (std::size_t searched = 0;;) {
    const char* const start = buffer.data() + begin;
    const void* const end = std::memchr(start + searched, '\n', filled - begin - searched);
    if (end != nullptr) {
      cut(static_cast<std::size_t>(static_cast<const char*>(end) - start) + 1);
      return true;
    }
    searched = filled - begin;
    if (searched > longest_line) {
      is_too_long = true;
      searched = kept_of_long_line;
      filled = begin + searched;
    }
    if (read_more()) continue;
    cut(searched);
    return !line.empty() && !was_ended;
  }
}

/// Takes a line off the front.
void InputLines::cut(std::size_t length) {
  line = {buffer.data() + begin, length};
  if (length > longest_line + 1) is_too_long = true;  // With its end, from one read(2).
  begin += length;
}

bool InputLines::is_over() {
  if (wait && poll_one(fd, POLLIN, 0) == 0) was_ended = !wait();
  return was_ended;
}

/// False at the end.
bool InputLines::read_more() {
  make_room();
  while (!is_at_end && !is_over()) {
    const ssize_t got = ::read(fd, buffer.data() + filled, buffer.size() - filled);
    if (got >= 0) {
      filled += static_cast<std::size_t>(got);
      is_at_end = got == 0;
      return !is_at_end;
    }
    if (errno != EAGAIN && errno != EINTR) throw FileError(input_name + " cannot be read: " + std::strerror(errno));
    // Another process that shares the descriptor made it non-blocking.
    if (errno == EAGAIN) poll_one(fd, POLLIN, -1);
  }
  return false;
}

/// Moves what is left to the front. The buffer grows if that is not enough.
void InputLines::make_room() {
  std::memmove(buffer.data(), buffer.data() + begin, filled - begin);
  filled -= begin;
  begin = 0;
  if (filled == buffer.size()) buffer.resize(2 * buffer.size());
}

}  // namespace keltipc
