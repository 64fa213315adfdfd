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
  double speed = 1;
  unsigned int repeat = 1;
  unsigned int gap = 0;
};

/// Checks what the command line and the files that it names ask for, then sends it; lines of standard input are sent
/// as they come. Gives the exit status. Throws InputError before the first signal is sent, std::runtime_error after.
int send_signals(const SendOptions& options);

}  // namespace keltipc
