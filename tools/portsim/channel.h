#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <string>

#include "message_queue.h"

namespace keltipc {

/// What a device's read and write do, apart from how they come here: answers those that can go on, and keeps the
/// others, in the order in which they came, until they can. One thread.
class Channel {
 public:
  /// Names a request for as long as it is unanswered.
  using Id = const void*;
  /// Either `error` is an errno value, or the message is what was read.
  using ReadAnswer = std::function<void(int error, const std::string& message)>;
  using WriteAnswer = std::function<void(int error, std::size_t written)>;

  /// `on_change` is called when what `events` gives may have grown.
  Channel(MessageQueue& messages, std::size_t frame_size, std::function<void()> on_change);

  /// A message longer than `size` is cut to it, and the rest is lost, as on a message device.
  void read(Id id, std::size_t size, bool may_wait, ReadAnswer answer);

  /// EMSGSIZE for more than a frame; less goes on as it is.
  void write(Id id, std::string message, bool may_wait, WriteAnswer answer);

  /// Ends a request that waits with EINTR. Nothing happens to one that was answered.
  void interrupt(Id id);

  /// Ends all that wait.
  void end(int error);

  /// POLLIN and POLLOUT as poll(2) has them.
  unsigned int events() const;

 private:
  struct Reader {
    Id id;
    std::size_t size;
    ReadAnswer answer;
  };
  struct Writer {
    Id id;
    std::string message;
    WriteAnswer answer;
  };

  void serve();

  MessageQueue& queue;
  std::size_t limit;
  std::function<void()> changed;
  std::deque<Reader> readers;
  std::deque<Writer> writers;
};

}  // namespace keltipc
