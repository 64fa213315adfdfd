#include "dump_command.h"

#include <unistd.h>

#include <csignal>
#include <memory>

#include "device_wait.h"
#include "exit_status.h"
#include "ipc/queue_port_reader.h"
#include "signal_printer.h"
#include "filter.h"
#include "input_error.h"
#include "signal_text.h"
#include "watch.h"

namespace keltipc {
namespace {

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

}  // namespace

int dump_signals(const DumpOptions& options) {
  const FilteredDevice source = parse_filtered_device(options.source);
  const std::uint32_t start_id = parse_named(parse_frame_start_id, options.frame_start);
  set_up_logging(options.port.log_level);
  std::signal(SIGPIPE, SIG_IGN);
  if (!wait_for_device(source.device, R_OK, options.port.wait)) return exit_timed_out;
  return with_payload_size(options.port.frame, [&](auto n) { return dump_port<n>(options, source, start_id); });
}

}  // namespace keltipc
