#pragma once

#include <string>

namespace ecu::vorn::logging {

/// Passes a finished line to the current sink. Preserves `errno`: callers may log before they look at it.
void hand_to_sink(int level, const std::string& module, const std::string& text);

}  // namespace ecu::vorn::logging
