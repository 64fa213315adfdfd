#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <utility>
#include <vector>

#include "ipc/queue_port_reader.h"
#include "logging/logging.h"
#include "sizes.h"
#include "turn_about.h"

/// The port is a socket that keeps messages apart (SOCK_SEQPACKET), put in the place of the device that the reader
/// opened: as with a queuing port, one read takes one message off a queue in the kernel. It holds all frames of a batch
/// beforehand.
namespace {

using namespace ecu::vorn::ipc;

constexpr std::uint32_t start_id = 1;

std::size_t frames_left = 0;

}  // namespace

/// Takes libc's place for the library and the loop by hand alike: quiet when the batch's frames are through, with no
/// 300 ms to wait; else the system's.
extern "C" int poll(pollfd* ports, nfds_t count, int timeout) {
  if (frames_left == 0) return 0;
  --frames_left;
  return static_cast<int>(::syscall(SYS_poll, ports, count, timeout));
}

namespace {

struct Consumer : IDataConsumer<IpcSignal> {
  void consume(IpcSignal&& signal) override {
    const IpcSignal taken = std::move(signal);
    benchmark::DoNotOptimize(taken.data.data());
  }
};

/// One append a frame, one move a signal.
template <std::size_t N>
[[gnu::noinline]] void receive_by_hand(int fd, IDataConsumer<IpcSignal>& consumer) {
  pollfd port{fd, POLLIN, 0};
  signal_t_dyn<N> frame{};
  IpcSignal signal{};
  while (::poll(&port, 1, 300) > 0) {
    [[maybe_unused]] const ssize_t unchecked = ::read(fd, &frame, sizeof frame);
    if (frame.signal_id == start_id) continue;
    signal.signal_id = frame.signal_id;
    const std::size_t share = std::min<std::size_t>(N, frame.total_size - signal.data.size());
    signal.data.insert(signal.data.end(), frame.data, frame.data + share);
    if (signal.data.size() == frame.total_size) {
      consumer.consume(std::move(signal));
      signal = {};
    }
  }
}

[[noreturn]] void give_up(const char* what) {
  std::cerr << "receive_bench: " << what << '\n';
  std::exit(1);
}

/// A port that `fill` gives one start frame and `signals` signals behind it.
template <std::size_t N>
class Port {
 public:
  Port(std::size_t signals, std::size_t length)
      : frames(1 + signals * bench::chunks(length, N), {0x5a, 0, static_cast<std::uint16_t>(length), {}}) {
    frames[0].signal_id = start_id;
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) < 0) give_up("cannot make a pair of sockets");
    const int room = 1 << 24;
    if (::setsockopt(ends[1], SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room) < 0) {
      give_up("cannot make room for 16 MiB in a socket: needs root");
    }
    fd = ends[0];
    feed = ends[1];
    // The reader opens a character device; the socket then takes the place of that descriptor.
    const int next = ::dup(fd);
    ::close(next);
    if (!reader.open("/dev/zero") || ::fcntl(next, F_GETFD) < 0) give_up("cannot open /dev/zero");
    if (::dup2(fd, next) < 0) give_up("cannot put the socket in the device's place");
  }

  void fill() {
    frames_left = frames.size();
    for (const auto& frame : frames) {
      if (::write(feed, &frame, sizeof frame) != static_cast<ssize_t>(sizeof frame)) give_up("cannot fill the socket");
    }
  }
  void receive() {
    reader.stop();
    reader.receive_data();
  }
  void receive_by_hand() { ::receive_by_hand<N>(fd, consumer); }

 private:
  std::vector<signal_t_dyn<N>> frames;
  int fd = -1;
  int feed = -1;
  Consumer consumer;
  QueuePortReader<N> reader{std::make_unique<Consumer>(), start_id};
};

template <std::size_t N>
void add() {
  for (const std::size_t length : bench::lengths) {
    const std::size_t signals = bench::batch_of(length, N);
    const auto port = std::make_shared<Port<N>>(signals, length);
    bench::compare({bench::figure_name("receive_data", N, length), 1.06, 1, static_cast<double>(signals)},
                   [=] { port->receive(); }, [=] { port->receive_by_hand(); }, [=] { port->fill(); });
  }
}

}  // namespace

int main(int argc, char** argv) {
  ecu::vorn::logging::set_log_level(5);
  bench::keep_memory();
  bench::for_each_n([](auto n) { add<n>(); });
  return bench::run(argc, argv);
}
