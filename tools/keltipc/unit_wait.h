#pragma once

#include <chrono>
#include <string>

#include "units.h"

namespace keltipc {

/// A job that the manager has queued. Until it runs the unit is still in the state of before.
struct Job {
  std::string unit;
  Units::ActiveState before;
};

/// Asks for the unit's state until the job has come to its end, at first every few milliseconds, then ten times a
/// second. Gives the exit status: exit_done, exit_failed for a unit that fails or cannot be asked, exit_timed_out
/// at the deadline.
int wait_until_started(Units& units, const Job& job, std::chrono::steady_clock::time_point deadline);
int wait_until_stopped(Units& units, const Job& job, std::chrono::steady_clock::time_point deadline);

}  // namespace keltipc
