#include "ipc/signal_processor.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>
#include <tuple>

#include "support/frames.h"
#include "support/reassembly_model.h"

namespace ecu::vorn::ipc {
namespace {

using test::Transcript;

struct Sent {
  std::uint32_t word;
  std::size_t total_size;
  const char* payload;
};

/// As the reader does it: a signal is taken as soon as it is complete.
Transcript signals_and_warnings(const std::vector<Sent>& frames) {
  Transcript happened;
  const test::RecordedLog log(happened, "ipc.signalprocessor", 5);
  SignalProcessor<8> processor(0x10);
  for (const Sent& sent : frames) {
    processor.process(test::frame_of<8>(sent.word, sent.total_size, sent.payload));
    if (processor.get_state() == 3) happened.push_back(test::printed(processor.take().value()));
  }
  return happened;
}

TEST(Reassembly, FollowsItsRulesInEveryCornerCase) {
  const std::string unfinished = "WARNING Signal was not received completely, received new sampling frame. ";
  const Sent start{0x10, 0, "\x1f\0\0\0\0\0\0"};
  const struct {
    const char* what;
    std::vector<Sent> frames;
    Transcript expected;
  } cases[] = {
      {"dropped before a sampling frame", {{5, 1, "a"}, start, {6, 1, "b"}}, {"06: 00, 1f { 62 }"}},
      {"the last frame's tail is not read",
       {start, {5, 9, "aaaaaaaa"}, {0x30000005, 9, "bstale"}},
       {"05: 03, 1f { 61 61 61 61 61 61 61 61 62 }"}},
      {"an empty signal", {start, {5, 0, "a"}}, {"05: 00, 1f { }"}},
      {"a sampling frame throws away",
       {start, {5, 9, "aaaaaaaa"}, start, {5, 1, "b"}},
       {unfinished + "Disregard signal: 0x5", "05: 00, 1f { 62 }"}},
      {"a signal before a sampling frame is named even if none is held",
       {start, start},
       {unfinished + "Disregard signal: 0x0"}},
      {"another signal's bytes are put behind",
       {start, {0x1a, 16, "aaaaaaaa"}, {6, 16, "bbbbbbbb"}},
       {"ERROR New signal indicated; current signal 1a will be disregarded",
        "06: 00, 1f { 61 61 61 61 61 61 61 61 62 62 62 62 62 62 62 62 }"}},
      {"more held than expected: whole frames until the counts meet",
       {start, {5, 16, "aaaaaaaa"}, {5, 7, "bbbbbbbb"}, {5, 17, "c"}},
       {"05: 00, 1f { 61 61 61 61 61 61 61 61 62 62 62 62 62 62 62 62 63 }"}},
  };
  for (const auto& one : cases) EXPECT_EQ(signals_and_warnings(one.frames), one.expected) << one.what;
}

TEST(Reassembly, HandsOutAnEmptySignalWhenTakenTwice) {
  SignalProcessor<8> processor(0);
  processor.process(test::frame_of<8>(0, 0, "\x1f\0\0\0\0\0\0"));
  processor.process(test::frame_of<8>(5, 1, "a"));
  EXPECT_EQ(test::printed(processor.take().value()), "05: 00, 1f { 61 }");
  EXPECT_EQ(test::printed(processor.take().value()), "00: 00, 1f { }");
}

bool same(const IpcSignal& a, const IpcSignal& b) {
  return std::tie(a.signal_id, a.status, a.sampling_frame, a.data) ==
         std::tie(b.signal_id, b.status, b.sampling_frame, b.data);
}

template <typename Size>
class RandomFrames : public testing::Test {};
TYPED_TEST_SUITE(RandomFrames, test::PayloadSizes, );

/// Every other sequence at log level 5, where no DEBUG line may come.
TYPED_TEST(RandomFrames, GiveWhatTheModelGives) {
  constexpr std::size_t N = TypeParam::value;
  constexpr std::uint32_t ids[] = {0, 5, 6, 0x10, 0xFFFFFFF};
  constexpr std::size_t totals[] = {0, 1, N - 1, N, N, N + 1, 2 * N, 2 * N + 3, 65535};
  std::mt19937 engine(N);
  const auto random = [&engine](std::size_t below) { return static_cast<std::uint32_t>(engine() % below); };
  const auto one_of = [&random](const auto& values) { return values[random(std::size(values))]; };
  std::map<char, int> seen;  // by the first letter: Debug, Error, Warning
  signal_t_dyn<N> frame{};
  for (int sequence = 0; sequence < 20'000; ++sequence) {
    const bool verbose = sequence % 2 == 0;
    const std::uint32_t start_id = one_of(ids);
    Transcript happened;
    const test::RecordedLog log(happened, "ipc.signalprocessor", verbose ? 7 : 5);
    SignalProcessor<N> processor(start_id);
    test::ReassemblyModel<N> model(start_id, verbose);
    for (auto steps = random(16); steps > 0; --steps) {
      frame.signal_id = one_of(ids) | random(16) << 28U;
      frame.total_size = static_cast<std::uint16_t>(one_of(totals));
      const std::uint64_t fill = engine();
      for (const std::size_t at : {std::size_t{0}, N - 8}) std::memcpy(frame.data + at, &fill, sizeof fill);
      if (random(4) == 0) frame.signal_id = start_id;
      model.process(frame);
      processor.process(signal_t_dyn<N>(frame));
      ASSERT_EQ(processor.get_state(), model.state());
      if (random(8) != 0 && (model.state() == 3 || random(8) == 0)) {
        const auto taken = processor.take(), expected = model.take();
        ASSERT_EQ(taken.has_value(), expected.has_value());
        if (!taken) continue;
        ASSERT_TRUE(same(*taken, *expected)) << test::printed(*taken) << "\nnot " << test::printed(*expected);
        ++seen['s'];
      }
    }
    ASSERT_EQ(happened, model.log()) << "sequence " << sequence;
    for (const auto& line : happened) ++seen[line[0]];
  }
  EXPECT_TRUE(seen['D'] > 20'000 && seen['E'] > 5'000 && seen['W'] > 5'000 && seen['s'] > 10'000)
      << "the sequences reach too little: " << testing::PrintToString(seen);
}

}  // namespace
}  // namespace ecu::vorn::ipc
