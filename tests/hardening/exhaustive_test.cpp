#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include "support/reassembly_check.h"

namespace ecu::vorn::ipc::test {
namespace {

/// How long the sequences are: KELTIPC_EXHAUSTIVE_DEPTH, else 5 (a release check runs 8, for an hour).
unsigned int depth() {
  const char* const asked = std::getenv("KELTIPC_EXHAUSTIVE_DEPTH");
  return asked == nullptr ? 5 : static_cast<unsigned int>(std::strtoul(asked, nullptr, 10));
}

template <std::size_t N>
signal_t_dyn<N> frame(std::uint32_t word, std::size_t total_size) {
  signal_t_dyn<N> made{};
  made.signal_id = word;
  made.total_size = static_cast<std::uint16_t>(total_size);
  for (std::size_t i = 0; i < N; ++i) made.data[i] = static_cast<char>(word + total_size + i);
  return made;
}

/// Twelve frames whose sequences reach every branch. Sums of N and N+1 meet what is held, one below and one above it.
template <std::size_t N>
std::array<signal_t_dyn<N>, 12> alphabet() {
  constexpr std::uint32_t start = 0x10;
  return {frame<N>(start, 0),      frame<N>(0x30000000 | start, N),
          frame<N>(5, 0),          frame<N>(5, 1),
          frame<N>(5, N - 1),      frame<N>(5, N),
          frame<N>(5, N + 1),      frame<N>(5, 2 * N - 1),
          frame<N>(5, 2 * N),      frame<N>(5, 2 * N + 1),
          frame<N>(0xF0000006, N), frame<N>(6, 2 * N)};
}

template <typename Size>
class EverySequenceOfFrames : public testing::Test {};
using Sizes = testing::Types<std::integral_constant<std::size_t, 8>, std::integral_constant<std::size_t, 24>,
                             std::integral_constant<std::size_t, 4088>>;
TYPED_TEST_SUITE(EverySequenceOfFrames, Sizes, );

TYPED_TEST(EverySequenceOfFrames, GivesWhatTheModelGives) {
  constexpr std::size_t N = TypeParam::value;
  const auto symbols = alphabet<N>();
  unsigned long long sequences = 1;
  for (unsigned int i = 0; i < depth(); ++i) sequences *= symbols.size();
  for (unsigned long long sequence = 0; sequence < sequences; ++sequence) {
    ReassemblyCheck<N> check(0x10, false);
    unsigned long long rest = sequence;
    for (unsigned int i = 0; i < depth(); ++i, rest /= symbols.size())
      check.process(symbols[static_cast<std::size_t>(rest % symbols.size())]);
    check.compare_logs();
  }
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
