#include <chrono>
#include <utility>

#include "clock.h"
#include "commands.h"
#include "exit_status.h"
#include "input_error.h"
#include "line_writer.h"
#include "receiver.h"
#include "signal_table.h"

namespace keltipc {
namespace {

using std::chrono::milliseconds;

class Dump : public Receiver {
 public:
  explicit Dump(const DumpOptions& dump_options)
      : Receiver(dump_options), options(dump_options), writer(make_line_writer(dump_options, steady_now())) {
    table.start_interval(steady_now());
  }

  std::optional<Outcome> on_message(std::optional<ecu::vorn::ipc::IpcSignal>&& signal) override {
    if (signal && options.stats) table.add(*signal, steady_now());
    if (options.frames) return print_frame();
    return signal ? print(writer.line({line_time(), source.device, std::move(*signal), {}})) : std::nullopt;
  }

  /// With --frames, the frames have marks.
  std::optional<Outcome> on_fault(const std::string& device, const std::string& fault) override {
    if (options.frames) return std::nullopt;
    return write_out(writer.line({line_time(), device, {}, fault}) + "\n");
  }

  Clock::time_point due() const override {
    return options.idle == 0 ? Clock::time_point::max() : quiet_since + milliseconds(options.idle);
  }

  /// The time in which this process could not read does not count.
  std::optional<Outcome> on_time() override {
    if (!was_held_up()) return Outcome{lines == 0 ? exit_timed_out : exit_done, {}};
    quiet_since = Clock::now();
    return std::nullopt;
  }

 private:
  std::chrono::microseconds line_time() const { return writer.counts_from_start() ? steady_now() : utc_now(); }

  std::optional<Outcome> print_frame() {
    const Frame& frame = reception.frame();
    if (!frame.is_short && !reception.passes_filters(frame.id, frame.status)) return std::nullopt;
    return print(writer.frame_line(line_time(), source.device, frame));
  }

  std::optional<Outcome> print(std::string&& line) {
    line += '\n';
    if (auto outcome = write_out(line)) return outcome;
    if (options.idle != 0) quiet_since = Clock::now();
    if (++lines == options.count) return Outcome{exit_done, {}};
    return std::nullopt;
  }

  std::string report() override { return Receiver::report() + (options.stats ? table.report(steady_now()) : ""); }

  const DumpOptions& options;
  LineWriter writer;
  SignalTable table;
  std::uint64_t lines = 0;
  Clock::time_point quiet_since = Clock::now();
};

}  // namespace

int dump_signals(const DumpOptions& options) {
  if (!options.read.empty()) return dump_log(options);
  if (options.source.empty()) throw InputError("give the DEVICE to read, or a log with -r");
  return Dump(options).run();
}

}  // namespace keltipc
