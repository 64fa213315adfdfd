#include <valgrind/callgrind.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "ipc/log_line.h"
#include "ipc/queue_port_writer.h"
#include "ipc/signal_processor.h"

/// Run by bench/instruction-counts under callgrind. The instructions of each figure go to a dump of their own,
/// whose name contains the divisor. Instructions of the kernel are not counted.
namespace {

using namespace ecu::vorn;
using namespace ecu::vorn::ipc;

constexpr std::uint32_t start_id = 1;
constexpr std::uint16_t length = 65535;

template <typename Work>
void count(const std::string& name, std::size_t units, const Work& work) {
  const std::string dump = name + " " + std::to_string(units);
  work();  // Not counted: costs of the first time, such as getting memory from the kernel.
  CALLGRIND_ZERO_STATS;
  work();
  CALLGRIND_DUMP_STATS_AT(dump.c_str());
}

template <std::size_t N>
void count_transport() {
  const std::string n = std::to_string(N);
  const std::size_t frames = (length + N - 1) / N;

  SignalProcessor<N> processor(start_id);
  processor.process({start_id, 0, 0, {}});
  signal_t_dyn<N> frame{0x5a, 0, length, {}};
  count("process/" + n, frames, [&] {
    // NOLINTNEXTLINE(bugprone-use-after-move): the processor copies bytes out of a frame and leaves it as it is
    for (std::size_t i = 0; i < frames; ++i) processor.process(std::move(frame));
    processor.take();
  });

  QueuePortWriter<N> writer;
  if (!writer.open("/dev/null")) std::exit(1);
  const IpcSignal signal{0x5a, 0, 0, std::vector<char>(length, 'x')};
  count("transmit_data/" + n, frames, [&] { writer.transmit_data(signal); });
}

constexpr std::size_t lines = 1000;
const Logger logger = logging::module("instructions");

[[gnu::noinline]] void skip_lines() {
  for (std::uint32_t i = 0; i < lines; ++i) {
    log_line<Debug>(logger, "take signal: 0x", Hex{i});
    asm volatile("" : : "r"(i));
  }
}

[[gnu::noinline]] void no_lines() {
  for (std::uint32_t i = 0; i < lines; ++i) asm volatile("" : : "r"(i));
}

}  // namespace

int main() {
  logging::set_log_level(5);
  count_transport<8>();
  count_transport<24>();
  count_transport<4088>();
  count("skip_lines", lines, skip_lines);
  count("no_lines", lines, no_lines);
}
