#pragma once

#include <chrono>
#include <string>

#include "job_results.h"
#include "units.h"

namespace keltipc {

/// A job that the manager has queued.
struct Job {
  enum Kind { start, stop };

  Kind kind;
  std::string unit;
  bool had_failed;  ///< before it was queued
};

/// Asks, at first every few milliseconds, then ten times a second, until the job has come to its end and the unit is
/// no longer on its way. Gives the exit status: exit_done, also for a unit that did its work and ended, or whose
/// conditions kept it from starting; exit_failed for one that failed, whose job came to nothing, or that cannot be
/// asked; exit_timed_out at the deadline.
int wait_for_job(Units& units, JobResults& results, const Job& job, std::chrono::steady_clock::time_point deadline);

}  // namespace keltipc
