#include "receiver.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "escape.h"
#include "exit_status.h"
#include "input_error.h"
#include "port_setup.h"
#include "say.h"
#include "stop_request.h"

namespace keltipc {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds between_looks(1000);
constexpr milliseconds between_attempts(100);
constexpr milliseconds time_to_finish(1000);
constexpr short hang_up = POLLHUP | POLLERR | POLLNVAL;

void refuse_same_device(int device, const std::string& path) {
  struct stat one {};
  struct stat other {};
  const bool are_known = ::fstat(device, &one) == 0 && ::stat(path.c_str(), &other) == 0;
  if (are_known && S_ISCHR(other.st_mode) && one.st_rdev == other.st_rdev) {
    throw InputError(path, "this is the device that is read");
  }
}

}  // namespace

Receiver::Receiver(const ReceiveOptions& options)
    : source(parse_filtered_device(options.source)),
      reception(options.port.frame, parse_frame_start_id(options.frame_start), source.filters),
      receive_options(options),
      port(source.device, O_RDONLY, open_device(source.device, O_RDONLY, receive_options.port.wait)),
      tee(open_tee()),
      message(receive_options.port.frame) {}

/// --wait covers both ports.
std::optional<Tee> Receiver::open_tee() const {
  if (receive_options.tee.empty() || !port.is_open()) return std::nullopt;
  refuse_same_device(port.get(), receive_options.tee);
  const auto waited = std::chrono::duration_cast<seconds>(Clock::now() - began_waiting).count();
  const auto left =
      receive_options.port.wait - std::min(receive_options.port.wait, static_cast<unsigned int>(waited));
  Descriptor opened = open_device(receive_options.tee, O_WRONLY, left);
  refuse_same_device(port.get(), receive_options.tee);
  return Tee(KeptPort(receive_options.tee, O_WRONLY, std::move(opened)));
}

int Receiver::run() {
  if (!port.is_open() || (tee && !tee->port.is_open())) return exit_timed_out;
  set_up_logging(receive_options.port.log_level);
  note_stop_signals();
  std::optional<Outcome> outcome;
  while (!outcome) {
    outcome = outcome_of_stop_signal();
    if (!outcome) outcome = turn();
  }
  if (is_passing_on() && !finish_message()) {
    outcome->sentence += (outcome->sentence.empty() ? "" : "; ") +
                         std::string("the last message was neither printed nor passed on to ") +
                         quote(receive_options.tee);
  }
  reception.end();
  tell_faults();
  return end_with_report(*outcome, report(), receive_options.strict && reception.has_losses());
}

/// Polls only when no message is known to be there: a system call less for each message of a busy port.
std::optional<Outcome> Receiver::turn() {
  const auto now = Clock::now();
  if (now >= due()) {
    if (auto outcome = on_time()) return outcome;
  }
  if (is_passing_on()) {
    if (auto outcome = pass_on()) return outcome;
  } else if (readable != 0) {
    if (auto outcome = read_message()) return outcome;
  }
  return readable != 0 && !is_passing_on() && now < next_look ? std::nullopt : wait();
}

bool Receiver::was_held_up() const {
  if (is_passing_on()) return true;
  const bool is_late = Clock::now() - due() > between_attempts;
  return is_late && (readable != 0 || (port.is_open() && poll_one(port.get(), POLLIN, 0) > 0));
}

bool Receiver::can_read() const { return port.is_open() && (!tee || tee->port.is_open()); }

std::optional<Outcome> Receiver::read_message() {
  const ssize_t got = ::read(port.get(), message.data(), message.size());
  readable = got > 0 ? readable - 1 : 0;
  if (got > 0) {
    message_size = static_cast<std::size_t>(got);
    if (!tee) return take_message();
    tee->begin({message.data(), message_size});
    return pass_on();
  }
  // Another reader may have been faster.
  if (got < 0 && (errno == EINTR || (errno == EAGAIN && !has_hung_up))) return std::nullopt;
  const std::string error = device_error(errno);
  return lose(port, got == 0 || port.has_hung_up() ? "has hung up" : "has a read error: " + error);
}

