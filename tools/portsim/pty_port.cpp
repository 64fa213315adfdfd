#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "descriptor.h"
#include "link.h"
#include "port.h"
#include "stop_signals.h"

// The slave of a pseudo-terminal in raw mode is a character device that stat, open, poll, read and write treat as
// they treat a port. With VMIN at the frame's size poll reports no less than a whole frame. Frames written to the
// slave are read at the master, queued, and written back to the master, whence they arrive at the slave's readers.
namespace keltipc {
namespace {

/// What the line discipline holds of input that nobody has read; a frame must fit in.
constexpr std::size_t line_capacity = 4095;

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what + ": " + std::strerror(errno)); }

Descriptor open_master() {
  Descriptor master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!master || ::grantpt(master.get()) != 0 || ::unlockpt(master.get()) != 0) fail("no pseudo-terminal to be had");
  return master;
}

std::string slave_path(const Descriptor& master) {
  std::array<char, 64> path{};
  if (::ptsname_r(master.get(), path.data(), path.size()) != 0) fail("the pseudo-terminal has no name");
  return path.data();
}

/// Held open for as long as the port lives: the master would report a hang-up when the last user closes.
Descriptor open_slave(const std::string& path, std::size_t frame_size) {
  Descriptor slave(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios settings{};
  if (!slave || ::tcgetattr(slave.get(), &settings) != 0) fail(path);
  ::cfmakeraw(&settings);
  settings.c_cc[VMIN] = static_cast<cc_t>(frame_size);
  settings.c_cc[VTIME] = 0;
  if (::tcsetattr(slave.get(), TCSANOW, &settings) != 0) fail(path);
  return slave;
}

/// A writer's frame reaches the master in parts only while the line is full, and the rest follows as soon as it has
/// room. After a second without any, the writer was cut short, and what it left must not shift the frames to come.
constexpr int rest_comes_within_ms = 1000;

/// Moves frames from the master to the queue and back.
class Relay {
 public:
  Relay(int master, std::size_t frame_size, MessageQueue& messages) : fd(master), size(frame_size), queue(messages) {}

  short wanted_events() const {
    const bool has_output = !outgoing.empty() || !queue.empty();
    return static_cast<short>((queue.accepts() ? POLLIN : 0) | (has_output ? POLLOUT : 0));
  }

  /// At most one frame a call, so that no more is taken off the line than the queue has room for.
  void receive() {
    const std::size_t had = incoming.size();
    incoming.resize(size);
    const ssize_t got = ::read(fd, incoming.data() + had, size - had);
    incoming.resize(had + (got > 0 ? static_cast<std::size_t>(got) : 0));
    if (incoming.size() == size) queue.push(std::exchange(incoming, {}));
  }

  /// How long poll may wait.
  int patience() const { return !incoming.empty() && queue.accepts() ? rest_comes_within_ms : -1; }

  void give_up_rest() {
    std::cerr << "keltipc-portsim: " << incoming.size() << " bytes of a message whose rest never came are thrown away"
              << std::endl;
    incoming.clear();
  }

  void send() {
    if (outgoing.empty()) outgoing = queue.pop();
    const ssize_t put = ::write(fd, outgoing.data(), outgoing.size());
    if (put > 0) outgoing.erase(0, static_cast<std::size_t>(put));
  }

 private:
  int fd;
  std::size_t size;
  MessageQueue& queue;
  std::string incoming;
  std::string outgoing;
};

void relay_until_stopped(int master, int stop, std::size_t frame_size, MessageQueue& queue) {
  Relay relay(master, frame_size, queue);
  while (true) {
    std::array<pollfd, 2> watched{{{master, relay.wanted_events(), 0}, {stop, POLLIN, 0}}};
    const int ready = ::poll(watched.data(), watched.size(), relay.patience());
    if (ready < 0 && errno != EINTR) fail("poll");
    if (ready == 0) relay.give_up_rest();
    if (watched[1].revents != 0) return;
    if ((watched[0].revents & POLLOUT) != 0) relay.send();
    if ((watched[0].revents & POLLIN) != 0) relay.receive();
  }
}

}  // namespace

void run_pty_port(const PortOptions& options, MessageQueue& queue, const std::function<void(const char*)>& ready) {
  if (options.frame_size > line_capacity) {
    throw std::runtime_error("a pseudo-terminal cannot pass frames of " + std::to_string(options.frame_size) +
                             " bytes: its line holds " + std::to_string(line_capacity) + ". Use --backend cuse.");
  }
  const Descriptor stop = open_stop_signals();
  const Descriptor master = open_master();
  const std::string slave_name = slave_path(master);
  const Descriptor slave = open_slave(slave_name, options.frame_size);
  const Link link(slave_name, options.path);
  ready("a pseudo-terminal");
  relay_until_stopped(master.get(), stop.get(), options.frame_size, queue);
}

}  // namespace keltipc
