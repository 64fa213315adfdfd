#include "message_queue.h"

#include <algorithm>
#include <utility>

#include "hex.h"

namespace keltipc {

MessageQueue::MessageQueue(const QueueSettings& queue_settings, std::ostream& trace_output)
    : settings(queue_settings), trace(trace_output) {}

void MessageQueue::push(std::string message) {
  if (messages.size() >= settings.depth) {
    ++dropped;
    return;
  }
  ++accepted;
  if (settings.lose_every != 0 && accepted % settings.lose_every == 0) {
    ++lost;
    return;
  }
  if (settings.trace > 0) show(message);
  messages.push_back({std::move(message), Clock::now() + std::chrono::milliseconds(settings.delay_ms)});
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
  return std::to_string(passed) + (passed == 1 ? " message" : " messages") + " passed, " + std::to_string(lost) +
         " lost, " + std::to_string(dropped) + " dropped, " + std::to_string(messages.size() + unread_elsewhere) +
         " not read";
}

/// Header fields apart from the data: "5a 00 00 00  00 00  14 00  41 42 43 ..."
void MessageQueue::show(const std::string& message) {
  --settings.trace;
  std::string line;
  for (std::size_t i = 0; i < message.size(); ++i) {
    const bool begins_field = i == 4 || i == 6 || i == 8;
    line += i == 0 ? "" : begins_field ? "  " : " ";
    append_hex_byte(line, message[i]);
  }
  trace << line << std::endl;
}

}  // namespace keltipc
