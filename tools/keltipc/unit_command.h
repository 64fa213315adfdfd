#pragma once

#include <string>
#include <vector>

#include "ipc/systemd.h"

namespace keltipc {

struct UnitOptions {
  std::vector<std::string> units;
  bool json = false;
  bool wait = false;
  unsigned int timeout = 90;
};

struct UnitAction {
  bool (ecu::vorn::ipc::Systemd::*request)(const std::string&);
  const char* participle;  ///< "started"
};

// Each gives the exit status, the worst of all units: 1, 124, 4, 3, 0.

int print_active_states(const UnitOptions& options);
int print_install_states(const UnitOptions& options);

/// Queues a job for each unit, also after one was refused; then, with `wait`, waits until all of them have ended.
int control_units(const UnitOptions& options, const UnitAction& action);

}  // namespace keltipc
