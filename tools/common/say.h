#pragma once

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <string_view>

namespace keltipc {

/// "keltipc: SENTENCE", with the line's end.
inline std::string error_line(const std::string& sentence) { return "keltipc: " + sentence + "\n"; }

/// All of it on standard error, by one write(2) where that takes it all; waits for a slow reader.
inline void write_error_text(std::string_view text) {
  while (!text.empty()) {
    const ssize_t done = ::write(STDERR_FILENO, text.data(), text.size());
    if (done > 0) text.remove_prefix(static_cast<std::size_t>(done));
    if (done >= 0 || errno == EINTR) continue;
    if (errno != EAGAIN) return;
    // Another process that shares the descriptor made it non-blocking.
    pollfd output{STDERR_FILENO, POLLOUT, 0};
    ::poll(&output, 1, -1);
  }
}

inline void say(const std::string& sentence) { write_error_text(error_line(sentence)); }

}  // namespace keltipc
