#pragma once

#include <string>

#include "common_options.h"

namespace keltipc {

struct DumpOptions {
  PortOptions port;
  std::string source;
  std::string time;
  std::string frame_start = "0";
  unsigned int count = 0;
  unsigned int idle = 0;
  bool json = false;
};

/// Prints what the port receives until it is ended; gives the exit status.
int dump_signals(const DumpOptions& options);

}  // namespace keltipc
