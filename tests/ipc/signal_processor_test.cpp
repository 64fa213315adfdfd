#include "ipc/signal_processor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <tuple>

#include "ipc/queue_port_writer.h"
#include "support/frames.h"
#include "support/reassembly.h"
#include "support/system_calls.h"

namespace ecu::vorn::ipc::test {
namespace {

template <typename Size>
class EachSize : public testing::Test {};
TYPED_TEST_SUITE(EachSize, PayloadSizes, );

TYPED_TEST(EachSize, PutsRandomFramesTogetherAsTheModelDoes) {
  std::minstd_rand random(1);
  std::array<std::uint8_t, 150> bytes{};
  std::size_t signals = 0;
  for (int sequence = 0; sequence < 20'000; ++sequence) {
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random() >> 8U);
    signals += reassemble<TypeParam::value>(bytes.data(), sequence % 2 == 0 ? 49 : bytes.size()).signals;
  }
  EXPECT_GT(signals, 20'000U) << "they reach too little";
}

std::size_t from_environment(const char* name, std::size_t otherwise) {
  const char* const asked = std::getenv(name);
  return asked == nullptr ? otherwise : std::strtoul(asked, nullptr, 10);
}

/// Twelve frames: a sampling frame; one identifier with every size at which the counting turns; another with two.
Step letter(std::uint8_t i) {
  if (i == 0) return {0, 0, i};
  return i < 10 ? Step{99, static_cast<std::uint8_t>(i - 1), i} : Step{9, static_cast<std::uint8_t>(2 * i - 17), i};
}

/// Goes back one frame where it would have to begin anew: this file may look at what is private.
template <std::size_t N>
std::uint32_t walk(Reassembly<N>& both, std::size_t depth) {
  if (depth == 0) return 1;
  std::uint32_t sequences = 0;
  auto& real = both.processor;
  const auto before = std::tuple(real.signal, real.state, real.received, real.expected, both.model);
  for (std::uint8_t i = 0; i < 12; ++i) {
    both.process(letter(i));
    both.compare_lines();
    sequences += walk(both, depth - 1);
    std::tie(real.signal, real.state, real.received, real.expected, both.model) = before;
  }
  return sequences;
}

TYPED_TEST(EachSize, PutsEverySequenceOfTwelveFramesTogetherAsTheModelDoes) {
  Reassembly<TypeParam::value> both(0x10);
  const std::size_t depth = from_environment("KELTIPC_EXHAUSTIVE_DEPTH", 5);
  EXPECT_EQ(walk(both, depth), std::pow(12, depth));
  EXPECT_GE(depth, 1U);
}

/// Every length unless KELTIPC_ROUND_TRIP_STEP thins them out, as it does under sanitizers and emulation.
TYPED_TEST(EachSize, BringsEveryLengthBackAsItWasSent) {
  constexpr std::size_t N = TypeParam::value, longest = 65535;
  Transcript calls;
  SystemCalls system(calls);
  system.silent = true;
  SignalProcessor<N> processor(0);
  system.on_write = [&](const void* bytes, std::size_t size) {
    signal_t_dyn<N> frame;
    ASSERT_EQ(size, sizeof frame);
    std::memcpy(&frame, bytes, sizeof frame);
    processor.process(std::move(frame));
  };
  QueuePortWriter<N> writer;
  ASSERT_TRUE(writer.open("/dev/port") && writer.transmit_data({0, 0, 0, std::vector<char>(8)}));
  IpcSignal sent{0xF0000005, 0, 0, {}};
  const std::size_t step = from_environment("KELTIPC_ROUND_TRIP_STEP", 1);
  for (std::size_t length = 1; length <= longest; length += step) {
    while (sent.data.size() < length) sent.data.push_back(noise[(sent.data.size() * 7 + length) % noise.size()]);
    ASSERT_TRUE(writer.transmit_data(sent));
    const auto came = processor.take();
    ASSERT_TRUE(came && came->signal_id == 5 && came->status == 15 && came->data == sent.data) << length;
  }
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
