#include "ipc/queue_port_reader.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "support/frames.h"
#include "support/system_calls.h"

namespace ecu::vorn::ipc {
namespace {

using test::Transcript;
using testing::ElementsAre;

struct NotingConsumer : IDataConsumer<IpcSignal> {
  NotingConsumer(Transcript& notes, std::function<void()>& action) : happened(notes), meanwhile(action) {}
  ~NotingConsumer() override { happened.emplace_back("gone"); }
  void consume(IpcSignal&& signal) override {
    happened.push_back("consume " + test::printed(signal));
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
    calls.deliver(test::raw_bytes(test::frame_of<N>(word, total_size, payload)));
  }
  void deliver_start(std::uint32_t id = 0x10) { deliver(id, 0, std::string("\x1f\0\0\0\0\0\0\0", 8)); }
  void open() { ASSERT_TRUE(reader.open("/dev/rx")); }
  Transcript receive() {
    happened.clear();
    reader.receive_data();
    return happened;
  }
  Transcript consumed() {
    const Transcript all = receive();
    Transcript signals;
    std::copy_if(all.begin(), all.end(), std::back_inserter(signals), [](auto& note) { return note[0] == 'c'; });
    return signals;
  }

  Transcript happened;
  test::RecordedLog log{happened, "ipc.queuereader"};
  test::SystemCalls calls{happened};
  std::function<void()> during_consume;
  QueuePortReader<N> reader{consumer(), 0x10};
};

constexpr auto start = "DEBUG Start receiving data (stop: FALSE frame_start_id: 10) ";
constexpr auto start_stopped = "DEBUG Start receiving data (stop: TRUE frame_start_id: 10) ";
constexpr auto poll = "poll(1000:1, 1, 300)";
constexpr auto read = "read(1000, 32)";
constexpr auto not_yet = "DEBUG No signal available yet!";
constexpr auto timeout = "DEBUG Timeout while reading, will retry until stopped ...! ";
constexpr auto stopping = "INFO Stop reading set, finish/end reader!";
constexpr auto failed = "ERROR Error while reading the queue";

TYPED_TEST_SUITE(AReader, test::PayloadSizes, );

TYPED_TEST(AReader, HandsOverSignalsAndReportsEachQuietPeriodOnce) {
  this->open();
  constexpr std::size_t n = TestFixture::N;
  const std::string sized_read = "read(1000, " + std::to_string(n + 8) + ")";
  std::string bytes;
  for (std::size_t i = 0; i < n; ++i) bytes += "61 ";
  this->deliver_start();
  this->deliver(0x30000005, n + 1, std::string(n, 'a'));
  this->deliver(0x30000005, n + 1, "b");
  for (int i = 0; i < 2; ++i) this->calls.quiet();
  this->deliver_start();
  this->calls.quiet([this] { this->reader.stop(); });
  EXPECT_THAT(
      this->receive(),
      ElementsAre(start, poll, sized_read, not_yet, poll, sized_read, not_yet, poll, sized_read,
                  "DEBUG Consume signal: 5", "consume 05: 03, 1f { " + bytes + "62 }", poll, timeout, "on_timeout",
                  poll, poll, sized_read, not_yet, poll, timeout, "on_timeout", stopping, "on_finish"));
  EXPECT_THAT(this->receive(), ElementsAre(start, poll, failed)) << "the request was cleared";
}

using AReaderOf32ByteFrames = AReader<test::PayloadSize<24>>;

TEST_F(AReaderOf32ByteFrames, WithoutADeviceReturnsAtOnceAndNeverCallsTheConsumer) {
  EXPECT_THAT(receive(), ElementsAre(start, "ERROR The rx queue is not open, unable to read IPC data."));
}

TEST_F(AReaderOf32ByteFrames, KeepsAStopRequestUntilAQuietPeriod) {
  open();
  reader.stop();
  EXPECT_THAT(receive(), ElementsAre(start_stopped, poll, failed));
  for (int i = 0; i < 2; ++i) deliver_start();
  calls.quiet();
  EXPECT_THAT(receive(), ElementsAre(start_stopped, poll, read, not_yet, poll, read, not_yet, poll, timeout,
                                     "on_timeout", stopping, "on_finish"));
}

TEST_F(AReaderOf32ByteFrames, HandsTheOldBytesOnWhereAReadFailsOrIsShort) {
  open();
  calls.deliver("");
  deliver_start();
  deliver(5, 1, "a");
  calls.deliver("");
  calls.deliver(test::raw_bytes(std::uint32_t{6}));
  EXPECT_THAT(consumed(),
              ElementsAre("consume 05: 00, 1f { 61 }", "consume 05: 00, 1f { 61 }", "consume 06: 00, 1f { 61 }"));
}

TEST_F(AReaderOf32ByteFrames, ReopenedInsideConsumeReadsFromTheNewDescriptorButPollsTheOld) {
  open();
  during_consume = [this] { open(); };
  deliver_start();
  deliver(5, 1, "a");
  deliver_start();
  const auto all = receive();
  EXPECT_EQ(Transcript(all.end() - 5, all.end()), (Transcript{poll, "read(1001, 32)", not_yet, poll, failed}));
  EXPECT_EQ(calls.open_descriptors, std::set<int>{1001});
}

TEST_F(AReaderOf32ByteFrames, LetsTheConsumersExceptionThroughAndLosesWhatIsHalfReceived) {
  open();
  during_consume = [] { throw std::runtime_error("enough"); };
  deliver_start();
  deliver(5, 1, "a");
  EXPECT_THROW(reader.receive_data(), std::runtime_error);
  deliver(5, 1, "a");
  EXPECT_THAT(consumed(), ElementsAre()) << "a new run waits for a sampling frame of its own";
}

TEST_F(AReaderOf32ByteFrames, TakesANewFrameStartIdAtItsNextRun) {
  open();
  calls.quiet([this] { reader.set_frame_start_id(0xAB); });
  for (const std::uint32_t id : {0x10U, 0xABU}) {
    deliver_start(id);
    deliver(5, 1, "a");
    EXPECT_THAT(consumed(), ElementsAre("consume 05: 00, 1f { 61 }"));
  }
  EXPECT_THAT(happened[0], testing::HasSubstr("frame_start_id: ab) "));
}

TEST_F(AReaderOf32ByteFrames, OwnsItsConsumerAndClosesItsPortFirst) {
  {
    QueuePortReader<24> other(consumer());
    ASSERT_TRUE(other.open("/dev/rx"));
    happened.clear();
    other.set_consumer(consumer());
    EXPECT_THAT(happened, ElementsAre("gone"));
  }
  EXPECT_THAT(happened, ElementsAre("gone", "close(1000)", "gone"));
}

}  // namespace
}  // namespace ecu::vorn::ipc
