#include "sender.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <thread>

#include "escape.h"
#include "graceful_stop.h"
#include "hex.h"
#include "ipc/queue_port_writer.h"
#include "port_setup.h"
#include "say.h"

namespace {

using Write = ssize_t(int, const void*, size_t);

Write* find_next_write() {
  const int saved = errno;
  auto* const next = reinterpret_cast<Write*>(::dlsym(RTLD_NEXT, "write"));
  errno = saved;
  return next;
}

}  // namespace

/// Takes the place of libc's function, for the library too, which does not look at the result: a device that takes
/// only a part of a frame has smaller messages, and leaves that in errno as if it had refused the frame.
extern "C" ssize_t write(int fd, const void* bytes, size_t size) {
  static Write* const next = find_next_write();
  const ssize_t written = next(fd, bytes, size);
  if (written >= 0 && static_cast<std::size_t>(written) < size) errno = EMSGSIZE;
  return written;
}

namespace keltipc {
namespace {

using ecu::vorn::ipc::IpcSignal;

/// The log of a unit whose clock was set can contain pauses of years: the user should know why nothing happens.
constexpr std::chrono::seconds long_wait(10);

}  // namespace

Sender::Sender(const std::string& device_path, unsigned int frame_size, const Pace& its_pace, int log_level)
    : device(device_path), pace(its_pace), room(-1) {
  set_up_logging(log_level, [this](int level) { note_reopening(level); });
  with_payload_size(frame_size, [this](auto n) { transmit = open_writer<n>(); });
  room = try_to_open_device(device, O_WRONLY);
}

template <std::size_t N>
Sender::Transmit Sender::open_writer() const {
  const auto writer = std::make_shared<ecu::vorn::ipc::QueuePortWriter<N>>();
  if (!writer->open(device)) throw std::runtime_error("cannot open " + quote(device));
  return [writer](const IpcSignal& signal) { return writer->transmit_data(signal); };
}

/// While it transmits, the writer logs errors only when its port has gone and it opens it again, and a notice once it
/// has: no signal is being sent in between.
void Sender::note_reopening(int level) {
  if (level <= error_level) {
    was_reopened = true;
    end_signal();
  } else if (level == notice_level) {
    begin_signal(name);
  }
}

/// Where the device has no room for a signal, the wait is before the signal and not in its middle.
void Sender::wait_for_room() const {
  if (room) poll_one(room.get(), POLLOUT, -1);
}

void Sender::send(const Outgoing& outgoing) {
  wait_for_turn(outgoing);
  if (outgoing.signal.data.empty()) {
    say("signal " + to_hex(outgoing.signal.signal_id) + " has no data: no frame is written");
  }
  transmit_checked(outgoing.signal);
  if (!outgoing.opens_sampling_frame) gap_end = Clock::now() + pace.gap;
}

/// Pauses count from when the signal before was due, not from when it was sent, so delays do not add up.
Sender::Clock::time_point Sender::turn_of(const Outgoing& outgoing) {
  const auto now = Clock::now();
  if (due == Clock::time_point{}) due = now;
  due += outgoing.pause;
  if (outgoing.opens_sampling_frame) return due;
  return pace.interval.count() == 0 ? std::max(due, gap_end) : next_interval(now);
}

/// Skips those that have begun already: a late signal is not followed by a burst.
Sender::Clock::time_point Sender::next_interval(Clock::time_point now) {
  if (interval_start == Clock::time_point{}) return interval_start = now;
  interval_start += pace.interval;
  if (interval_start < now) interval_start += ((now - interval_start) / pace.interval + 1) * pace.interval;
  return interval_start;
}

void Sender::wait_for_turn(const Outgoing& outgoing) {
  const auto turn = turn_of(outgoing);
  const auto wait = std::chrono::duration_cast<std::chrono::seconds>(turn - Clock::now());
  if (wait >= long_wait) say("the next signal is due in " + std::to_string(wait.count()) + " s");
  std::this_thread::sleep_until(turn);
}

/// The library does not report failed writes, but the last one leaves its error number in errno. After the writer has
/// reopened its port errno says nothing, because the attempts to open it set it too.
void Sender::transmit_checked(const IpcSignal& signal) {
  name = "signal " + to_hex(signal.signal_id);
  was_reopened = false;
  wait_for_room();
  begin_signal(name);
  errno = 0;
  const bool has_port = transmit(signal);
  const int error = errno;
  if (!has_port) throw std::runtime_error(quote(device) + " has gone: " + name + " was not sent");
  if (error != 0 && !was_reopened) {
    throw std::runtime_error("the device refused " + name + ": " + device_error(error));
  }
  end_signal();
  if (was_reopened) room = try_to_open_device(device, O_WRONLY);
}

}  // namespace keltipc
