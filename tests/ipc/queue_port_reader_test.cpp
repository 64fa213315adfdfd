#include "ipc/queue_port_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <stdexcept>

#include "support/interpose.h"

namespace ecu::vorn::ipc::test {
namespace {

struct NotingConsumer : IDataConsumer<IpcSignal> {
  NotingConsumer(Transcript& notes, std::function<void()>& action) : happened(notes), meanwhile(action) {}
  ~NotingConsumer() override { happened.emplace_back("destroyed"); }
  void consume(IpcSignal&& signal) override {
    std::ostringstream printed;
    printed << signal;
    happened.push_back(printed.str());
    if (meanwhile) meanwhile();
  }
  void on_finish() override { happened.emplace_back("on_finish"); }
  void on_timeout() override { happened.emplace_back("on_timeout"); }
  Transcript& happened;
  std::function<void()>& meanwhile;
};

/// Notes log lines from INFO on and calls of the consumer.
struct AReader : testing::Test {
  AReader() { reader.open("/dev/rx"); }
  std::unique_ptr<NotingConsumer> consumer() { return std::make_unique<NotingConsumer>(happened, during_consume); }

  // What comes to the port, in this order.
  void frame(std::uint32_t word, std::size_t total_size, const std::string& payload) {
    signal_t_dyn<24> next{word, 0, static_cast<std::uint16_t>(total_size), {}};
    payload.copy(next.data, 24);
    calls.frame({reinterpret_cast<const char*>(&next), sizeof next});
  }
  void sampling_frame(char stamp) { frame(0x10, 0, {stamp, 0, 0, 0, 0, 0, 0, 0}); }
  void signal(std::uint32_t word, const std::string& data) { frame(word, data.size(), data); }
  void short_frame(std::uint32_t word) { calls.frame({reinterpret_cast<const char*>(&word), sizeof word}); }
  void failed_read() { calls.hang_up(); }
  void quiet() { calls.quiet(); }
  void quiet_and_stop() {
    calls.quiet([this] { reader.stop(); });
  }

  /// Until poll fails, unless something else ends it.
  std::string receive() {
    happened.clear();
    reader.receive_data();
    return text(happened);
  }

  Transcript happened;
  RecordedLog log{happened, "ipc.queuereader", 6};
  SystemCalls calls;
  std::function<void()> during_consume;
  QueuePortReader<24> reader{consumer(), 0x10};
};

const std::string poll_failed = "ERROR Error while reading the queue\n",
                  stopped = "INFO Stop reading set, finish/end reader!\non_finish\n";

TEST_F(AReader, HandsOverASignalOfTwoFrames) {
  sampling_frame('\x1f');
  frame(0x30000005, 25, std::string(24, 'a'));
  frame(0x30000005, 25, "b");
  std::string bytes;
  for (int i = 0; i < 24; ++i) bytes += "61 ";
  EXPECT_EQ(receive(), "05: 03, 1f { " + bytes + "62 }\n" + poll_failed);
}

TEST_F(AReader, LogsEachStepAndWaits300MillisecondsAtATime) {
  logging::set_log_level(7);
  calls.notes = &happened;
  sampling_frame(1);
  signal(0xAB, "a");
  quiet_and_stop();
  EXPECT_EQ(receive(), R"(DEBUG Start receiving data (stop: FALSE frame_start_id: 10) 
poll(1000:1, 1, 300)
read(1000, 32)
DEBUG No signal available yet!
poll(1000:1, 1, 300)
read(1000, 32)
DEBUG Consume signal: 171
ab: 00, 1 { 61 }
poll(1000:1, 1, 300)
DEBUG Timeout while reading, will retry until stopped ...! 
on_timeout
)" + stopped);
}

TEST_F(AReader, ReportsEachQuietPeriodOnce) {
  quiet();
  quiet();
  sampling_frame(1);
  quiet();
  EXPECT_EQ(receive(), "on_timeout\non_timeout\n" + poll_failed);
}

TEST_F(AReader, StopsAtTheNextQuietSlice) {
  reader.stop();
  sampling_frame(1);
  signal(5, "a");
  quiet();
  signal(5, "b");
  EXPECT_EQ(receive(), "05: 00, 1 { 61 }\non_timeout\n" + stopped);
}

TEST_F(AReader, StopsOncePerRequest) {
  quiet_and_stop();
  receive();
  quiet();
  EXPECT_EQ(receive(), "on_timeout\n" + poll_failed);
}

TEST_F(AReader, KeepsAStopRequestWhenPollFails) {
  logging::set_log_level(7);
  reader.stop();
  receive();
  EXPECT_EQ(receive(), "DEBUG Start receiving data (stop: TRUE frame_start_id: 10) \n" + poll_failed);
}

TEST_F(AReader, KeepsThePreviousFramesBytesBehindAShortRead) {
  sampling_frame(1);
  signal(5, "a");
  short_frame(6);
  EXPECT_EQ(receive(), "05: 00, 1 { 61 }\n06: 00, 1 { 61 }\n" + poll_failed);
}

TEST_F(AReader, TakesZerosWhenTheFirstReadFails) {
  reader.set_frame_start_id(0);
  failed_read();
  signal(5, "a");
  EXPECT_EQ(receive(), "05: 00, 0 { 61 }\n" + poll_failed) << "zeros open a sampling frame with the stamp 0";
}

TEST_F(AReader, PollsTheOldDescriptorAfterAReopenInsideConsume) {
  calls.notes = &happened;
  sampling_frame(1);
  signal(5, "a");
  signal(5, "b");
  during_consume = [this] {
    during_consume = {};
    reader.open("/dev/rx");
    happened.clear();
  };
  EXPECT_EQ(receive(),
            "poll(1000:1, 1, 300)\nread(1001, 32)\n05: 00, 1 { 62 }\npoll(1000:1, 1, 300)\n" + poll_failed);
}

TEST_F(AReader, LetsTheConsumersExceptionThrough) {
  sampling_frame(1);
  signal(5, "a");
  during_consume = [] { throw std::runtime_error("enough"); };
  EXPECT_THROW(receive(), std::runtime_error);
}

TEST_F(AReader, TakesANewFrameStartIdAtItsNextRun) {
  calls.quiet([this] { reader.set_frame_start_id(0xAB); });
  sampling_frame(1);
  signal(5, "a");
  EXPECT_EQ(receive(), "on_timeout\n05: 00, 1 { 61 }\n" + poll_failed);
  sampling_frame(1);
  signal(5, "a");
  EXPECT_EQ(receive(), poll_failed);
}

TEST_F(AReader, DestroysTheConsumerThatIsReplaced) {
  happened.clear();
  reader.set_consumer(consumer());
  EXPECT_EQ(happened, Transcript{"destroyed"});
}

TEST(AReaderWithoutAPort, ReturnsAtOnce) {
  Transcript happened;
  const RecordedLog log(happened, "ipc.queuereader", 6);
  QueuePortReader<24>(nullptr).receive_data();
  EXPECT_EQ(happened, Transcript{"ERROR The rx queue is not open, unable to read IPC data."});
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
