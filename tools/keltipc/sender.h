#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "descriptor.h"
#include "ipc/ipc_signal.h"
#include "logging/logging.h"

namespace keltipc {

/// A signal to send, `pause` after the signal before it was due.
struct Outgoing {
  ecu::vorn::ipc::IpcSignal signal;
  std::chrono::microseconds pause{0};
  bool opens_sampling_frame = false;
};

/// When signals are due, start frames not counted. Zero: at once.
struct Pace {
  std::chrono::milliseconds gap;       ///< least time from the end of a signal to the next
  std::chrono::milliseconds interval;  ///< from start to start
};

/// Sends signals through a port, each when it is due.
class Sender {
 public:
  /// Opens the port. `log_level`: see set_up_logging. Throws std::runtime_error if the port cannot be opened.
  Sender(const std::string& device_path, unsigned int frame_size, const Pace& its_pace, int log_level);
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
  Clock::time_point turn_of(const Outgoing& outgoing);
  Clock::time_point next_interval(Clock::time_point now);
  void wait_for_turn(const Outgoing& outgoing);
  void note_reopening(int level);
  void wait_for_room() const;
  void transmit_checked(const ecu::vorn::ipc::IpcSignal& signal);

  std::string device;
  Pace pace;
  Transmit transmit;
  Descriptor room;   ///< polled before each signal, because the writer's own is private; none if only one can be open
  std::string name;  ///< of the latest signal, for messages
  bool was_reopened = false;
  Clock::time_point due;
  Clock::time_point gap_end;
  Clock::time_point interval_start;
};

}  // namespace keltipc
