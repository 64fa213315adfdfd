#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "commands.h"
#include "counted.h"
#include "descriptor.h"
#include "exit_status.h"
#include "input_lines.h"
#include "line_writer.h"
#include "output.h"
#include "say.h"
#include "signal_table.h"
#include "signal_text.h"
#include "stop_request.h"
#include "time_range.h"

namespace keltipc {
namespace {

using std::chrono::microseconds;

/// How much output is gathered before it is written.
constexpr std::size_t enough_output = std::size_t{64} * 1024;

TimeRange range_of(const DumpOptions& options) {
  TimeRange range;
  if (!options.since.empty()) range.since = parse_named(parse_time, options.since, "--since: ");
  if (!options.until.empty()) range.until = parse_named(parse_time, options.until, "--until: ");
  if (range.since >= range.until) throw InputError("--until is not after --since");
  return range;
}

class LogDump {
 public:
  explicit LogDump(const DumpOptions& dump_options)
      : options(dump_options),
        source(parse_filtered_device(dump_options.read)),
        range(range_of(dump_options)),
        log(open_input(source.device)),
        lines(log.get(), source.device, InputLines::Kind::log, [this] { return pause(); }),
        writer(make_line_writer(dump_options, std::nullopt)) {}

  /// To be called once. Returns the exit status.
  int run() {
    note_stop_signals();
    read_lines();
    flush();
    return end_with_report(outcome.value_or(Outcome{exit_done, {}}), report(),
                           bad_lines != 0 || (options.strict && faults != 0));
  }

 private:
  void read_lines() {
    try {
      while (!outcome && stop_signal() == 0 && lines.next()) take_line();
    } catch (const InputError& error) {
      outcome = Outcome{exit_failed, error.what()};
    }
  }

  /// The input pauses. After a stop signal, and when nobody reads the output any longer, nothing more is read.
  bool pause() {
    flush();
    std::array<pollfd, 2> sources{{{log.get(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    while (!outcome && stop_signal() == 0 && ::poll(sources.data(), sources.size(), -1) < 0) continue;
    if (outcome || stop_signal() != 0) return false;
    if (sources[1].revents != 0) outcome = Outcome{exit_done, {}, true};
    return !outcome;
  }

  void flush() {
    if (auto failure = write_out(output)) outcome = std::move(failure);
    output.clear();
  }

  void take_line() {
    try {
      LogRecord record = lines.parsed_by(parse_log_line);
      if (!is_chosen(record)) return;
      count(record);
      print(std::move(record));
    } catch (const InputError& error) {
      ++bad_lines;
      flush();
      say(error.what());
    }
    if (output.size() >= enough_output) flush();
  }

  /// Filters do not hide faults: the signal that was lost may have passed them.
  bool is_chosen(const LogRecord& record) const {
    return range.contains(record.time) &&
           (!record.fault.empty() || passes(source.filters, record.signal.signal_id, record.signal.status));
  }

  void count(const LogRecord& record) {
    if (!record.fault.empty()) {
      ++faults;
      return;
    }
    bytes += record.signal.data.size();
    if (options.stats) table.add(record.signal, record.time);
    earliest = signals == 0 ? record.time : std::min(earliest, record.time);
    latest = std::max(latest, record.time);
    if (++signals == options.count) outcome = Outcome{exit_done, {}};
  }

  /// Where the user chose no form, and off a terminal, the lines stay as they are.
  void print(LogRecord&& record) {
    if (writer.writes_log() && !options.log) {
      output += lines.whole_line();
    } else {
      output += writer.line(std::move(record)) + "\n";
    }
  }

  std::string report() {
    std::string text;
    if (lines.was_cut_off()) text = error_line("warning: " + lines.place() + ": cut off (no line end), passed over");
    text += error_line(counted(signals, "signal", "signals") + " (" + counted(bytes, "byte", "bytes") + ") in " +
                       lines.input_name);
    if (faults != 0) text += error_line("lost or wrong: " + counted(faults, "fault", "faults"));
    if (bad_lines != 0) text += error_line(counted(bad_lines, "bad line was", "bad lines were") + " passed over");
    table.start_interval(earliest);
    return options.stats ? text + table.report(latest) : text;
  }

  const DumpOptions& options;
  const FilteredDevice source;
  const TimeRange range;
  const Descriptor log;
  InputLines lines;
  LineWriter writer;
  SignalTable table;
  std::optional<Outcome> outcome;
  std::string output;
  std::uint64_t signals = 0;
  std::uint64_t bytes = 0;
  std::uint64_t faults = 0;
  std::uint64_t bad_lines = 0;
  microseconds earliest{0};  ///< time of a signal; 0 before the first, as `latest`
  microseconds latest{0};
};

}  // namespace

int dump_log(const DumpOptions& options) { return LogDump(options).run(); }

}  // namespace keltipc
