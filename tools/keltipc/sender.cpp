#include "sender.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "hex.h"
#include "say.h"

namespace keltipc {
namespace {

/// A log of a unit whose clock was set in the middle has pauses of years in it: the user is told.
constexpr std::chrono::seconds long_wait(10);

}  // namespace

Sender::Sender(Transmit transmit_signal, std::chrono::milliseconds gap)
    : transmit(std::move(transmit_signal)), least_gap(gap) {}

/// Counted from when the one before was due, not from when it was sent: so delays do not add up.
void Sender::wait_for_turn(std::chrono::microseconds pause) {
  due = std::max(due + pause, gap_end);
  const auto wait = std::chrono::duration_cast<std::chrono::seconds>(due - Clock::now());
  if (wait >= long_wait) say("the next signal is due in " + std::to_string(wait.count()) + " s");
  std::this_thread::sleep_until(due);
}

bool Sender::send(const Outgoing& outgoing) {
  wait_for_turn(outgoing.pause);
  if (outgoing.signal.data.empty()) {
    say("signal " + to_hex(outgoing.signal.signal_id) + " has no data: no frame is written");
  }
  const bool handed_over = transmit(outgoing.signal);
  gap_end = Clock::now() + least_gap;
  return handed_over;
}

}  // namespace keltipc
