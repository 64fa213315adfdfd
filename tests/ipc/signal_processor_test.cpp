#include "ipc/signal_processor.h"

#include <gtest/gtest.h>

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

struct Sent {
  std::uint32_t word;
  std::size_t total_size;
  const char* payload;
};
constexpr Sent start{0x10, 0, "\x1f\0\0\0\0\0\0"}, take{0, 0, nullptr};

/// As the reader does it: a signal is taken as soon as it is complete.
Transcript signals_and_warnings(const std::vector<Sent>& frames) {
  Transcript happened;
  const RecordedLog log(happened, "ipc.signalprocessor", 5);
  SignalProcessor<8> processor(0x10);
  for (const Sent& sent : frames) {
    if (sent.payload != nullptr) processor.process(frame_of<8>(sent.word, sent.total_size, sent.payload));
    if (sent.payload != nullptr && processor.get_state() != 3) continue;
    if (const auto taken = processor.take()) happened.push_back(printed(*taken));
  }
  return happened;
}

TEST(Reassembly, FollowsItsRulesInEveryCornerCase) {
  const std::string unfinished = "WARNING Signal was not received completely, received new sampling frame. ";
  const std::pair<std::vector<Sent>, Transcript> cases[] = {
      {{{5, 1, "a"}, take, start, {6, 1, "b"}}, {"WARNING Signal unfinished!", "06: 00, 1f { 62 }"}},
      {{start, {5, 9, "aaaaaaaa"}, {0x30000005, 9, "bstale"}}, {"05: 03, 1f { 61 61 61 61 61 61 61 61 62 }"}},
      {{start, {5, 0, "a"}, {5, 1, "b"}, take}, {"05: 00, 1f { }", "05: 00, 1f { 62 }", "00: 00, 1f { }"}},
      {{start, {5, 9, "aaaaaaaa"}, start, {5, 1, "b"}}, {unfinished + "Disregard signal: 0x5", "05: 00, 1f { 62 }"}},
      {{start, start}, {unfinished + "Disregard signal: 0x0"}},
      {{start, {0x1a, 16, "aaaaaaaa"}, {6, 16, "bbbbbbbb"}},
       {"ERROR New signal indicated; current signal 1a will be disregarded",
        "06: 00, 1f { 61 61 61 61 61 61 61 61 62 62 62 62 62 62 62 62 }"}},
      {{start, {5, 16, "aaaaaaaa"}, {5, 7, "bbbbbbbb"}, {5, 17, "c"}},
       {"05: 00, 1f { 61 61 61 61 61 61 61 61 62 62 62 62 62 62 62 62 63 }"}},
  };
  for (const auto& [frames, expected] : cases) EXPECT_EQ(signals_and_warnings(frames), expected);
}

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

// A processor's members: with them a walk goes back one frame where it would have to begin anew.
template <typename Processor>
using Members = std::tuple<IpcSignal&, typename Processor::State&, std::uint32_t&, std::uint32_t&>;
Members<SignalProcessor<8>> members(SignalProcessor<8>& processor);
Members<SignalProcessor<24>> members(SignalProcessor<24>& processor);
Members<SignalProcessor<4088>> members(SignalProcessor<4088>& processor);

/// An explicit instantiation may name what is private.
template <typename Processor, auto... Member>
struct Opened {
  friend Members<Processor> members(Processor& processor) { return {processor.*Member...}; }
};
using P8 = SignalProcessor<8>;
using P24 = SignalProcessor<24>;
using P4088 = SignalProcessor<4088>;
template struct Opened<P8, &P8::signal, &P8::state, &P8::received, &P8::expected>;
template struct Opened<P24, &P24::signal, &P24::state, &P24::received, &P24::expected>;
template struct Opened<P4088, &P4088::signal, &P4088::state, &P4088::received, &P4088::expected>;

template <typename... Values>
std::tuple<Values...> copies(const std::tuple<Values&...>& values) {
  return values;
}

/// Twelve frames: a sampling frame; one identifier with every size at which the counting turns; another with two.
Step letter(std::uint8_t i) {
  if (i == 0) return {0, 0, i};
  return i < 10 ? Step{99, static_cast<std::uint8_t>(i - 1), i} : Step{9, static_cast<std::uint8_t>(2 * i - 17), i};
}

template <std::size_t N>
std::uint32_t walk(Reassembly<N>& both, std::size_t depth) {
  if (depth == 0) return 1;
  std::uint32_t sequences = 0;
  const auto before = copies(members(both.processor));
  const auto model_before = both.model;
  for (std::uint8_t i = 0; i < 12; ++i) {
    both.process(letter(i));
    both.compare_lines();
    sequences += walk(both, depth - 1);
    members(both.processor) = before;
    both.model = model_before;
  }
  return sequences;
}

TYPED_TEST(EachSize, PutsEverySequenceOfTwelveFramesTogetherAsTheModelDoes) {
  Reassembly<TypeParam::value> both(0x10);
  const std::size_t depth = from_environment("KELTIPC_EXHAUSTIVE_DEPTH", 5);
  std::cout << walk(both, depth) << " sequences of " << depth << " frames\n";
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
