#pragma once

#include <chrono>
#include <string>

#include "units.h"

namespace keltipc {

/// Asks for the unit's state ten times a second until a start or stop has come to its end. Gives the exit status:
/// exit_done, exit_failed for a unit that fails or cannot be asked, exit_timed_out at the deadline.
int wait_until_started(Units& units, const std::string& unit, std::chrono::steady_clock::time_point deadline);
int wait_until_stopped(Units& units, const std::string& unit, std::chrono::steady_clock::time_point deadline);

}  // namespace keltipc
