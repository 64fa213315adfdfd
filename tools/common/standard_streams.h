#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace keltipc {

/// Where a standard stream was closed, the next device opened would get its number, and messages meant for people
/// would go to the device. Opened the wrong way round, so that using the stream still fails.
inline void occupy_closed_streams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (::fcntl(fd, F_GETFD) == -1) ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace keltipc
