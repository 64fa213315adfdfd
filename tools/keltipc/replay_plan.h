#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <vector>

#include "ipc/ipc_signal.h"

namespace keltipc {

/// A signal to be sent, that long after the one before it was due.
struct Outgoing {
  ecu::vorn::ipc::IpcSignal signal;
  std::chrono::microseconds pause;
};

/// What makes a receiver see the logged signals again: their status in the top four bits, and a start frame before
/// the first and whenever the stamp changes. Empty lines are skipped; a clock that was set back gives no pause.
/// Throws InputError, which names the first line that is bad, or that a receiver would take for a start frame.
std::vector<Outgoing> plan_replay(std::istream& log, std::uint32_t frame_start_id);

}  // namespace keltipc
