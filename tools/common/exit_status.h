#pragma once

namespace keltipc {

/// As sysexits, systemctl(1) and timeout(1) have them; 128 + n after signal n.
enum ExitStatus : int {
  exit_done = 0,
  exit_failed = 1,
  exit_usage = 2,
  exit_not_active = 3,
  exit_no_such_unit = 4,
  exit_timed_out = 124,
};

}  // namespace keltipc
