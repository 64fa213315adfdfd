#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string_view>

#include "exit_status.h"

// What both tools do at the beginning of main.
namespace keltipc {

/// Where a standard stream was closed, the next device opened would get its number, and messages meant for people
/// would go to the device. Opened the wrong way round, so that using the stream still fails.
inline void occupy_closed_streams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (::fcntl(fd, F_GETFD) == -1) ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

/// For std::set_new_handler: ends the tool when an allocation has failed.
///
/// Deliberate: no exception, and no clean-up. A std::bad_alloc would call abort(3) where it leaves a destructor or a
/// noexcept function, streams would take it for the end of their input, and what catches it may need memory too.
[[noreturn]] inline void end_without_memory(std::string_view text) {
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
  ::_exit(exit_failed);
}

}  // namespace keltipc
