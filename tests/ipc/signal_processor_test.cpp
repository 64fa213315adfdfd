#include "ipc/signal_processor.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/reassembly.h"

namespace ecu::vorn::ipc::test {
namespace {

/// A sampling frame; frames of one signal, with the sizes around which counting turns; a frame of another signal.
constexpr std::array<std::uint8_t, 9> frames = {0x00, 0x13, 0x90, 0x91, 0x94, 0x96, 0x97, 0x9B, 0xD4};

/// Every sequence of that many frames.
template <std::size_t N>
std::size_t reassemble_all(std::size_t length, std::uint32_t start_id, int log_level) {
  std::size_t signals = 0;
  std::vector<std::size_t> indexes(length, 0);
  std::vector<std::uint8_t> sequence(length);
  for (std::size_t digit = 0; digit < length;) {
    for (std::size_t i = 0; i < length; ++i) sequence[i] = frames[indexes[i]];
    signals += reassemble<N>(sequence.data(), length, start_id, log_level);
    for (digit = 0; digit < length && ++indexes[digit] == frames.size(); ++digit) indexes[digit] = 0;
  }
  return signals;
}

template <typename Size>
class ASignalProcessor : public testing::Test {};
using Sizes = testing::Types<std::integral_constant<std::size_t, 8>, std::integral_constant<std::size_t, 24>,
                             std::integral_constant<std::size_t, 4088>>;
TYPED_TEST_SUITE(ASignalProcessor, Sizes, );

TYPED_TEST(ASignalProcessor, AgreesWithTheModelOnEverySequence) {
  const char* const asked = std::getenv("KELTIPC_EXHAUSTIVE_DEPTH");  // a release check asks for more
  EXPECT_GT(reassemble_all<TypeParam::value>(asked == nullptr ? 5 : std::stoul(asked), 0x10, 6), 0U);
}

TYPED_TEST(ASignalProcessor, LogsWhatTheModelLogs) { EXPECT_GT(reassemble_all<TypeParam::value>(3, 0, 7), 0U); }

}  // namespace
}  // namespace ecu::vorn::ipc::test
