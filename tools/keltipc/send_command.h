#pragma once

#include <string>
#include <vector>

#include "port_options.h"

namespace keltipc {

struct SendOptions {
  PortOptions port;
  std::string device;
  std::vector<std::string> signals;
  std::string replay;
  std::string frame_start;
  bool no_timing = false;
  unsigned int gap = 0;
};

/// Sends what is asked for, all of it checked before the first is sent; gives the exit status.
int send_signals(const SendOptions& options);

}  // namespace keltipc
