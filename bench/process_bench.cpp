#include <memory>
#include <utility>
#include <vector>

#include "ipc/signal_processor.h"
#include "logging/logging.h"
#include "sizes.h"
#include "turn_about.h"

namespace {

using namespace ecu::vorn::ipc;

constexpr std::uint32_t start_id = 1;

template <std::size_t N>
std::vector<signal_t_dyn<N>> frames_of(std::size_t length) {
  std::vector<signal_t_dyn<N>> frames(bench::chunks(length, N));
  for (auto& frame : frames) frame = {0x5a, 0, static_cast<std::uint16_t>(length), {}};
  return frames;
}

template <std::size_t N>
[[gnu::noinline]] void put_together(SignalProcessor<N>& processor, std::vector<signal_t_dyn<N>>& frames) {
  for (auto& frame : frames) processor.process(std::move(frame));
  benchmark::DoNotOptimize(processor.take());
}

/// The baseline: one append for each frame and no other checks.
template <std::size_t N>
[[gnu::noinline]] void append_alone(const std::vector<signal_t_dyn<N>>& frames) {
  std::vector<char> data;
  for (const auto& frame : frames) {
    const std::size_t share = std::min<std::size_t>(N, frame.total_size - data.size());
    data.insert(data.end(), frame.data, frame.data + share);
  }
  benchmark::DoNotOptimize(data.data());
}

template <std::size_t N>
void add() {
  const auto processor = std::make_shared<SignalProcessor<N>>(start_id);
  processor->process({start_id, 0, 0, {}});
  for (const std::size_t length : bench::lengths) {
    const auto frames = std::make_shared<std::vector<signal_t_dyn<N>>>(frames_of<N>(length));
    const double goal = N != 4088 ? 2.7 : length <= N ? 1.65 : 1.05;
    bench::compare(
        {bench::figure_name("process_take", N, length), goal, bench::batch_of(length, N)},
        [=] { put_together(*processor, *frames); }, [=] { append_alone(*frames); });
  }
}

}  // namespace

int main(int argc, char** argv) {
  ecu::vorn::logging::set_log_level(5);
  bench::keep_memory();
  bench::for_each_n([](auto n) { add<n>(); });
  return bench::run(argc, argv);
}
