#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>

#include "faults.h"

namespace keltipc {

/// How a port treats its messages; 0 turns off each way to misbehave.
struct QueueSettings {
  std::size_t depth = 1024;  ///< how many messages it holds, at least one
  bool drops = false;        ///< when it is full; else its writers wait
  std::size_t trace = 0;     ///< how many of the first messages are printed
  FaultSettings faults;
  std::size_t hang_up_after = 0;  ///< after that many messages were read
  unsigned int delay_ms = 0;      ///< how long a message is kept from its readers
};

/// What was written to the port and not read yet, one message an element. Keeps count.
class MessageQueue {
 public:
  explicit MessageQueue(const QueueSettings& queue_settings);

  /// Whether a message can be pushed now.
  bool accepts() const { return messages.size() < settings.depth || settings.drops; }
  /// A message that is pushed makes none, one or several for the readers: what faults add has room beyond the depth.
  void push(std::string message);

  /// Whether a message can be popped now.
  bool is_readable() const;
  std::string pop();

  /// How long it takes until a message becomes readable by itself, as poll(2) takes it: -1 if none will.
  int ms_to_readable() const;

  /// Whether `hang_up_after` messages were popped.
  bool has_hung_up() const { return settings.hang_up_after != 0 && passed >= settings.hang_up_after; }

  /// Corrects the counts by messages that were popped but never read.
  void take_back(std::size_t popped);
  /// Corrects the counts by messages that were written but not pushed yet.
  void add_unread(std::size_t written) { unread_elsewhere += written; }

  /// "12 messages passed, 4 lost, 0 dropped, 1 duplicated, 2 swapped, 1 corrupted, 3 not read"
  std::string counts() const;

 private:
  using Clock = std::chrono::steady_clock;
  struct Message {
    std::string bytes;
    Clock::time_point due;
  };

  void trace(const std::string& message);

  QueueSettings settings;
  Faults faults;
  std::deque<Message> messages;
  std::size_t passed = 0;
  std::size_t dropped = 0;
  std::size_t unread_elsewhere = 0;
};

}  // namespace keltipc
