#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <iomanip>
#include <sstream>
#include <thread>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/descriptors.h"
#include "support/interpose.h"
#include "support/traffic.h"

// Worth most under ThreadSanitizer, which sees a race whether or not it does harm.
namespace ecu::vorn::ipc::test {
namespace {

TEST(AWriterAndAReader, PassManySignalsWholeAndInOrder) {
  const char* const asked = std::getenv("KELTIPC_SOAK_SIGNALS");  // a release check asks for 10^7
  const Traffic traffic{static_cast<std::uint32_t>(std::stoul(asked == nullptr ? "50000" : asked)), 1, 16};
  SystemCalls calls;
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, calls.socket_pair.data()), 0);
  const int descriptors = open_descriptors();
  std::uint32_t came = 0;
  {
    QueuePortWriter<8> writer;
    QueuePortReader<8> reader(std::make_unique<TrafficChecker>(traffic, came));
    ASSERT_TRUE(writer.open("/dev/tx") && reader.open("/dev/rx"));
    std::thread receiving([&] { reader.receive_data(); });
    writer.transmit_data(sampling_frame_start());
    IpcSignal signal{};
    for (std::uint32_t n = 0; n < traffic.count; ++n) {
      traffic.make(n, signal);
      writer.transmit_data(signal);
    }
    reader.stop();
    receiving.join();
  }
  EXPECT_EQ(came, traffic.count);
  EXPECT_EQ(open_descriptors(), descriptors);
  for (const int end : calls.socket_pair) ::close(end);
}

/// Every second thread leaves its stream in hexadecimal, filled with stars.
void write_line(std::ostream& os, int thread, int i) {
  if (i == 0 && thread % 2 == 1) os << std::hex << std::setfill('*');
  os << thread << std::setw(6) << i;
}

TEST(EightThreads, LogWholeLinesInTheirOwnFormatWhileSinkAndLevelChange) {
  std::ostringstream expected[8];
  int taken[8] = {};
  std::atomic<int> wrong{0}, working{8};
  const auto check = [&](int, const std::string& module, const std::string& line) {
    const int t = std::stoi(module);
    expected[t].str("");
    write_line(expected[t], t, taken[t]++);
    if (expected[t].str() != line) ++wrong;
  };
  logging::set_sink(check);
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &working] {
      for (int i = 0; i < 2000; ++i) {
        write_line(logging::WARNING << logging::module(std::to_string(t)), t, i);
        logging::WARNING.do_flush();
      }
      --working;
    });
  }
  for (int i = 0; working > 0; ++i) {
    logging::set_sink(check);
    logging::set_log_level(i % 8);
    logging::module("0")->enabled = i % 2 == 0;
    std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
  logging::set_sink({});
  for (const int count : taken) EXPECT_EQ(count, 2000);
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
