#pragma once

#include <cstddef>
#include <deque>
#include <ostream>
#include <string>

namespace keltipc {

enum class WhenFull { block, drop };

/// What was written to the port and not read yet, one message an element. Keeps count.
class MessageQueue {
 public:
  /// `depth`: how many messages it holds, at least one. `shown`: how many of the first that pass are printed to
  /// `out`.
  MessageQueue(std::size_t depth, WhenFull when_full, std::size_t shown, std::ostream& out);

  /// Whether a message can be pushed now: a full queue that does not drop makes its writer wait.
  bool accepts() const { return messages.size() < limit || policy == WhenFull::drop; }
  void push(std::string message);

  bool empty() const { return messages.empty(); }
  std::string pop();

  /// "12 messages passed, 0 dropped, 3 not read"
  std::string counts() const;

 private:
  void show(const std::string& message);

  std::deque<std::string> messages;
  std::size_t limit;
  WhenFull policy;
  std::size_t left_to_show;
  std::ostream& shown_on;
  unsigned long long passed = 0;
  unsigned long long dropped = 0;
};

}  // namespace keltipc