std::optional<Outcome> Receiver::pass_on() {
  if (!tee->port.is_open()) return std::nullopt;
  const int error = tee->advance();
  const std::string reason = device_error(error);
  if (refuses_size(error)) {
    return Outcome{exit_failed, quote(receive_options.tee) + " refused a message of " + std::to_string(message_size) +
                                    " bytes: " + reason};
  }
  if (error != 0) return lose(tee->port, tee->port.has_hung_up() ? "has hung up" : "has a write error: " + reason);
  return tee->is_busy() ? std::nullopt : take_message();
}

std::optional<Outcome> Receiver::take_message() {
  auto signal = reception.take(message.data(), message_size);
  auto outcome_of_faults = tell_faults();
  auto outcome = on_message(std::move(signal));
  return outcome_of_faults ? outcome_of_faults : outcome;
}

std::optional<Outcome> Receiver::tell_faults() {
  for (const std::string& fault : reception.take_faults()) {
    if (auto outcome = on_fault(source.device, fault)) return outcome;
  }
  return std::nullopt;
}

std::optional<Outcome> Receiver::wait() {
  const bool has_message = is_passing_on();
  const short room = has_message ? POLLOUT : 0;
  std::array<pollfd, 3> sources{{{STDOUT_FILENO, 0, 0},
                                 {can_read() && !has_message ? port.get() : -1, POLLIN, 0},
                                 {tee ? tee->port.get() : -1, room, 0}}};
  const int ready = ::poll(sources.data(), sources.size(), time_to_wait());
  next_look = Clock::now() + between_looks;
  if (stop_signal() != 0 || (ready < 0 && errno == EINTR)) return std::nullopt;
  if (ready < 0) return Outcome{exit_failed, std::string("poll: ") + std::strerror(errno)};
  if (sources[0].revents != 0) return Outcome{exit_done, {}, true};
  readable = sources[1].revents == 0 ? 0 : messages_to_read();
  has_hung_up = (sources[1].revents & hang_up) != 0;
  if ((sources[2].revents & hang_up) != 0) return lose(tee->port, "has hung up");
  if (ready != 0) return std::nullopt;
  // Only if the port is quiet, so that all that a device still holds is read after its node was removed. With
  // --follow also only when the message that was read last has been passed on: it would come after the fault.
  auto outcome = has_message && receive_options.follow ? std::nullopt : look_at(port);
  return outcome || !tee ? outcome : look_at(tee->port);
}

/// How many can be read before polling again: one at least. A terminal can hold a part of a message, which poll(2)
/// leaves out and read(2) does not, but it tells how many bytes it holds.
std::size_t Receiver::messages_to_read() const {
  int bytes = 0;
  if (::ioctl(port.get(), FIONREAD, &bytes) != 0) return SIZE_MAX;
  return std::max<std::size_t>(static_cast<std::size_t>(std::max(bytes, 0)) / message.size(), 1);
}

int Receiver::time_to_wait() const {
  const auto to_due = std::chrono::ceil<milliseconds>(due() - Clock::now());
  return static_cast<int>(std::clamp(to_due, milliseconds(0), can_read() ? between_looks : between_attempts).count());
}

std::optional<Outcome> Receiver::look_at(KeptPort& looked_at) {
  if (looked_at.is_open()) {
    const std::string fault = looked_at.node_fault();
    return fault.empty() ? std::nullopt : lose(looked_at, fault);
  }
  if (!looked_at.reopen()) return std::nullopt;
  say(quote(looked_at.path()) + " is back");
  return on_fault(looked_at.path(), "is back");
}

std::optional<Outcome> Receiver::lose(KeptPort& gone, const std::string& reason) {
  const bool is_source = &gone == &port;
  if (is_source && is_passing_on()) finish_message();
  is_source ? port.close() : tee->close();
  readable = 0;
  if (is_source) reception.restart();
  auto outcome = tell_faults();
  if (!outcome) outcome = on_fault(gone.path(), reason);
  if (outcome) return outcome;
  const std::string sentence = quote(gone.path()) + " " + reason;
  if (!receive_options.follow) return Outcome{exit_failed, sentence};
  say(sentence + "; waiting for it to come back");
  return std::nullopt;
}

/// A message that was read is nowhere else. Returns whether PORT took it in time.
bool Receiver::finish_message() {
  tee->finish_within(time_to_finish);
  if (tee->is_busy()) return false;
  take_message();
  return true;
}

}  // namespace keltipc
