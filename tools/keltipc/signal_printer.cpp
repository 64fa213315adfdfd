#include "signal_printer.h"

#include <chrono>
#include <sstream>
#include <utility>

#include "log_record.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::IpcSignal;
using std::chrono::microseconds;
using std::chrono::steady_clock;

microseconds utc_now() {
  return std::chrono::duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch());
}

std::string print(const std::string& time, const IpcSignal& signal) {
  std::ostringstream line;
  line << time << "  " << signal;
  return line.str();
}

LineForm make_elapsed_form(bool since_the_last) {
  return [since_the_last, since = steady_clock::now()](IpcSignal&& signal) mutable {
    const auto now = steady_clock::now();
    const auto elapsed = std::chrono::duration_cast<microseconds>(now - since);
    if (since_the_last) since = now;
    return print(seconds_text(elapsed), signal);
  };
}

}  // namespace

LineForm make_line_form(const std::string& name, const std::string& device) {
  if (name == "a") return [](IpcSignal&& signal) { return print(utc_text(utc_now()), signal); };
  if (name == "d" || name == "z") return make_elapsed_form(name == "d");
  return [device, to_line = name == "json" ? to_json_line : to_log_line](IpcSignal&& signal) {
    return to_line({utc_now(), device, std::move(signal)});
  };
}

SignalPrinter::SignalPrinter(Printing printing_options, const DeviceNode& device_node, LineOutput& line_output)
    : printing(std::move(printing_options)), node(device_node), output(line_output) {}

void SignalPrinter::consume(IpcSignal&& signal) {
  // The reader's loop hands on the last frame again and again once the port has hung up. So a signal counts only as
  // long as the port has not; what was still in it is lost anyway.
  if (const auto loss = node.loss()) throw Ending(*loss);
  if (!passes(printing.filters, signal.signal_id)) return;
  output.write(printing.form(std::move(signal)));
  if (output.count() == printing.limit) throw Ending(exit_done);
}

}  // namespace keltipc
