#include "message_queue.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <utility>

#include "hex.h"
#include "say.h"
#include "stop_request.h"

namespace keltipc {

MessageQueue::MessageQueue(const QueueSettings& queue_settings) : settings(queue_settings), faults(settings.faults) {}

void MessageQueue::push(std::string message) {
  if (messages.size() >= settings.depth) {
    ++dropped;
    return;
  }
  const auto due = Clock::now() + std::chrono::milliseconds(settings.delay_ms);
  const auto delivered = faults.apply(std::move(message));
  for (const std::string& one : delivered) {
    if (settings.trace > 0) trace(one);
    messages.push_back({one, due});
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

/// Header fields apart from the data: "5a 00 00 00  00 00  14 00  41 42 43 ..."
void MessageQueue::trace(const std::string& message) {
  --settings.trace;
  std::string line;
  for (std::size_t i = 0; i < message.size(); ++i) {
    const bool begins_field = i == 4 || i == 6 || i == 8;
    line += i == 0 ? "" : begins_field ? "  " : " ";
    append_hex_byte(line, message[i]);
  }
  const int error = write_output(line + "\n");
  if (error == 0) return;
  settings.trace = 0;
  say(std::string("the trace ends here: ") + std::strerror(error));
}

}  // namespace keltipc
