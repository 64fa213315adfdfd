#pragma once

#include <string>

namespace ecu::vorn::logging {

/// Gives a finished line to the sink in force. `errno` stays as it was: callers may log before they look at it.
void hand_to_sink(int level, const std::string& module, const std::string& text);

}  // namespace ecu::vorn::logging
