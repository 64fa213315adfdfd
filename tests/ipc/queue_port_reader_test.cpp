#include "ipc/queue_port_reader.h"

#include <gmock/gmock.h>

#include <map>
#include <stdexcept>

#include "support/frames.h"
#include "support/system_calls.h"

namespace ecu::vorn::ipc::test {
namespace {

struct NotingConsumer : IDataConsumer<IpcSignal> {
  NotingConsumer(Transcript& notes, std::function<void()>& action) : happened(notes), meanwhile(action) {}
  ~NotingConsumer() override { happened.emplace_back("gone"); }
  void consume(IpcSignal&& signal) override {
    happened.push_back("(" + printed(signal) + ")");
    if (meanwhile) meanwhile();
  }
  void on_finish() override { happened.emplace_back("on_finish"); }
  void on_timeout() override { happened.emplace_back("on_timeout"); }
  Transcript& happened;
  std::function<void()>& meanwhile;
};

template <typename Size>
class AReader : public testing::Test {
 protected:
  static constexpr std::size_t N = Size::value;

  auto consumer() { return std::make_unique<NotingConsumer>(happened, during_consume); }
  void deliver(std::uint32_t word, std::size_t total_size, const std::string& payload) {
    calls.deliver(raw_bytes(frame_of<N>(word, total_size, payload)));
  }

  /// What comes to the port, a letter each: (s)ampling frame, a signal of one (a), (h)alf a frame, a hang-(u)p,
  /// (q)uiet periods, and one in which the reader is told to stop (Q).
  std::string receive(const std::string& script) {
    for (const char c : script) {
      if (c == 's') deliver(0x10, 0, std::string("\x1f\0\0\0\0\0\0\0", 8));
      if (c == 'a') deliver(5, 1, "a");
      if (c == 'h') calls.deliver(raw_bytes(std::uint32_t{6}));
      if (c == 'u') calls.deliver("");
      if (c == 'q') calls.quiet();
      if (c == 'Q') calls.quiet([this] { reader.stop(); });
    }
    happened.clear();
    reader.receive_data();
    return shortened();
  }

  std::string shortened() const {
    std::map<std::string, std::string> words = {
        {"DEBUG Start receiving data (stop: FALSE frame_start_id: 10) ", "start"},
        {"DEBUG Start receiving data (stop: TRUE frame_start_id: 10) ", "start-stopped"},
        {"poll(1000:1, 1, 300)", "poll"},
        {"read(1000, " + std::to_string(N + 8) + ")", "read"},
        {"DEBUG No signal available yet!", "not-yet"},
        {"DEBUG Consume signal: 5", "consume"},
        {"DEBUG Timeout while reading, will retry until stopped ...! ", "timeout"},
        {"INFO Stop reading set, finish/end reader!", "stopping"},
        {"ERROR Error while reading the queue", "failed"}};
    std::string all;
    for (const auto& line : happened) all += (all.empty() ? "" : " ") + (words.count(line) ? words[line] : line);
    return all;
  }

  Transcript happened;
  RecordedLog log{happened, "ipc.queuereader"};
  SystemCalls calls{happened};
  std::function<void()> during_consume;
  QueuePortReader<N> reader{consumer(), 0x10};
};
TYPED_TEST_SUITE(AReader, PayloadSizes, );

TYPED_TEST(AReader, HandsOverSignalsAndReportsEachQuietPeriodOnceAndStopsInOne) {
  constexpr std::size_t n = TestFixture::N;
  std::string bytes;
  for (std::size_t i = 0; i < n; ++i) bytes += "61 ";
  ASSERT_TRUE(this->reader.open("/dev/rx"));
  this->deliver(0x10, 0, std::string("\x1f\0\0\0\0\0\0\0", 8));
  this->deliver(0x30000005, n + 1, std::string(n, 'a'));
  this->deliver(0x30000005, n + 1, "b");
  EXPECT_EQ(this->receive("qqsQ"),
            "start poll read not-yet poll read not-yet poll read consume (05: 03, 1f { " + bytes +
                "62 }) poll timeout on_timeout poll poll read not-yet poll timeout on_timeout stopping on_finish");
  EXPECT_EQ(this->receive(""), "start poll failed") << "the request was cleared";
}

using AReaderOf32ByteFrames = AReader<PayloadSize<24>>;

TEST_F(AReaderOf32ByteFrames, KeepsAStopRequestUntilAQuietPeriod) {
  EXPECT_EQ(receive(""), "start ERROR The rx queue is not open, unable to read IPC data.");
  ASSERT_TRUE(reader.open("/dev/rx"));
  reader.stop();
  EXPECT_EQ(receive(""), "start-stopped poll failed");
  EXPECT_EQ(receive("ssq"),
            "start-stopped poll read not-yet poll read not-yet poll timeout on_timeout stopping on_finish");
}

TEST_F(AReaderOf32ByteFrames, HandsTheOldBytesOnWhereAReadFailsOrIsShort) {
  ASSERT_TRUE(reader.open("/dev/rx"));
  EXPECT_EQ(receive("usauh"),
            "start poll read not-yet poll read not-yet poll read consume (05: 00, 1f { 61 }) "
            "poll read consume (05: 00, 1f { 61 }) "
            "poll read DEBUG Consume signal: 6 (06: 00, 1f { 61 }) poll failed");
}

TEST_F(AReaderOf32ByteFrames, ReopenedInsideConsumeReadsFromTheNewDescriptorButPollsTheOld) {
  ASSERT_TRUE(reader.open("/dev/rx"));
  during_consume = [this] { reader.open("/dev/rx"); };
  EXPECT_THAT(receive("sas"), testing::EndsWith(" poll read(1001, 32) not-yet poll failed"));
  EXPECT_EQ(calls.open_descriptors, std::set<int>{1001});
}

TEST_F(AReaderOf32ByteFrames, LetsTheConsumersExceptionThroughAndLosesWhatIsHalfReceived) {
  ASSERT_TRUE(reader.open("/dev/rx"));
  during_consume = [] { throw std::runtime_error("enough"); };
  EXPECT_THROW(receive("sa"), std::runtime_error);
  EXPECT_EQ(receive("a"), "start poll read not-yet poll failed") << "a new run waits for a sampling frame of its own";
}

TEST_F(AReaderOf32ByteFrames, TakesANewFrameStartIdAtItsNextRun) {
  ASSERT_TRUE(reader.open("/dev/rx"));
  calls.quiet([this] { reader.set_frame_start_id(0xAB); });
  EXPECT_THAT(receive("sa"), testing::HasSubstr("consume"));
  EXPECT_THAT(receive("sa"), testing::AllOf(testing::HasSubstr("frame_start_id: ab) "),
                                            testing::Not(testing::HasSubstr("consume"))));
}

TEST_F(AReaderOf32ByteFrames, OwnsItsConsumerAndClosesItsPortFirst) {
  {
    QueuePortReader<24> other(consumer());
    ASSERT_TRUE(other.open("/dev/rx"));
    happened.clear();
    other.set_consumer(consumer());
    EXPECT_EQ(shortened(), "gone");
  }
  EXPECT_EQ(shortened(), "gone close(1000) gone");
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
