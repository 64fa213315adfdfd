#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <ctime>
#include <string>

#include "ipc/utils.h"

namespace ecu::vorn::ipc {

constexpr unsigned int open_attempts = 120;

/// Opens the character device at `path` into `fd`, which must be negative, and retries every half second. Returns the
/// number of failed attempts, `open_attempts` if all failed.
inline unsigned int wait_for_device(const std::string& path, int flags, int& fd) {
  constexpr timespec pause{0, 500'000'000};
  for (unsigned int failures = 0; failures < open_attempts; ++failures) {
    if (utils::is_char_dev(path)) fd = ::open(path.c_str(), flags);
    if (fd >= 0) return failures;
    // Deliberate: sleeps after the last attempt too, and does not continue an interrupted sleep.
    ::nanosleep(&pause, nullptr);
  }
  return open_attempts;
}

/// Leaves `fd` negative.
inline void close_port(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

}  // namespace ecu::vorn::ipc
