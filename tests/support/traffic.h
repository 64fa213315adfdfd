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

/// A run of signals, the n-th of which can be made again from n alone: both ends know what is due.
struct Traffic {
  std::uint32_t count;
  std::uint32_t shortest;
  std::uint32_t longest;

  /// Identifiers begin at 1: 0 opens sampling frames.
  void make(std::uint32_t n, IpcSignal& signal) const {
    std::uint32_t random = (n + 1) * 2654435761U;
    signal.signal_id = 1 + n % 0xFFFFFFE;
    signal.data.resize(shortest + (random >> 8U) % (longest - shortest + 1));
    for (char& byte : signal.data) {
      random = random * 1664525U + 1013904223U;
      byte = static_cast<char>(random >> 24U);
    }
  }
};

inline IpcSignal sampling_frame_start() { return {0, 0, 0, std::vector<char>(8)}; }

/// Counts signals that come whole and in order; throws at the first that does not.
class TrafficChecker : public IDataConsumer<IpcSignal> {
 public:
  /// `when_all_came` is called behind the last one.
  TrafficChecker(const Traffic& expected, std::uint32_t& counter, std::function<void()> when_all_came = {})
      : traffic(expected), came(counter), all_came(std::move(when_all_came)) {}

  void consume(IpcSignal&& signal) override {
    traffic.make(came, due);
    if (signal.signal_id != due.signal_id || signal.data != due.data) {
      throw std::runtime_error("signal " + std::to_string(came) + " of the traffic came as another, or not whole");
    }
    if (++came == traffic.count && all_came) all_came();
  }

 private:
  Traffic traffic;
  std::uint32_t& came;
  std::function<void()> all_came;
  IpcSignal due{};
};

}  // namespace ecu::vorn::ipc::test
