#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <deque>
#include <functional>
#include <set>
#include <string>

#include "support/recorded_log.h"

namespace ecu::vorn::ipc::test {

/// Answers the library's system calls from memory while it lives, and notes each: "open(/dev/tx, 0x101001)".
/// There is one device; its descriptors are 1000, 1001 and so on. Calls on other descriptors reach the system, and so
/// does everything while no object of this class lives. Nothing ever waits.
struct SystemCalls {
  explicit SystemCalls(Transcript& transcript);
  ~SystemCalls();

  // What opening meets.
  unsigned int appears_after_sleeps = 0;
  unsigned int failing_opens = 0;
  mode_t path_mode = S_IFCHR;
  nlink_t links = 1;  ///< 0: the node was removed; 1 again once it is opened anew
  std::set<int> open_descriptors;

  /// Where set, what is opened for writing is one end, and for reading the other; what is done with them is real.
  std::array<int, 2> message_pair{-1, -1};

  // What the receiving loop meets, in this order; behind the last of it poll fails. `meanwhile` happens during poll.
  void quiet(std::function<void()> meanwhile = {}) { events.push_back({"", 0, std::move(meanwhile)}); }
  /// Less than a frame is a short read; nothing at all is POLLHUP and a read that fails.
  void deliver(const std::string& bytes) { events.push_back({bytes, 1, {}}); }

  std::vector<std::string> written;
  std::function<void(const char*, std::size_t)> on_write = [this](auto bytes, auto n) {
    written.emplace_back(bytes, n);
  };
  ssize_t write_result = 0;  ///< 0: as many bytes as asked for

  /// Asked first in each call, which `call` begins with: true for one that fails, with `result` and `errno` set.
  std::function<bool(const char* call, long& result)> fault;
  bool silent = false;  ///< notes nothing, so that nothing here takes time or memory

  // For the calls themselves.
  struct Event {
    std::string bytes;
    int ready;
    std::function<void()> meanwhile;
  };
  Transcript& notes;
  std::deque<Event> events;
  std::string arrived;
  unsigned int sleeps = 0;
  int next_descriptor = 1000;
};

}  // namespace ecu::vorn::ipc::test
