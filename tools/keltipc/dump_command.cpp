#include <unistd.h>

#include <csignal>
#include <memory>

#include "commands.h"
#include "common_options.h"
#include "device_wait.h"
#include "exit_status.h"
#include "ipc/queue_port_reader.h"
#include "signal_printer.h"
#include "text/filter.h"
#include "text/input_error.h"
#include "text/signal_text.h"
#include "watch.h"
#include "whole_number.h"

namespace keltipc {
namespace {

struct DumpOptions {
  PortOptions port;
  std::string source;
  std::string time;
  std::string frame_start = "0";
  unsigned int count = 0;
  unsigned int idle = 0;
  bool json = false;
};

std::string check_time_form(const std::string& text) {
  return text == "a" || text == "d" || text == "z" ? "" : quote(text) + " is none of a, d, z";
}

std::string line_form_name(const DumpOptions& options) {
  if (options.json) return "json";
  if (!options.time.empty()) return options.time;
  return ::isatty(STDOUT_FILENO) == 1 ? "a" : "log";
}

/// Runs the reader's loop on this thread, until it ends by itself or is ended.
Ending receive(ecu::vorn::ipc::IDataSource<ecu::vorn::ipc::IpcSignal>& reader, Watch& watch) {
  try {
    reader.receive_data();
  } catch (const Ending& ending) {
    watch.finish();
    return ending;
  }
  return watch.finish().value_or(Ending(exit_failed, "the port cannot be polled"));
}

template <std::size_t N>
int dump_port(const DumpOptions& options, const FilteredDevice& source, std::uint32_t start_id) {
  ecu::vorn::ipc::QueuePortReader<N> reader(nullptr, start_id);
  if (!reader.open(source.device)) {
    say(quote(source.device) + " cannot be opened");
    return exit_failed;
  }
  const DeviceNode node(source.device);
  LineOutput output;
  Printing printing{source.filters, options.count, make_line_form(line_form_name(options), source.device)};
  reader.set_consumer(std::make_unique<SignalPrinter>(std::move(printing), node, output));

  const BlockedSignals blocked;
  std::optional<std::chrono::milliseconds> longest_quiet;
  if (options.idle != 0) longest_quiet = std::chrono::milliseconds(options.idle);
  Watch watch(blocked, {node, output, longest_quiet, [&reader] { reader.stop(); }});
  return report(receive(reader, watch), output);
}

int dump(const DumpOptions& options) {
  const FilteredDevice source = parse_filtered_device(options.source);
  const std::uint32_t start_id = parse_frame_start_id(options.frame_start);
  set_up_logging(options.port.log_level);
  std::signal(SIGPIPE, SIG_IGN);
  if (!wait_for_device(source.device, R_OK, options.port.wait)) return exit_timed_out;
  return with_payload_size(options.port.frame, [&](auto n) { return dump_port<n>(options, source, start_id); });
}

constexpr const char* dump_help =
    R"(One line a signal, flushed at once. Numbers are hexadecimal. On a terminal, or with -t, the time and
ID: STATUS, SAMPLINGFRAME { BYTES }, else the log line that 'keltipc send --replay' takes back:
  (SECONDS.MICROS) DEVICE ID:STATUS:SAMPLINGFRAME#HEX
Blanks, backslashes, control characters and bytes that are no UTF-8 in DEVICE are written \xHH there.

Filters, identifier and mask in hexadecimal:
  /dev/qp0,5:f,10:ff    only identifiers that match one of these under its mask
  /dev/qp0,100~7f0      and none that matches one of these
Everything behind the first comma is a filter; reach a device with a comma in its name by a link.

Nothing is printed before the first start frame has come. Nothing tells that the port has frames of
another size than --frame says, or other start frames: no signals, or senseless ones, hint at it.

SIGINT and SIGTERM end it with a count on standard error, at the latest after about a second.
Status 0 done; 1 failed, or the device has gone; 2 refused; 124 the device did not appear, or not one
signal came within --idle; 128 + n after signal n.)";

void declare_dump(CLI::App& command, DumpOptions& options) {
  command.add_option("DEVICE", options.source, "The port's device, and filters: DEVICE[,ID:MASK][,ID~MASK]...")
      ->required()
      ->type_name("");
  const auto time = command
                        .add_option("-t", options.time,
                                    "Print times in UTC (a), since the last line (d) or since the start (z).\n"
                                    "a where standard output is a terminal")
                        ->check(CLI::Validator(check_time_form, ""))
                        ->type_name("a|d|z");
  command.add_flag("--json", options.json, "Print JSON, an object a line")->excludes(time);
  command.add_option("-n", options.count, "End after that many lines")
      ->transform(whole_number(1))
      ->type_name("COUNT");
  command.add_option("--idle", options.idle, "End when no line was printed for that long")
      ->transform(whole_number(1, 1'000'000'000))
      ->type_name("MS");
  command.add_option("--frame-start", options.frame_start, "What opens sampling frames: hexadecimal, up to 28 bits")
      ->type_name("ID")
      ->capture_default_str();
  add_port_options(command, options.port);
  command.footer(dump_help);
}

}  // namespace

void add_dump_command(CLI::App& app, Run& run) {
  const auto options = std::make_shared<DumpOptions>();
  CLI::App& command = *app.add_subcommand("dump", "Print the signals that a queuing port receives");
  declare_dump(command, *options);
  command.callback([options, &run] { run = [options] { return dump(*options); }; });
}

}  // namespace keltipc
