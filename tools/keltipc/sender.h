#pragma once

#include <chrono>
#include <functional>

#include "ipc/ipc_signal.h"
#include "replay_plan.h"

namespace keltipc {

/// Hands signals to a port, each when it is due.
class Sender {
 public:
  using Transmit = std::function<bool(const ecu::vorn::ipc::IpcSignal&)>;

  /// `gap`: the least time between two signals.
  Sender(Transmit transmit_signal, std::chrono::milliseconds gap);

  /// False when the port has gone and did not come back. Says so where the signal is one that gives no frame.
  bool send(const Outgoing& outgoing);

 private:
  using Clock = std::chrono::steady_clock;

  void wait_for_turn(std::chrono::microseconds pause);

  Transmit transmit;
  std::chrono::milliseconds least_gap;
  Clock::time_point due = Clock::now();
  Clock::time_point gap_end = due;
};

}  // namespace keltipc
