#include "ipc/queue_port_reader.h"

#include <sstream>

#include "support/interpose.h"

using namespace ecu::vorn::ipc;
using namespace ecu::vorn::ipc::test;

struct NotingConsumer : IDataConsumer<IpcSignal> {
  explicit NotingConsumer(Transcript& notes) : happened(notes) {}
  void consume(IpcSignal&& signal) override {
    std::ostringstream printed;
    printed << signal;
    happened.push_back(printed.str());
  }
  void on_finish() override { happened.emplace_back("on_finish"); }
  void on_timeout() override { happened.emplace_back("on_timeout"); }
  Transcript& happened;
};

/// Notes log lines from INFO on, and calls of the consumer.
struct AReader : testing::Test {
  AReader() {
    reader.set_consumer(std::make_unique<NotingConsumer>(happened));
    reader.set_frame_start_id(0x10);
    reader.open("/dev/null");
  }

  // What the reader gets from the port, in this order.
  void frame(std::uint32_t word, std::size_t total_size, const std::string& payload) {
    signal_t_dyn<24> next{word, 0, static_cast<std::uint16_t>(total_size), {}};
    payload.copy(next.data, 24);
    port.frame({reinterpret_cast<const char*>(&next), sizeof next});
  }
  void sampling_frame() { frame(0x10, 0, "\1"); }
  void signal(std::uint32_t word, const std::string& data) { frame(word, data.size(), data); }
  void short_frame(char id) { port.frame({id, 0, 0, 0}); }
  void quiet() { port.quiet(); }
  void quiet_and_stop() {
    port.quiet([this] { reader.stop(); });
  }

  /// Receives until poll fails or something else ends the loop. Returns what happened.
  std::string receive() {
    happened.clear();
    reader.receive_data();
    return text(happened);
  }

  Transcript happened;
  RecordedLog log{happened, "ipc.queuereader", 6};
  FakePort port;
  QueuePortReader<24> reader{nullptr};
};

const std::string poll_failed = "ERROR Error while reading the queue\n",
                  stopped = "INFO Stop reading set, finish/end reader!\non_finish\n";

TEST_F(AReader, ReadsOneFrameAfterEachPoll) {
  ecu::vorn::logging::set_log_level(7);
  port.notes = &happened;
  sampling_frame();
  signal(0x300000AB, "ab");
  quiet_and_stop();
  EXPECT_EQ(receive(), R"(DEBUG Start receiving data (stop: FALSE frame_start_id: 10) 
poll for input 300
read 32
DEBUG No signal available yet!
poll for input 300
read 32
DEBUG Consume signal: 171
ab: 03, 1 { 61 62 }
poll for input 300
DEBUG Timeout while reading, will retry until stopped ...! 
on_timeout
)" + stopped);
}

TEST_F(AReader, ReportsEachQuietPeriodOnce) {
  quiet();
  quiet();
  sampling_frame();
  quiet();
  EXPECT_EQ(receive(), "on_timeout\non_timeout\n" + poll_failed);
}

TEST_F(AReader, KeepsAStopRequestUntilAQuietSlice) {
  ecu::vorn::logging::set_log_level(7);
  reader.stop();
  EXPECT_EQ(receive(), "DEBUG Start receiving data (stop: TRUE frame_start_id: 10) \n" + poll_failed);
  ecu::vorn::logging::set_log_level(6);
  sampling_frame();
  signal(5, "a");
  quiet();
  EXPECT_EQ(receive(), "05: 00, 1 { 61 }\non_timeout\n" + stopped);
  quiet();
  EXPECT_EQ(receive(), "on_timeout\n" + poll_failed) << "one stop for each request";
}

TEST_F(AReader, KeepsThePreviousFramesBytesAfterAShortRead) {
  sampling_frame();
  signal(5, "a");
  short_frame(6);
  EXPECT_EQ(receive(), "05: 00, 1 { 61 }\n06: 00, 1 { 61 }\n" + poll_failed);
}

TEST_F(AReader, TakesZerosWhenItsFirstReadFails) {
  reader.set_frame_start_id(0);
  port.failed_read();
  signal(5, "a");
  EXPECT_EQ(receive(), "05: 00, 0 { 61 }\n" + poll_failed) << "zeros open a sampling frame with the stamp 0";
}
