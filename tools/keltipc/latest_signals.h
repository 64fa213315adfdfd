#pragma once

#include <cstdint>
#include <list>
#include <unordered_map>

#include "frame.h"

namespace keltipc {

/// The latest signal of each identifier. Remembers the 65,536 identifiers that were seen last.
class LatestSignals {
 public:
  struct Signal {
    SignalPart latest;  ///< the part that came last
    bool is_whole;      ///< it was put together right
  };

  /// Null if there is none. Counts as seeing the identifier.
  Signal* find(std::uint32_t id) {
    const auto found = by_id.find(id);
    if (found == by_id.end()) return nullptr;
    signals.splice(signals.begin(), signals, found->second);
    return &signals.front();
  }

  /// Takes the place of the one before it with the same identifier.
  void put(const Signal& signal) {
    if (Signal* const known = find(signal.latest.id)) {
      *known = signal;
      return;
    }
    if (signals.size() == most_identifiers) {
      by_id.erase(signals.back().latest.id);
      signals.pop_back();
    }
    signals.push_front(signal);
    by_id[signal.latest.id] = signals.begin();
  }

 private:
  static constexpr std::size_t most_identifiers = 65'536;

  std::list<Signal> signals;  ///< the one that was seen last comes first
  std::unordered_map<std::uint32_t, std::list<Signal>::iterator> by_id;
};

}  // namespace keltipc
