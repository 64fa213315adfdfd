#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Measures a call of the library and its baseline in one process. A turn is one repetition of Google Benchmark.
/// Within it, short batches of the two alternate, so that other load on the machine affects both alike.
namespace bench {

constexpr int turns = 21;

/// The goal of a cost that must not be higher than the baseline. Two medians are exact to about a hundredth.
constexpr double no_more = 1.01;

struct Figure {
  std::string name;
  double goal;            ///< the highest median ratio that `scripts/bench` accepts; 0: no goal
  std::size_t batch = 1;  ///< calls of each in one batch, some tens of microseconds in all
  double per_call = 1;    ///< the number of units in a call, by which its time is divided
  double per_baseline_call = per_call;
  std::int64_t batches = 0;  ///< batches of each in one turn; 0: as many as fit into 50 ms
};

using Seconds = std::chrono::duration<double>;

/// Time that the current calls spent on the bench's own work, to be subtracted.
inline Seconds not_theirs{};

/// Runs work of the bench's own without counting its time.
template <typename Work>
void aside(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  not_theirs += std::chrono::steady_clock::now() - start;
}

/// The time of `calls` calls. `prepare` runs first and is not timed.
template <typename Prepare, typename Call>
double seconds(std::size_t calls, const Prepare& prepare, const Call& call) {
  prepare();
  not_theirs = Seconds();
  const auto start = std::chrono::steady_clock::now();
  for (std::size_t i = 0; i < calls; ++i) call();
  return (Seconds(std::chrono::steady_clock::now() - start) - not_theirs).count();
}

inline double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// A turn's two times are medians of its batches, so that a batch in which the process lost the CPU does not count.
template <typename Library, typename Baseline, typename Prepare>
void run_turn(benchmark::State& state, const Figure& figure, const Library& library, const Baseline& baseline,
              const Prepare& prepare) {
  std::vector<double> library_s;
  std::vector<double> baseline_s;
  bool library_first = false;
  for (auto iteration : state) {
    static_cast<void>(iteration);
    library_first = !library_first;
    if (!library_first) baseline_s.push_back(seconds(figure.batch, prepare, baseline));
    library_s.push_back(seconds(figure.batch, prepare, library));
    if (library_first) baseline_s.push_back(seconds(figure.batch, prepare, baseline));
    state.SetIterationTime(library_s.back());
  }
  const double per_batch = 1e9 / static_cast<double>(figure.batch);
  const double library_ns = median(library_s) * per_batch / figure.per_call;
  const double baseline_ns = median(baseline_s) * per_batch / figure.per_baseline_call;
  state.counters["library_ns"] = library_ns;
  state.counters["baseline_ns"] = baseline_ns;
  state.counters["ratio"] = library_ns / baseline_ns;
  state.counters["goal"] = figure.goal;
}

inline double lowest(const std::vector<double>& values) { return *std::min_element(values.begin(), values.end()); }
inline double highest(const std::vector<double>& values) { return *std::max_element(values.begin(), values.end()); }

/// Keeps freed memory in the process: the time for getting pages from the kernel is not the library's.
inline void keep_memory() {
  ::mallopt(M_MMAP_THRESHOLD, 1 << 24);
  ::mallopt(M_TRIM_THRESHOLD, 1 << 26);
}

inline void nothing() {}

/// Registers a figure. Google Benchmark copies the calls, so they must hold shared state by std::shared_ptr.
template <typename Library, typename Baseline, typename Prepare = void (*)()>
void compare(const Figure& figure, Library library, Baseline baseline, Prepare prepare = nothing) {
  const auto turn = [=](benchmark::State& state) { run_turn(state, figure, library, baseline, prepare); };
  auto* const made = benchmark::RegisterBenchmark(figure.name.c_str(), turn)
                         ->UseManualTime()
                         ->Repetitions(turns)
                         ->ReportAggregatesOnly()
                         ->ComputeStatistics("lowest", lowest)
                         ->ComputeStatistics("highest", highest);
  figure.batches == 0 ? made->MinTime(0.05) : made->Iterations(figure.batches);
}

inline int run(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace bench
