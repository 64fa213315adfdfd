#pragma once

#include <cerrno>
#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>

#include "logging/logging.h"

namespace keltipc {

/// What `send` and `dump` have in common.
struct PortOptions {
  unsigned int frame = 16;
  unsigned int wait = 60;
  int log_level = 3;
};

/// The library's lines of this level and the more urgent ones go to standard error, no others. `on_line` is called
/// with the level of each line, shown or not. Lines leave errno as it is.
inline void set_up_logging(
    int log_level, std::function<void(int level)> on_line = [](int) {}) {
  namespace logging = ecu::vorn::logging;
  logging::set_log_level(log_level);
  // The level alone does not hold back warnings and what is above them.
  logging::set_sink(
      [log_level, on_line = std::move(on_line)](int level, const std::string& module, const std::string& text) {
        const int saved = errno;
        on_line(level);
        if (level <= log_level) logging::stderr_sink(level, module, text);
        errno = saved;
      });
}

/// Calls `action` with the payload size, as a compile-time constant, of frames of that size.
template <typename Action>
auto with_payload_size(std::size_t frame, const Action& action) {
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
