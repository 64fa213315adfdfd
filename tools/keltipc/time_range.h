#pragma once

#include <chrono>
#include <string_view>

namespace keltipc {

/// Includes `since`, excludes `until`.
struct TimeRange {
  std::chrono::microseconds since = std::chrono::microseconds::min();
  std::chrono::microseconds until = std::chrono::microseconds::max();

  bool contains(std::chrono::microseconds time) const { return since <= time && time < until; }
};

/// A time since 1970, UTC, as the user writes it, with up to six digits after the dot. Throws InputError.
///
///     @1735270496, @1735270496.5, 2024-12-27T03:34:56Z, 2024-12-27T03:34:56.5Z
std::chrono::microseconds parse_time(std::string_view text);

}  // namespace keltipc
