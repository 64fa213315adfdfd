#pragma once

#include <functional>
#include <string>
#include <vector>

#include "commands.h"
#include "unit_manager.h"

namespace keltipc {

/// The units that are to get a job. Returns an exit status; if it is not `exit_done`, no job is queued.
using ListUnits = std::function<int(UnitManager& manager, std::vector<std::string>& units)>;

/// Queues a job for each of the listed units, also after one was refused; then, with `wait`, waits until all of them
/// have ended. Says which failed. Returns the worst status of all units.
int run_jobs(const JobOptions& options, const UnitAction& action, const ListUnits& list);

/// The worse of two exit statuses.
int worse(int one, int other);

}  // namespace keltipc
