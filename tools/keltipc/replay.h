#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>
#include <vector>

#include "sender.h"

namespace keltipc {

/// Turns the lines of a log into the signals and start frames with which a receiver sees the logged signals again.
class Replay {
 public:
  /// `start_id` opens sampling frames. `speed_factor`: 2 halves the pauses, 0 leaves them out. Pauses that are still
  /// longer than `max_pause` are shortened to it.
  Replay(std::uint32_t start_id, double speed_factor, std::chrono::duration<double> max_pause);

  /// For one line: nothing for a fault; else the signal, with its status in the identifier's top four bits, after a
  /// start frame if the signal is the first or its stamp is new. A time before that of the last line gives no pause.
  /// Throws InputError for a line that is bad, and for a signal that a receiver would take for a start frame.
  std::vector<Outgoing> next(std::string_view line);

 private:
  std::chrono::microseconds pause_before(std::chrono::microseconds time) const;

  std::uint32_t frame_start_id;
  double speed;
  std::chrono::duration<double, std::micro> longest_pause;
  bool is_first = true;
  std::uint64_t stamp = 0;
  std::chrono::microseconds last_time{0};
};

}  // namespace keltipc
