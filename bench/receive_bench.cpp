#include <fcntl.h>
#include <poll.h>
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

/// The port is a pipe that keeps messages apart (O_DIRECT), put in the place of the device that the reader opened:
/// the cheapest such port that the kernel has. As with a queuing port, one read takes one message off a queue. It is
/// given the frames a batch at a time, set aside from what is timed, so that what waits in it does not grow with a
/// signal's length.
namespace {

using namespace ecu::vorn::ipc;

constexpr std::uint32_t start_id = 1;

[[noreturn]] void give_up(const char* what) {
  std::cerr << "receive_bench: " << what << '\n';
  std::exit(1);
}

/// The frames that the port's reader is still to be given.
class Feed {
 public:
  template <typename Frame>
  void start(int port_end, const std::vector<Frame>& frames, std::size_t frames_at_once) {
    fd = port_end;
    next = reinterpret_cast<const char*>(frames.data());
    frame_size = sizeof(Frame);
    left = frames.size();
    at_once = frames_at_once;
    waiting = 0;
  }
  /// Whether one more is waiting or can be.
  bool take_one() {
    if (waiting == 0 && left > 0) bench::aside([this] { fill(); });
    if (waiting == 0) return false;
    --waiting;
    return true;
  }

 private:
  void fill() {
    for (; waiting < at_once && left > 0; ++waiting, --left, next += frame_size) {
      if (::write(fd, next, frame_size) != static_cast<ssize_t>(frame_size)) give_up("cannot fill the pipe");
    }
  }

  int fd = -1;
  const char* next = nullptr;
  std::size_t frame_size = 0;
  std::size_t left = 0;
  std::size_t at_once = 0;
  std::size_t waiting = 0;
};

Feed feed;

}  // namespace

/// Takes libc's place for the library and the loop by hand alike: quiet when all frames are through, with no 300 ms
/// to wait; else the system's.
extern "C" int poll(pollfd* ports, nfds_t count, int timeout) {
  if (!feed.take_one()) return 0;
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

/// A port with a reader on it and a loop by hand.
template <std::size_t N>
class Port {
 public:
  Port() {
    int ends[2];
    if (::pipe2(ends, O_DIRECT) < 0) give_up("cannot make a pipe");
    if (::fcntl(ends[1], F_SETPIPE_SZ, 1 << 20) < 0) give_up("cannot make room for 1 MiB in a pipe: needs root");
    fd = ends[0];
    other_end = ends[1];
    // The reader opens a character device; the pipe then takes the place of that descriptor.
    const int next = ::dup(fd);
    ::close(next);
    if (!reader.open("/dev/zero") || ::fcntl(next, F_GETFD) < 0) give_up("cannot open /dev/zero");
    if (::dup2(fd, next) < 0) give_up("cannot put the pipe in the device's place");
  }

  void feed_with(const std::vector<signal_t_dyn<N>>& frames) {
    feed.start(other_end, frames, bench::frames_a_batch(N));
  }
  void receive() {
    reader.stop();
    reader.receive_data();
  }
  void receive_by_hand() { ::receive_by_hand<N>(fd, consumer); }

 private:
  int fd = -1;
  int other_end = -1;
  Consumer consumer;
  QueuePortReader<N> reader{std::make_unique<Consumer>(), start_id};
};

/// One start frame, and the signals' frames behind it.
template <std::size_t N>
std::vector<signal_t_dyn<N>> frames_of(std::size_t signals, std::size_t length) {
  const signal_t_dyn<N> any{0x5a, 0, static_cast<std::uint16_t>(length), {}};
  std::vector<signal_t_dyn<N>> frames(1 + signals * bench::chunks(length, N), any);
  frames[0].signal_id = start_id;
  return frames;
}

template <std::size_t N>
void add() {
  const auto port = std::make_shared<Port<N>>();
  for (const std::size_t length : bench::lengths) {
    const std::size_t signals = bench::batch_of(length, N);
    const auto frames = frames_of<N>(signals, length);
    bench::compare(
        {bench::figure_name("receive_data", N, length), 1.06, 1, static_cast<double>(signals)},
        [=] { port->receive(); }, [=] { port->receive_by_hand(); }, [=] { port->feed_with(frames); });
  }
}

/// The cost a frame must not grow with the signal's length. At N = 4088 it does, for the loop by hand alike: the
/// vector copies what it holds each time that it grows. There the two stand side by side, without a goal.
template <std::size_t N>
void add_long_beside_short() {
  const auto port = std::make_shared<Port<N>>();
  const auto longer = frames_of<N>(1, 65535);
  const auto shorter = frames_of<N>(bench::shorts_a_long(N), 4000);
  const auto add = [&](const std::string& call, double goal, auto receive) {
    const auto receive_all = [=](const auto& frames) {
      bench::aside([&] { port->feed_with(frames); });
      receive();
    };
    bench::compare(
        {call + " a frame, N = " + std::to_string(N) + ", of 65535 bytes/of 4000 bytes", goal, 1,
         static_cast<double>(longer.size()), static_cast<double>(shorter.size())},
        [=] { receive_all(longer); }, [=] { receive_all(shorter); });
  };
  add("receive_data", N == 4088 ? 0 : bench::no_more, [=] { port->receive(); });
  if (N == 4088) add("the bare calls of receive_data", 0, [=] { port->receive_by_hand(); });
}

}  // namespace

int main(int argc, char** argv) {
  ecu::vorn::logging::set_log_level(5);
  bench::keep_memory();
  bench::for_each_n([](auto n) { add<n>(); });
  bench::for_each_n([](auto n) { add_long_beside_short<n>(); });
  return bench::run(argc, argv);
}
