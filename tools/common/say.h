#pragma once

#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

#include "descriptor.h"

namespace keltipc {

/// "NAME: SENTENCE", a whole line, with the name under which the tool was started.
inline std::string error_line(const std::string& sentence) {
  return std::string(program_invocation_short_name) + ": " + sentence + "\n";
}

/// All of it on standard error, by one write(2) where that takes it all; waits for a slow reader.
inline void write_error_text(std::string_view text) {
  while (!text.empty()) {
    const ssize_t done = ::write(STDERR_FILENO, text.data(), text.size());
    if (done > 0) text.remove_prefix(static_cast<std::size_t>(done));
    if (done >= 0 || errno == EINTR) continue;
    if (errno != EAGAIN) return;
    poll_one(STDERR_FILENO, POLLOUT, -1);  // Another process that shares the descriptor made it non-blocking.
  }
}

inline void say(const std::string& sentence) { write_error_text(error_line(sentence)); }

}  // namespace keltipc
