#pragma once

#include <chrono>

namespace keltipc {

/// Since 1970, UTC; jumps when somebody sets the clock.
inline std::chrono::microseconds utc_now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch());
}

/// For differences: never jumps.
inline std::chrono::microseconds steady_now() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch());
}

}  // namespace keltipc
