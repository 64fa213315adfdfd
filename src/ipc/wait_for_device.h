#pragma once

#include <fcntl.h>

#include <ctime>
#include <string>

#include "ipc/utils.h"

namespace ecu::vorn::ipc {

constexpr unsigned int open_attempts = 120;

/// Opens the character device at `path` into `fd`, which is negative before, and waits for it to appear. Returns the
/// number of failed attempts: `open_attempts` when it never came.
inline unsigned int open_device(const std::string& path, int flags, int& fd) {
  constexpr timespec pause{0, 500'000'000};
  for (unsigned int failures = 0; failures < open_attempts; ++failures) {
    if (utils::is_char_dev(path)) fd = ::open(path.c_str(), flags);
    if (fd >= 0) return failures;
    // Deliberate: the pause follows the last failed attempt too, and one cut short by a signal stays short.
    ::nanosleep(&pause, nullptr);
  }
  return open_attempts;
}

}  // namespace ecu::vorn::ipc
