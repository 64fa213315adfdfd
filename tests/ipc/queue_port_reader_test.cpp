#include "ipc/queue_port_reader.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "support/frames.h"
#include "support/system_calls.h"

namespace ecu::vorn::ipc::test {
namespace {

struct NotingConsumer : IDataConsumer<IpcSignal> {
  NotingConsumer(Transcript& notes, std::function<void()>& action) : happened(notes), meanwhile(action) {}
  ~NotingConsumer() override { happened.emplace_back("gone"); }
  void consume(IpcSignal&& signal) override {
    happened.push_back(printed(signal));
    if (meanwhile) meanwhile();
  }
  void on_finish() override { happened.emplace_back("on_finish"); }
  void on_timeout() override { happened.emplace_back("on_timeout"); }
  Transcript& happened;
  std::function<void()>& meanwhile;
};

struct AReader : testing::Test {
  std::unique_ptr<NotingConsumer> consumer() { return std::make_unique<NotingConsumer>(happened, during_consume); }
  void deliver(std::uint32_t word, std::size_t total_size, const std::string& payload) {
    calls.deliver(raw_bytes(frame_of<24>(word, total_size, payload)));
  }

  /// What comes to the port, a letter each: (s)ampling frame, a signal of one (a), the two frames of a (l)ong one,
  /// (h)alf a frame, a hang-(u)p, (q)uiet periods, and one in which the reader is told to stop (Q).
  std::string receive(const std::string& script) {
    for (const char c : script) {
      if (c == 's') deliver(0x10, 0, std::string("\x1f\0\0\0\0\0\0\0", 8));
      if (c == 'a' || c == 'l') deliver(0x30000005, c == 'a' ? 1 : 25, std::string(24, 'a'));
      if (c == 'l') deliver(0x30000005, 25, "b");
      if (c == 'h') calls.deliver(raw_bytes(std::uint32_t{6}));
      if (c == 'u') calls.deliver("");
      if (c == 'q') calls.quiet();
      if (c == 'Q') calls.quiet([this] { reader.stop(); });
    }
    happened.clear();
    reader.receive_data();
    return all_that_happened();
  }

  std::string all_that_happened() const {
    std::string all;
    for (const std::string& one : happened) all += one + "; ";
    return all;
  }

  Transcript happened;
  RecordedLog log{happened, "ipc.queuereader"};
  SystemCalls calls{happened};
  std::function<void()> during_consume;
  QueuePortReader<24> reader{consumer(), 0x10};
};

std::string start(const std::string& stop, const std::string& id = "10") {
  return "DEBUG Start receiving data (stop: " + stop + " frame_start_id: " + id + ") ; ";
}
const std::string poll = "poll(1000:1, 1, 300); ", frame = poll + "read(1000, 32); ",
                  nothing_yet = frame + "DEBUG No signal available yet!; ",
                  a = frame + "DEBUG Consume signal: 5; 05: 03, 1f { 61 }; ",
                  quiet = poll + "DEBUG Timeout while reading, will retry until stopped ...! ; on_timeout; ",
                  stopped = "INFO Stop reading set, finish/end reader!; on_finish; ",
                  failed = poll + "ERROR Error while reading the queue; ";

TEST_F(AReader, HandsOverSignalsAndReportsEachQuietPeriodOnceAndStopsInOne) {
  std::string bytes;
  for (int i = 0; i < 24; ++i) bytes += "61 ";
  ASSERT_TRUE(reader.open("/dev/rx"));
  EXPECT_EQ(receive("slqqsQ"), start("FALSE") + nothing_yet + nothing_yet + frame + "DEBUG Consume signal: 5; " +
                                   "05: 03, 1f { " + bytes + "62 }; " + quiet + poll + nothing_yet + quiet + stopped);
  EXPECT_EQ(receive(""), start("FALSE") + failed) << "the request was cleared";
}

TEST_F(AReader, KeepsAStopRequestUntilAQuietPeriod) {
  EXPECT_EQ(receive(""), start("FALSE") + "ERROR The rx queue is not open, unable to read IPC data.; ");
  ASSERT_TRUE(reader.open("/dev/rx"));
  reader.stop();
  EXPECT_EQ(receive(""), start("TRUE") + failed);
  EXPECT_EQ(receive("ssq"), start("TRUE") + nothing_yet + nothing_yet + quiet + stopped);
}

TEST_F(AReader, HandsTheOldBytesOnWhereAReadFailsOrIsShort) {
  ASSERT_TRUE(reader.open("/dev/rx"));
  EXPECT_EQ(receive("usauh"), start("FALSE") + nothing_yet + nothing_yet + a + a + frame +
                                  "DEBUG Consume signal: 6; 06: 00, 1f { 61 }; " + failed);
  reader.set_frame_start_id(0);
  EXPECT_THAT(receive("ua"), testing::HasSubstr(nothing_yet + frame + "DEBUG Consume signal: 5; 05: 03, 0 { 61 }; "))
      << "the first has zeros to begin with";
}

TEST_F(AReader, ReopenedInsideConsumeReadsFromTheNewDescriptorButPollsTheOld) {
  ASSERT_TRUE(reader.open("/dev/rx"));
  during_consume = [this] { reader.open("/dev/rx"); };
  EXPECT_THAT(receive("sas"), testing::EndsWith(poll + "read(1001, 32); DEBUG No signal available yet!; " + failed));
  EXPECT_EQ(calls.open_descriptors, std::set<int>{1001});
}

TEST_F(AReader, LetsTheConsumersExceptionThroughAndBeginsItsNextRunAnewWithTheIdOfThatTime) {
  ASSERT_TRUE(reader.open("/dev/rx"));
  during_consume = [] { throw std::runtime_error("enough"); };
  EXPECT_THROW(receive("sa"), std::runtime_error);
  during_consume = {};
  EXPECT_EQ(receive("a"), start("FALSE") + nothing_yet + failed) << "what came before is gone";
  calls.quiet([this] { reader.set_frame_start_id(0xAB); });
  EXPECT_EQ(receive("sa"), start("FALSE") + quiet + nothing_yet + a + failed);
  EXPECT_EQ(receive("sa"), start("FALSE", "ab") + nothing_yet + nothing_yet + failed);
}

TEST_F(AReader, OwnsItsConsumerAndClosesItsPortFirst) {
  {
    QueuePortReader<24> other(consumer());
    ASSERT_TRUE(other.open("/dev/rx"));
    happened.clear();
    other.set_consumer(consumer());
    EXPECT_EQ(happened, Transcript{"gone"});
  }
  EXPECT_EQ(happened, (Transcript{"gone", "close(1000)", "gone"}));
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
