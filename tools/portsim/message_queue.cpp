#include "message_queue.h"

#include <array>
#include <cstdio>
#include <utility>

namespace keltipc {

MessageQueue::MessageQueue(std::size_t depth, WhenFull when_full, std::size_t shown, std::ostream& out)
    : limit(depth), policy(when_full), left_to_show(shown), shown_on(out) {}

void MessageQueue::push(std::string message) {
  if (messages.size() >= limit) {
    ++dropped;
    return;
  }
  if (left_to_show > 0) show(message);
  messages.push_back(std::move(message));
}

std::string MessageQueue::pop() {
  std::string message = std::move(messages.front());
  messages.pop_front();
  ++passed;
  return message;
}

std::string MessageQueue::counts() const {
  return std::to_string(passed) + " messages passed, " + std::to_string(dropped) + " dropped, " +
         std::to_string(messages.size()) + " not read";
}

/// Header fields apart from the data: "5a 00 00 00  00 00  14 00  41 42 43 ..."
void MessageQueue::show(const std::string& message) {
  --left_to_show;
  for (std::size_t i = 0; i < message.size(); ++i) {
    const bool begins_field = i == 4 || i == 6 || i == 8;
    std::array<char, 4> hex{};
    std::snprintf(hex.data(), hex.size(), "%02x", static_cast<unsigned int>(static_cast<unsigned char>(message[i])));
    shown_on << (i == 0 ? "" : begins_field ? "  " : " ") << hex.data();
  }
  shown_on << std::endl;
}

}  // namespace keltipc
