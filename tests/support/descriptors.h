#pragma once

#include <fcntl.h>

namespace ecu::vorn::ipc::test {

/// How many this process has open below 1024. Takes none to look: a directory's could be one that another thread has
/// just closed, which ThreadSanitizer calls a race.
inline int open_descriptors() {
  int count = 0;
  for (int fd = 0; fd < 1024; ++fd) count += ::fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

}  // namespace ecu::vorn::ipc::test
