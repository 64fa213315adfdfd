#include "replay_plan.h"

#include <algorithm>
#include <istream>
#include <string>

#include "log_record.h"
#include "signal_text.h"
#include "hex.h"
#include "input_error.h"

namespace keltipc {
namespace {

using std::chrono::microseconds;

class Plan {
 public:
  explicit Plan(std::uint32_t frame_start_id) : start_id(frame_start_id) {}

  void add(LogRecord&& record) {
    const bool first = signals.empty();
    const microseconds pause = first ? microseconds(0) : std::max(record.time - time, microseconds(0));
    const bool starts_frame = first || record.signal.sampling_frame != stamp;
    time = record.time;
    stamp = record.signal.sampling_frame;
    if (starts_frame) signals.push_back({start_signal({start_id, stamp}), pause});
    record.signal.signal_id |= std::uint32_t{record.signal.status} << status_shift;
    signals.push_back({std::move(record.signal), starts_frame ? microseconds(0) : pause});
  }

  std::vector<Outgoing> signals;

 private:
  std::uint32_t start_id;
  std::uint64_t stamp = 0;
  microseconds time{0};
};

LogRecord parse_replayed_line(std::string_view line, std::uint32_t frame_start_id) {
  LogRecord record = parse_log_line(line);
  if (record.signal.signal_id != frame_start_id) return record;
  throw InputError(line, "a receiver would take signal " + to_hex(frame_start_id) +
                             " for a start frame: choose another --frame-start");
}

}  // namespace

std::vector<Outgoing> plan_replay(std::istream& log, std::uint32_t frame_start_id) {
  Plan plan(frame_start_id);
  std::string line;
  for (std::size_t number = 1; std::getline(log, line); ++number) {
    if (line.empty()) continue;
    plan.add(parse_line(number, [&] { return parse_replayed_line(line, frame_start_id); }));
  }
  return std::move(plan.signals);
}

}  // namespace keltipc
