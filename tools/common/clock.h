#pragma once

#include <chrono>
#include <ctime>

namespace keltipc {

/// Since 1970, UTC; jumps when somebody sets the clock. Not std::chrono::system_clock, because on 32-bit ARM
/// libstdc++'s ends in January 2038.
inline std::chrono::microseconds utc_now() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::microseconds(now.tv_nsec / 1000);
}

/// For differences: never jumps.
inline std::chrono::microseconds steady_now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch());
}

}  // namespace keltipc
