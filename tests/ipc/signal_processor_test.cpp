#include "ipc/signal_processor.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/reassembly.h"

using namespace ecu::vorn::ipc::test;

/// A start frame, frames of one signal with sizes at the limits of the counting, and a frame of another signal.
constexpr std::array<std::uint8_t, 9> all_steps = {start_frame,
                                                   signal_5 | of_n,
                                                   signal_5 | of_0 | then_take,
                                                   signal_5 | of_1 | then_take,
                                                   signal_5 | above_n | then_take,
                                                   signal_5 | of_held | then_take,
                                                   signal_5 | below_held | then_take,
                                                   signal_5 | above_2n | then_take,
                                                   signal_6 | above_n | then_take};

/// Takes every sequence of `length` steps. Returns how many signals they make.
template <std::size_t N>
std::size_t reassemble_all(std::size_t length, std::uint32_t start_id, int log_level) {
  std::size_t signals = 0, sequences = 1;
  for (std::size_t i = 0; i < length; ++i) sequences *= all_steps.size();
  std::vector<std::uint8_t> steps(length);
  for (std::size_t number = 0; number < sequences; ++number) {
    std::size_t rest = number;
    for (std::uint8_t& step : steps) {
      step = all_steps[rest % all_steps.size()];
      rest /= all_steps.size();
    }
    signals += reassemble<N>(steps.data(), length, start_id, log_level);
  }
  return signals;
}

TEST(ASignalProcessor, AgreesWithTheModelOnEverySequence) {
  const char* const asked = std::getenv("KELTIPC_EXHAUSTIVE_DEPTH");  // a release check asks for more
  const std::size_t length = asked == nullptr ? 5 : std::stoul(asked);
  EXPECT_GT(reassemble_all<8>(length, 0x10, 6), 0U);
  EXPECT_GT(reassemble_all<24>(length, 0x10, 6), 0U);
  EXPECT_GT(reassemble_all<4088>(length, 0x10, 6), 0U);
}

TEST(ASignalProcessor, LogsWhatTheModelLogs) { EXPECT_GT(reassemble_all<8>(3, 0, 7), 0U); }
