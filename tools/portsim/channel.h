#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <string>

#include "message_queue.h"

namespace keltipc {

/// The read and write operations of a device: answers the requests that can be answered, and keeps the others, in the
/// order in which they came, until they can. For one thread.
class Channel {
 public:
  /// Identifies a request for as long as it is unanswered.
  using Id = const void*;
  /// Either `error` is an errno value, or the message is what was read.
  using ReadAnswer = std::function<void(int error, const std::string& message)>;
  using WriteAnswer = std::function<void(int error, std::size_t written)>;

  /// `on_change` is called when what `events` returns may have grown.
  Channel(MessageQueue& messages, std::size_t frame_size, std::function<void()> on_change);

  /// A message longer than `size` is cut to it, and the rest is lost, as on a message device.
  void read(Id id, std::size_t size, bool may_wait, ReadAnswer answer);

  /// EMSGSIZE for more than a frame; a shorter message goes on as it is.
  void write(Id id, std::string message, bool may_wait, WriteAnswer answer);

  /// Answers waiting requests that can be answered now: a delayed message may have become readable.
  void serve();

  /// Ends a waiting request with EINTR. Does nothing if it was answered.
  void interrupt(Id id);

  /// Ends all waiting requests.
  void end(int error);

  /// POLLIN and POLLOUT, as in poll(2).
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

  bool serve_one();

  MessageQueue& queue;
  std::size_t limit;
  unsigned int announced = 0;
  std::function<void()> changed;
  std::deque<Reader> readers;
  std::deque<Writer> writers;
};

}  // namespace keltipc
