#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>

#include "ipc/queue_port_writer.h"
#include "sizes.h"
#include "turn_about.h"

/// The port is /dev/null, the cheapest character device there is: any real one makes the ratios smaller.
namespace {

using namespace ecu::vorn::ipc;

constexpr const char* port = "/dev/null";

/// What one would write by hand to put the same frames on the port.
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
void add(std::size_t length) {
  const auto ends = std::make_shared<Ends<N>>();
  const auto signal = std::make_shared<const IpcSignal>(bench::signal_of(length));
  const double goal = N == 4088 && length <= N ? 1.08 : 1.05;
  bench::compare({bench::figure_name("transmit_data", N, length), goal, bench::batch_of(length, N)},
                 [=] { ends->writer.transmit_data(*signal); }, [=] { transmit_by_hand<N>(ends->fd, *signal); });
}

}  // namespace

int main(int argc, char** argv) {
  bench::for_each_size([](std::size_t length, auto n) { add<n>(length); });
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
}
