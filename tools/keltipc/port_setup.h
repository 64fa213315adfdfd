#pragma once

#include <fcntl.h>

#include <cstddef>
#include <functional>
#include <string>
#include <type_traits>

#include "descriptor.h"

// What each command does before it uses a port.
namespace keltipc {

// Levels of the library's lines.
constexpr int error_level = 3;
constexpr int notice_level = 5;

/// Opens a character device for O_RDONLY or O_WRONLY, non-blocking unless `more_flags` says otherwise. While that
/// fails it says why on standard error and tries again, for that many seconds; then the descriptor is empty. Throws
/// InputError for a path that is something else.
Descriptor open_device(const std::string& device, int access, unsigned int seconds, int more_flags = O_NONBLOCK);

/// One attempt. `errno` says why the descriptor is empty.
Descriptor try_to_open_device(const std::string& device, int access, int more_flags = O_NONBLOCK);

/// "cannot open '/dev/qport0': Permission denied"
std::string why_not_opened(const std::string& device, int error);

/// Whether a device gives this error for a message of a wrong size.
bool refuses_size(int error);

/// "Input/output error"; for such an error "Message too long (is --frame right?)"
std::string device_error(int error);

/// The library's lines of this level and the more urgent ones go to standard error, no others. `on_line` is called
/// with the level of each line that is a notice or more urgent, shown or not. Lines leave errno as it is.
void set_up_logging(
    int log_level, std::function<void(int level)> on_line = [](int) {});

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
