#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ipc/data_consumer.h"
#include "ipc/ipc_signal.h"

namespace ecu::vorn::ipc::test {

/// A sequence of signals. The n-th depends on n alone, so the receiver knows what to expect.
struct Traffic {
  std::uint32_t count, shortest, longest;

  /// Identifiers begin at 1, because 0 opens sampling frames.
  void make(std::uint32_t n, IpcSignal& signal) const {
    signal.signal_id = 1 + n % 0xFFFFFFE;
    signal.data.resize(shortest + n * 7919 % (longest - shortest + 1));
    for (std::size_t i = 0; i < signal.data.size(); ++i) signal.data[i] = static_cast<char>(n * 31 + i * 7 + i / 251);
  }
};

inline IpcSignal sampling_frame_start() { return {0, 0, 0, std::vector<char>(8)}; }

/// Counts signals, and throws at the first that differs from the expected one.
struct TrafficChecker : IDataConsumer<IpcSignal> {
  /// Calls `when_all_came` after the last signal.
  TrafficChecker(const Traffic& expected, std::uint32_t& counter, std::function<void()> when_all_came = {})
      : traffic(expected), came(counter), all_came(std::move(when_all_came)) {}

  void consume(IpcSignal&& signal) override {
    traffic.make(came, due);
    if (signal.signal_id != due.signal_id || signal.data != due.data) {
      throw std::runtime_error("signal " + std::to_string(came) + " is not the one that was sent");
    }
    if (++came == traffic.count && all_came) all_came();
  }

  Traffic traffic;
  std::uint32_t& came;
  std::function<void()> all_came;
  IpcSignal due{};
};

}  // namespace ecu::vorn::ipc::test
