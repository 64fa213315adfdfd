#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>

#include "message_queue.h"

namespace keltipc {

struct SimulatedPort {
  std::string path;
  std::size_t frame_size;
  mode_t mode;  ///< of the device node; 0: as the system makes it
};

// Both make the port, call `ready` with what it is ("a pseudo-terminal"), and pass messages until a stop signal
// arrives, for which the caller has called note_stop_signals, or the queue hangs up. Then the port is gone. They
// throw std::runtime_error.

void run_pty_port(const SimulatedPort& port, MessageQueue& queue, const std::function<void(const char*)>& ready);

void run_cuse_port(const SimulatedPort& port, MessageQueue& queue, const std::function<void(const char*)>& ready);

}  // namespace keltipc
