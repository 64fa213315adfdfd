#include "message_queue.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace keltipc {

MessageQueue::MessageQueue(const QueueSettings& queue_settings)
    : settings(queue_settings), trace(settings.trace), faults(settings.faults) {}

void MessageQueue::push(std::string message) {
  if (messages.size() >= settings.depth) {
    ++dropped;
    return;
  }
  const auto due = Clock::now() + std::chrono::milliseconds(settings.delay_ms);
  for (std::string& made : faults.apply(std::move(message))) {
    trace.show(made);
    messages.push_back({std::move(made), due});
  }
}

bool MessageQueue::is_readable() const {
  return !messages.empty() && !has_hung_up() && (settings.delay_ms == 0 || messages.front().due <= Clock::now());
}

std::string MessageQueue::pop() {
  std::string message = std::move(messages.front().bytes);
  messages.pop_front();
  ++passed;
  return message;
}

int MessageQueue::ms_to_readable() const {
  if (settings.delay_ms == 0 || messages.empty()) return -1;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(messages.front().due - Clock::now());
  return wait.count() > 0 ? static_cast<int>(wait.count()) : -1;
}

void MessageQueue::take_back(std::size_t popped) {
  const std::size_t count = std::min(popped, passed);
  passed -= count;
  unread_elsewhere += count;
}

std::string MessageQueue::counts() const {
  std::ostringstream text;
  text << passed << (passed == 1 ? " message passed, " : " messages passed, ") << faults.lost << " lost, " << dropped
       << " dropped, " << faults.duplicated << " duplicated, " << faults.swapped << " swapped, " << faults.corrupted
       << " corrupted, " << messages.size() + faults.held_back() + unread_elsewhere << " not read";
  return text.str();
}

}  // namespace keltipc
