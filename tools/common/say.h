#pragma once

#include <unistd.h>

#include <string>

namespace keltipc {

/// "keltipc: SENTENCE", with the line's end.
inline std::string error_line(const std::string& sentence) { return "keltipc: " + sentence + "\n"; }

/// On standard error by one write(2): std::cerr would repeat for ever one that blocks and that a signal interrupts.
inline void write_error_text(const std::string& text) {
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
}

inline void say(const std::string& sentence) { write_error_text(error_line(sentence)); }

}  // namespace keltipc
