#pragma once

#include <fcntl.h>

namespace ecu::vorn::ipc::test {

/// The number of open file descriptors below 1024. Does not list /proc/self/fd, because opening it may reuse a
/// descriptor that another thread has just closed, which ThreadSanitizer reports as a race.
inline int open_descriptors() {
  int count = 0;
  for (int fd = 0; fd < 1024; ++fd) count += ::fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

}  // namespace ecu::vorn::ipc::test
