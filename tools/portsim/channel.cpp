#include "channel.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace keltipc {
namespace {

template <typename Request>
void end_request(std::deque<Request>& waiting, Channel::Id id) {
  const auto found =
      std::find_if(waiting.begin(), waiting.end(), [id](const Request& request) { return request.id == id; });
  if (found == waiting.end()) return;
  const auto answer = std::move(found->answer);
  waiting.erase(found);
  answer(EINTR, {});
}

template <typename Request>
void end_all(std::deque<Request>& waiting, int error) {
  for (const Request& request : std::exchange(waiting, {})) request.answer(error, {});
}

}  // namespace

Channel::Channel(MessageQueue& messages, std::size_t frame_size, std::function<void()> on_change)
    : queue(messages), limit(frame_size), changed(std::move(on_change)) {}

void Channel::read(Id id, std::size_t size, bool may_wait, ReadAnswer answer) {
  if (!queue.is_readable() && !may_wait) return answer(EAGAIN, {});
  readers.push_back({id, size, std::move(answer)});
  serve();
}

void Channel::write(Id id, std::string message, bool may_wait, WriteAnswer answer) {
  if (message.size() > limit) return answer(EMSGSIZE, 0);
  if (!queue.accepts() && !may_wait) return answer(EAGAIN, 0);
  writers.push_back({id, std::move(message), std::move(answer)});
  serve();
}

void Channel::interrupt(Id id) {
  end_request(readers, id);
  end_request(writers, id);
}

void Channel::end(int error) {
  end_all(readers, error);
  end_all(writers, error);
}

unsigned int Channel::events() const {
  return (queue.is_readable() ? unsigned{POLLIN} : 0U) | (queue.accepts() ? unsigned{POLLOUT} : 0U);
}

/// Pushes waiting messages while the queue has room, and pops messages for waiting readers.
void Channel::serve() {
  bool answered = false;
  while (serve_one()) answered = true;
  if (const unsigned int now = events(); answered || now != announced) {
    announced = now;
    changed();
  }
}

bool Channel::serve_one() {
  if (!writers.empty() && queue.accepts()) {
    Writer writer = std::move(writers.front());
    writers.pop_front();
    const std::size_t size = writer.message.size();
    queue.push(std::move(writer.message));
    writer.answer(0, size);
    return true;
  }
  if (readers.empty() || !queue.is_readable()) return false;
  const Reader reader = std::move(readers.front());
  readers.pop_front();
  reader.answer(0, queue.pop().substr(0, reader.size));
  return true;
}

}  // namespace keltipc
