#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include "descriptor.h"
#include "link.h"
#include "port.h"
#include "say.h"
#include "stop_request.h"

// The slave of a pseudo-terminal in raw mode is a character device that stat, open, poll, read and write treat like a
// port. VMIN is the frame's size, so poll reports whole frames only. The relay reads the frames that were
// written to the slave at the master, queues them, and writes them back to the master for the slave's readers.
namespace keltipc {
namespace {

/// How much unread input the line discipline holds. A frame must fit in.
constexpr std::size_t line_capacity = 4095;

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what + ": " + std::strerror(errno)); }

Descriptor open_master() {
  Descriptor master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!master || ::grantpt(master.get()) != 0 || ::unlockpt(master.get()) != 0) fail("cannot make a pseudo-terminal");
  return master;
}

std::string slave_path(const Descriptor& master) {
  std::array<char, 64> path{};
  if (::ptsname_r(master.get(), path.data(), path.size()) != 0) fail("cannot name the pseudo-terminal");
  return path.data();
}

/// Held open as long as the port exists: otherwise the master would report a hang-up when the last user closes it.
Descriptor open_slave(const std::string& path, const SimulatedPort& port) {
  Descriptor slave(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  termios settings{};
  if (!slave || ::tcgetattr(slave.get(), &settings) != 0) fail(path);
  ::cfmakeraw(&settings);
  settings.c_cc[VMIN] = static_cast<cc_t>(port.frame_size);
  settings.c_cc[VTIME] = 0;
  if (::tcsetattr(slave.get(), TCSANOW, &settings) != 0) fail(path);
  if (port.mode != 0 && ::fchmod(slave.get(), port.mode) != 0) fail(path);
  return slave;
}

/// A writer's frame reaches the master in parts only while the line is full, and the rest follows as soon as it has
/// room. If for a second all that was read ended within a frame, a writer must have been interrupted: what is there
/// of the frame is discarded, because it would shift all the frames that follow.
constexpr std::chrono::milliseconds rest_comes_within(1000);

/// Reads all that a descriptor holds. Returns the number of bytes.
std::size_t drain(int fd) {
  std::array<char, 4096> bytes{};
  std::size_t total = 0;
  for (ssize_t got = 0; (got = ::read(fd, bytes.data(), bytes.size())) > 0;) total += static_cast<std::size_t>(got);
  return total;
}

/// Moves frames from the master to the queue and back.
class Relay {
 public:
  Relay(int master, std::size_t frame_size, MessageQueue& messages) : fd(master), size(frame_size), queue(messages) {}

  void run_until_stopped() {
    while (!has_hung_up()) {
      // Before `wanted_events`, so that no message becomes readable unnoticed in between.
      const int timeout = longest_wait();
      std::array<pollfd, 2> watched{{{fd, wanted_events(), 0}, {stop_descriptor(), 0, 0}}};
      if (::poll(watched.data(), watched.size(), timeout) < 0 && errno != EINTR) fail("poll");
      if (watched[1].revents != 0) return;
      if ((watched[0].revents & POLLIN) != 0) {
        receive();
      } else if ((watched[0].events & POLLIN) != 0) {
        give_up_late_rest();
      }
      if ((watched[0].revents & POLLOUT) != 0) send();
      pass_on();
    }
  }

  bool has_hung_up() const { return queue.has_hung_up() && outgoing.empty(); }

  /// Counts as unread what the line still holds, in either direction.
  void count_unread(int slave) {
    queue.take_back(drain(slave) / size + (outgoing.empty() ? 0 : 1));
    queue.add_unread((incoming.size() + drain(fd)) / size);
  }

 private:
  using Clock = std::chrono::steady_clock;

  short wanted_events() const {
    const bool has_output = !outgoing.empty() || queue.is_readable();
    return static_cast<short>((queue.accepts() ? POLLIN : 0) | (has_output ? POLLOUT : 0));
  }

  /// As poll(2) takes it: until a message becomes readable, or the rest of one is late.
  int longest_wait() const {
    const int to_readable = queue.ms_to_readable();
    if (incoming.empty() || !queue.accepts()) return to_readable;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(whole_at + rest_comes_within - Clock::now());
    const int to_late = std::max(0, static_cast<int>(left.count()));
    return to_readable < 0 ? to_late : std::min(to_readable, to_late);
  }

  void send() {
    if (outgoing.empty()) outgoing = queue.pop();
    const ssize_t put = ::write(fd, outgoing.data(), outgoing.size());
    if (put > 0) outgoing.erase(0, static_cast<std::size_t>(put));
  }

  /// Reads all that the line holds, if that is less than its capacity.
  void receive() {
    const std::size_t had = incoming.size();
    incoming.resize(had + line_capacity);
    const ssize_t got = ::read(fd, incoming.data() + had, line_capacity);
    incoming.resize(had + (got > 0 ? static_cast<std::size_t>(got) : 0));
    const bool was_full = got == static_cast<ssize_t>(line_capacity);
    if (had == 0 || was_full || incoming.size() % size == 0) whole_at = Clock::now();
  }

  void pass_on() {
    for (; incoming.size() >= size && queue.accepts(); incoming.erase(0, size)) queue.push(incoming.substr(0, size));
    if (!queue.accepts()) whole_at = Clock::now();
  }

  void give_up_late_rest() {
    if (incoming.empty() || Clock::now() < whole_at + rest_comes_within) return;
    say("discarded " + std::to_string(incoming.size()) + " bytes of a message whose rest never came");
    incoming.clear();
  }

  int fd;
  std::size_t size;
  MessageQueue& queue;
  std::string incoming;
  std::string outgoing;
  Clock::time_point whole_at;  ///< the last time at which no writer seemed to be interrupted
};

/// A hang-up discards the messages that the line holds, so wait until they are read. Only polling can find that out.
void wait_until_read(int slave) {
  constexpr int ask_again_ms = 5;
  while (poll_one(slave, POLLIN, 0) != 0 && poll_one(stop_descriptor(), 0, ask_again_ms) == 0) continue;
}

}  // namespace

void run_pty_port(const SimulatedPort& port, MessageQueue& queue, const std::function<void(const char*)>& ready) {
  if (port.frame_size > line_capacity) {
    throw std::runtime_error("a pseudo-terminal cannot pass frames of " + std::to_string(port.frame_size) +
                             " bytes: its line holds " + std::to_string(line_capacity) + ". Use --backend cuse.");
  }
  const Descriptor master = open_master();
  const std::string slave_name = slave_path(master);
  const Descriptor slave = open_slave(slave_name, port);
  const Link link(slave_name, port.path);
  ready("a pseudo-terminal");
  Relay relay(master.get(), port.frame_size, queue);
  relay.run_until_stopped();
  if (relay.has_hung_up()) wait_until_read(slave.get());
  relay.count_unread(slave.get());
}

}  // namespace keltipc
