#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ipc/ipc_signal.h"

namespace keltipc {

/// The last signal of each identifier, and how many came, as a table sorted by identifier. The times that it is given
/// are all of the same clock.
class SignalTable {
 public:
  using Time = std::chrono::microseconds;

  void start_interval(Time now) { interval_start = now; }

  void add(const ecu::vorn::ipc::IpcSignal& signal, Time time);

  /// Ends an interval, and starts the next. Rates and changed bytes are those of the interval. Returns its seconds.
  double close_interval(Time now);

  /// The head line and a line for each identifier, none wider than `width`. The rest of the width shows the first
  /// bytes of the payload, those that changed in reverse video. A width of 0 means without payloads, and not cut.
  std::vector<std::string> lines(std::size_t width, Time now) const;

  /// Ends the last interval. Returns the whole table without payloads, as one text.
  std::string report(Time now);

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
    Time time{0};
    std::string payload;        ///< the beginning of the last one
    std::string shown;          ///< that of the last interval's end
    std::vector<bool> changed;  ///< which of its bytes have changed in the last interval
  };

  static std::string columns(std::uint32_t id, const Row& row, Time now);
  static std::string bytes(const Row& row, std::size_t width);

  std::map<std::uint32_t, Row> rows;
  Time interval_start{0};
};

}  // namespace keltipc
