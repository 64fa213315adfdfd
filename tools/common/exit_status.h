#pragma once

namespace keltipc {

/// What keltipc(1) lists. 3 is also what `systemctl is-active` gives, and 124 what timeout(1) gives.
enum ExitStatus : int {
  exit_done = 0,
  exit_failed = 1,
  exit_usage = 2,
  exit_not_active = 3,
  exit_no_such_unit = 4,
  exit_timed_out = 124,
};

}  // namespace keltipc
