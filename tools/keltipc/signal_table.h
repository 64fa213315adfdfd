#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ipc/ipc_signal.h"

namespace keltipc {

/// The last signal of each identifier, and how many came, as a table sorted by identifier.
class SignalTable {
 public:
  using Clock = std::chrono::steady_clock;

  void add(const ecu::vorn::ipc::IpcSignal& signal);

  /// Ends an interval. Rates and changed bytes are those since the last call, or since the table was made.
  void close_interval();

  /// The head line and a line for each identifier, none wider than `width`. The rest of the width shows the first
  /// bytes of the payload, those that changed in reverse video. A width of 0 means without payloads, and not cut.
  std::vector<std::string> lines(std::size_t width) const;

  /// Signals a second, of all identifiers together, in the last interval.
  double rate() const;

 private:
  struct Row {
    std::uint64_t count = 0;
    std::uint64_t count_before = 0;  ///< when the last interval began
    double rate = 0;
    std::size_t shortest = SIZE_MAX;
    std::size_t longest = 0;
    std::uint8_t status = 0;
    Clock::time_point time;
    std::string payload;        ///< the beginning of the last one
    std::string shown;          ///< that of the last interval's end
    std::vector<bool> changed;  ///< which of its bytes have changed in the last interval
  };

  static std::string columns(std::uint32_t id, const Row& row);
  static std::string bytes(const Row& row, std::size_t width);

  std::map<std::uint32_t, Row> rows;
  Clock::time_point interval_start = Clock::now();
};

}  // namespace keltipc
