#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include "ipc/queue_port_writer.h"
#include "logging/logging.h"
#include "sizes.h"
#include "turn_about.h"

/// The port is /dev/null, the cheapest character device: any real one makes the ratios smaller.
namespace {

using namespace ecu::vorn::ipc;

constexpr const char* port = "/dev/null";

/// Writes the same frames, as one would by hand.
template <std::size_t N>
[[gnu::noinline]] bool transmit_by_hand(int fd, const IpcSignal& signal) {
  struct stat record {};
  if (::fstat(fd, &record) == -1 || !S_ISCHR(record.st_mode) || record.st_nlink == 0) return false;
  const std::size_t size = signal.data.size();
  signal_t_dyn<N> frame{};
  frame.signal_id = signal.signal_id;
  frame.total_size = static_cast<std::uint16_t>(size);
  for (std::size_t offset = 0; offset < size; offset += N) {
    std::memcpy(frame.data, signal.data.data() + offset, std::min(N, size - offset));
    [[maybe_unused]] const ssize_t unchecked = ::write(fd, &frame, sizeof frame);
    ++frame.chunk_index;
  }
  return true;
}

template <std::size_t N>
struct Ends {
  Ends() : fd(::open(port, O_WRONLY | O_SYNC)) {
    if (fd >= 0 && writer.open(port)) return;
    std::cerr << "transmit_bench: cannot open " << port << '\n';
    std::exit(1);
  }

  QueuePortWriter<N> writer;
  const int fd;
};

template <std::size_t N>
void add() {
  const auto ends = std::make_shared<Ends<N>>();
  for (const std::size_t length : bench::lengths) {
    const auto signal = std::make_shared<const IpcSignal>(bench::signal_of(length));
    bench::compare(
        {bench::figure_name("transmit_data", N, length), 1.05, bench::batch_of(length, N)},
        [=] { ends->writer.transmit_data(*signal); }, [=] { transmit_by_hand<N>(ends->fd, *signal); });
  }
}

/// The cost of a frame must not grow with the signal's length.
template <std::size_t N>
void add_long_beside_short() {
  const auto ends = std::make_shared<Ends<N>>();
  const auto shorter = std::make_shared<const IpcSignal>(bench::signal_of(4000));
  const auto longer = std::make_shared<const IpcSignal>(bench::signal_of(65535));
  const std::size_t count = bench::shorts_a_long(N);
  bench::compare(
      {"transmit_data a frame, N = " + std::to_string(N) + ", of 65535 bytes/of 4000 bytes", bench::no_more, 1,
       static_cast<double>(bench::chunks(65535, N)), static_cast<double>(count * bench::chunks(4000, N))},
      [=] { ends->writer.transmit_data(*longer); },
      [=] {
        for (std::size_t i = 0; i < count; ++i) ends->writer.transmit_data(*shorter);
      });
}

}  // namespace

int main(int argc, char** argv) {
  ecu::vorn::logging::set_log_level(5);
  bench::for_each_n([](auto n) { add<n>(); });
  bench::for_each_n([](auto n) { add_long_beside_short<n>(); });
  return bench::run(argc, argv);
}
