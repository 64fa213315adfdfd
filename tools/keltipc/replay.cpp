#include "replay.h"

#include <algorithm>
#include <utility>

#include "hex.h"
#include "input_error.h"
#include "log_record.h"
#include "signal_text.h"

namespace keltipc {

using std::chrono::microseconds;

Replay::Replay(std::uint32_t start_id, double speed_factor, std::chrono::duration<double> max_pause)
    : frame_start_id(start_id), speed(speed_factor), longest_pause(max_pause) {}

std::vector<Outgoing> Replay::next(std::string_view line) {
  if (is_fault_line(line)) return {};
  LogRecord record = parse_log_line(line);
  if (!record.fault.empty()) return {};
  if (record.signal.signal_id == frame_start_id) {
    throw InputError("a receiver would take signal " + to_hex(frame_start_id) +
                     " for a start frame: choose another --frame-start");
  }
  std::vector<Outgoing> result;
  microseconds pause = pause_before(record.time);
  if (is_first || record.signal.sampling_frame != stamp) {
    stamp = record.signal.sampling_frame;
    result.push_back({start_signal({frame_start_id, stamp}), std::exchange(pause, microseconds(0)), true});
  }
  record.signal.signal_id |= std::uint32_t{record.signal.status} << status_shift;
  result.push_back({std::move(record.signal), pause});
  last_time = record.time;
  is_first = false;
  return result;
}

microseconds Replay::pause_before(microseconds time) const {
  if (is_first || speed == 0 || time < last_time) return microseconds(0);
  const std::chrono::duration<double, std::micro> scaled = (time - last_time) / speed;
  return std::chrono::duration_cast<microseconds>(std::min(scaled, longest_pause));
}

}  // namespace keltipc
