#include "sender.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>

#include "escape.h"
#include "hex.h"
#include "ipc/queue_port_writer.h"
#include "port_setup.h"
#include "say.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::IpcSignal;

/// The log of a unit whose clock was set can contain pauses of years: the user should know why nothing happens.
constexpr std::chrono::seconds long_wait(10);

}  // namespace

Sender::Sender(const std::string& device_path, unsigned int frame_size, std::chrono::milliseconds gap, int log_level)
    : device(device_path), least_gap(gap) {
  // While it transmits, the writer logs errors only when its port has gone and it opens it again.
  constexpr int error_level = 3;
  set_up_logging(log_level, [this](int level) { was_reopened = was_reopened || level <= error_level; });
  with_payload_size(frame_size, [this](auto n) { transmit = open_writer<n>(); });
}

template <std::size_t N>
Sender::Transmit Sender::open_writer() const {
  const auto writer = std::make_shared<ecu::vorn::ipc::QueuePortWriter<N>>();
  if (!writer->open(device)) throw std::runtime_error("cannot open " + quote(device));
  return [writer](const IpcSignal& signal) { return writer->transmit_data(signal); };
}

void Sender::send(const Outgoing& outgoing) {
  wait_for_turn(outgoing);
  if (outgoing.signal.data.empty()) {
    say("signal " + to_hex(outgoing.signal.signal_id) + " has no data: no frame is written");
  }
  transmit_checked(outgoing.signal);
  if (!outgoing.opens_sampling_frame) gap_end = Clock::now() + least_gap;
}

/// Pauses count from when the signal before was due, not from when it was sent, so delays do not add up.
void Sender::wait_for_turn(const Outgoing& outgoing) {
  if (due == Clock::time_point{}) due = Clock::now();
  due += outgoing.pause;
  const auto turn = outgoing.opens_sampling_frame ? due : std::max(due, gap_end);
  const auto wait = std::chrono::duration_cast<std::chrono::seconds>(turn - Clock::now());
  if (wait >= long_wait) say("the next signal is due in " + std::to_string(wait.count()) + " s");
  std::this_thread::sleep_until(turn);
}

/// The library does not report failed writes, but the last one leaves its error number in errno. After the writer has
/// reopened its port errno says nothing, because the attempts to open it set it too.
void Sender::transmit_checked(const IpcSignal& signal) {
  was_reopened = false;
  errno = 0;
  const bool has_port = transmit(signal);
  const int error = errno;
  const std::string name = "signal " + to_hex(signal.signal_id);
  if (!has_port) throw std::runtime_error(quote(device) + " has gone: " + name + " was not sent");
  if (error == 0 || was_reopened) return;
  const bool is_wrong_size = error == EMSGSIZE || error == EINVAL;
  throw std::runtime_error("the device refused " + name + ": " + std::strerror(error) +
                           (is_wrong_size ? " (is --frame right?)" : ""));
}

}  // namespace keltipc
