#pragma once

#include <functional>
#include <vector>

#include "device_node.h"
#include "ipc/data_consumer.h"
#include "ipc/ipc_signal.h"
#include "line_output.h"
#include "filter.h"

namespace keltipc {

/// Turns a signal into its line, without the line's end.
using LineForm = std::function<std::string(ecu::vorn::ipc::IpcSignal&&)>;

/// `name`: "log", "json", or what -t takes: "a", "d", "z". Times count from here on.
LineForm make_line_form(const std::string& name, const std::string& device);

struct Printing {
  std::vector<Filter> filters;
  unsigned int limit;  ///< 0: none
  LineForm form;
};

/// Writes a line for each signal that passes. Leaves the reader's loop by an Ending.
class SignalPrinter : public ecu::vorn::ipc::IDataConsumer<ecu::vorn::ipc::IpcSignal> {
 public:
  SignalPrinter(Printing printing_options, const DeviceNode& device_node, LineOutput& line_output);

  void consume(ecu::vorn::ipc::IpcSignal&& signal) override;

 private:
  Printing printing;
  const DeviceNode& node;
  LineOutput& output;
};

}  // namespace keltipc
