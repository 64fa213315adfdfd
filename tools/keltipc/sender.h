#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "ipc/ipc_signal.h"
#include "logging/logging.h"

namespace keltipc {

/// A signal to send, `pause` after the signal before it was due.
struct Outgoing {
  ecu::vorn::ipc::IpcSignal signal;
  std::chrono::microseconds pause{0};
  bool opens_sampling_frame = false;
};

/// Sends signals through a port, each when it is due.
class Sender {
 public:
  /// Opens the port. `gap`: the least time between two signals, start frames not counted. `log_level`: see
  /// set_up_logging. Throws std::runtime_error if the port cannot be opened.
  Sender(const std::string& device_path, unsigned int frame_size, std::chrono::milliseconds gap, int log_level);
  ~Sender() { ecu::vorn::logging::set_sink({}); }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  /// Throws std::runtime_error if the port has gone and did not come back, or the device refused a frame. Warns about
  /// a signal without data, because no frame is written for it.
  void send(const Outgoing& outgoing);

 private:
  using Clock = std::chrono::steady_clock;
  using Transmit = std::function<bool(const ecu::vorn::ipc::IpcSignal&)>;

  template <std::size_t N>
  Transmit open_writer() const;
  void wait_for_turn(const Outgoing& outgoing);
  void transmit_checked(const ecu::vorn::ipc::IpcSignal& signal);

  std::string device;
  std::chrono::milliseconds least_gap;
  Transmit transmit;
  bool was_reopened = false;
  Clock::time_point due;
  Clock::time_point gap_end;
};

}  // namespace keltipc
