#pragma once

#include <unistd.h>

#include <string_view>

#include "exit_status.h"

namespace keltipc {

/// For std::set_new_handler, at the beginning of main: ends the tool when an allocation has failed.
///
/// Deliberate: no exception, and no clean-up. A std::bad_alloc would call abort(3) where it leaves a destructor or a
/// noexcept function, streams would take it for the end of their input, and what catches it may need memory too.
[[noreturn]] inline void end_without_memory(std::string_view text) {
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
  ::_exit(exit_failed);
}

}  // namespace keltipc
