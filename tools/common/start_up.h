#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <new>
#include <string_view>

#include "exit_status.h"
#include "say.h"
#include "stop_signals.h"

// What both tools do around their work.
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
[[noreturn]] inline void end_without_memory() {
  const std::string_view name = program_invocation_short_name;
  for (const std::string_view text : {name, std::string_view(": out of memory\n")}) {
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
  }
  ::_exit(exit_failed);
}

/// All of main: what `run` returns is the exit status, or 128 + n to die of the signal n.
inline int run_main(int (*run)(int, char**), int argc, char** argv) {
  occupy_closed_streams();
  std::set_new_handler(end_without_memory);
  try {
    const int status = run(argc, argv);
    if (status > 128) end_by_signal(status - 128);
    return status;
  } catch (const std::exception& error) {
    say(error.what());
    return exit_failed;
  }
}

}  // namespace keltipc
