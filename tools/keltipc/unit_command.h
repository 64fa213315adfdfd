#pragma once

#include <string>
#include <vector>

#include "ipc/systemd.h"
#include "unit_wait.h"

namespace keltipc {

struct UnitOptions {
  std::vector<std::string> units;
  bool json = false;
  bool wait = false;
  unsigned int timeout = 90;
};

// Each gives the exit status: with several units that of the one that is worst off.

int print_active_states(const UnitOptions& options);
int print_install_states(const UnitOptions& options);

using UnitAction = bool (ecu::vorn::ipc::Systemd::*)(const std::string&);

/// Queues a job for each unit, the others too where one is refused; then, if asked to, waits for those that were
/// queued.
int control_units(const UnitOptions& options, UnitAction action, Job::Kind kind);

}  // namespace keltipc
