#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>

namespace keltipc {

/// What `send` and `dump` have in common.
struct PortOptions {
  unsigned int frame = 16;
  unsigned int wait = 60;
  int log_level = 3;
};

/// The library's lines of this level and the more urgent ones go to standard error, no others. `on_line` is called
/// with the level of each line, shown or not. Lines leave errno as it is.
void set_up_logging(
    int log_level, std::function<void(int level)> on_line = [](int) {});

/// One line on standard error: "keltipc: SENTENCE".
void say(const std::string& sentence);

/// Calls `action` with the payload size, as a compile-time constant, of frames of that size.
template <typename Action>
auto with_payload_size(unsigned int frame, const Action& action) {
  switch (frame) {
    case 16:
      return action(std::integral_constant<std::size_t, 8>{});
    case 32:
      return action(std::integral_constant<std::size_t, 24>{});
    default:
      return action(std::integral_constant<std::size_t, 4088>{});
  }
}

}  // namespace keltipc
