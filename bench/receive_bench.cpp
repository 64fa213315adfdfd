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

/// The port is a pipe that keeps messages apart (O_DIRECT), the cheapest such port of the kernel. It replaces the
/// file descriptor of the device that the reader opened. As with a queuing port, one read takes one message from a
/// queue. It is filled one batch at a time, which is not timed, so that the length of its queue does not depend on
/// the signal's.
namespace {

using namespace ecu::vorn::ipc;

constexpr std::uint32_t start_id = 1;

[[noreturn]] void give_up(const char* what) {
  std::cerr << "receive_bench: " << what << '\n';
  std::exit(1);
}

/// The frames that the port's reader will get.
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
  /// Takes one frame off the queue, which is refilled if it is empty. False at the end.
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

/// Replaces libc's poll for the library and the baseline: reports a timeout at once when all frames were read, so
/// that no 300 ms are waited.
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

/// The baseline: one append for each frame, one move for each signal.
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

/// A port with the library's reader and the baseline's loop.
template <std::size_t N>
class Port {
 public:
  Port() {
    int ends[2];
    if (::pipe2(ends, O_DIRECT) < 0) give_up("cannot make a pipe");
    if (::fcntl(ends[1], F_SETPIPE_SZ, 1 << 20) < 0) give_up("cannot make room for 1 MiB in a pipe: needs root");
    fd = ends[0];
    other_end = ends[1];
    // The reader opens only character devices, so the pipe replaces the file descriptor afterwards.
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

/// A start frame and the frames of `signals` signals.
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

/// The cost of a frame must not grow with the signal's length. At N = 4088 it does, for the baseline too, because the
/// vector copies its contents each time it grows. There both are measured, without a goal.
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
