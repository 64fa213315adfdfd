#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// A figure of the library beside its baseline, in one process. A turn is one repetition of Google Benchmark; within
/// it short batches of the two alternate, so that whatever else the machine does meets both alike.
namespace bench {

constexpr int turns = 21;

/// The goal of a cost that must not be higher: to a hundredth, which is as exact as two medians are.
constexpr double no_more = 1.01;

struct Figure {
  std::string name;
  double goal;            ///< the median ratio that `scripts/bench` lets pass at most; 0: none
  std::size_t batch = 1;  ///< calls of each in one batch: some tens of microseconds' worth
  double per_call = 1;    ///< what a call does, to divide its time by
  double per_baseline_call = per_call;
  std::int64_t batches = 0;  ///< of each in one turn; 0: as many as fill 50 ms
};

using Seconds = std::chrono::duration<double>;

/// What the calls under way have spent on the bench's own work, which is not theirs.
inline Seconds not_theirs{};

/// Calls it, for the bench's own sake.
template <typename Work>
void aside(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  not_theirs += std::chrono::steady_clock::now() - start;
}

/// `prepare` is called before and is not timed.
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

/// A turn's two times are the medians of its batches: one in which the process lost the CPU does not count.
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

/// Memory that the process has stays with it: how long the system takes for pages is no figure of the library's.
inline void keep_memory() {
  ::mallopt(M_MMAP_THRESHOLD, 1 << 24);
  ::mallopt(M_TRIM_THRESHOLD, 1 << 26);
}

inline void nothing() {}

/// What the calls share they hold by std::shared_ptr: Google Benchmark copies them.
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
