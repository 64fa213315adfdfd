#pragma once

#include <string>

#include "receiving_client.h"

namespace keltipc {

struct DumpOptions : ReceiveOptions {
  std::string time;
  unsigned int count = 0;
  unsigned int idle = 0;
  bool frames = false;
  bool json = false;
  bool log = false;
  bool stats = false;
};

/// Prints what the port receives until something ends it; gives the exit status.
int dump_signals(const DumpOptions& options);

/// Shows a table of the signals that the port receives, until something ends it; gives the exit status.
int watch_signals(const ReceiveOptions& options);

}  // namespace keltipc
