#pragma once

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "ipc/signal_processor.h"
#include "logging/logging.h"
#include "support/reassembly_model.h"

namespace ecu::vorn::ipc::test {

/// A processor beside the model: fed the same frames, they must agree on state, result and log line.
template <std::size_t N>
class ReassemblyCheck {
 public:
  explicit ReassemblyCheck(std::uint32_t start_id, bool debug_lines)
      : model(start_id, debug_lines), log(lines, "ipc.signalprocessor", debug_lines ? 7 : 6), processor(start_id) {}

  /// Takes a complete signal as the reader does. Throws std::logic_error where the two differ.
  void process(const signal_t_dyn<N>& frame) {
    auto copy = frame;
    processor.process(std::move(copy));
    model.process(frame);
    agree(static_cast<int>(processor.get_state()) == model.state(), "state");
    if (model.state() == 3) take();
  }

  void take() {
    const auto real = processor.take();
    const auto modelled = model.take();
    agree(real.has_value() == modelled.has_value(), "whether there is a signal");
    if (!real) return;
    agree(real->signal_id == modelled->signal_id, "identifier");
    agree(real->status == modelled->status, "status");
    agree(real->sampling_frame == modelled->sampling_frame, "stamp");
    agree(real->data == modelled->data, "bytes");
  }

  void compare_logs() const { agree(lines == model.log(), "log lines"); }

 private:
  static void agree(bool same, const char* what) {
    if (!same) throw std::logic_error(std::string("processor and model differ in ") + what);
  }

  Transcript lines;
  ReassemblyModel<N> model;
  RecordedLog log;
  SignalProcessor<N> processor;
};

}  // namespace ecu::vorn::ipc::test
