#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/descriptors.h"
#include "support/system_calls.h"
#include "support/traffic.h"

// Worth most under ThreadSanitizer, which sees a race whether or not it does harm.
namespace ecu::vorn::ipc::test {
namespace {

struct APort : testing::Test {
  APort() { system.silent = true; }
  Transcript calls;
  SystemCalls system{calls};
};

TEST_F(APort, ThatIsQuietIsReadAndLeftTenThousandTimes) {
  std::uint32_t came = 0;
  QueuePortReader<8> reader(std::make_unique<TrafficChecker>(Traffic{}, came));
  ASSERT_TRUE(reader.open("/dev/rx"));
  int quiet = 0;
  system.fault = [&](const char* /*poll*/, long& result) {
    if (++quiet % 100 == 0) reader.stop();  // where the other thread is not let run
    return (result = 0) == 0;
  };
  logging::set_log_level(5);
  std::atomic<int> left{0};
  std::thread receiving([&] {
    for (; left < 10'000; ++left) reader.receive_data();
  });
  for (; left < 10'000; std::this_thread::yield()) reader.stop();
  receiving.join();
  system.fault = {};
}

/// None under sanitizers, which keep what was freed for a while.
std::size_t resident_pages() {
  std::size_t pages[2] = {};
#if !defined(KELTIPC_SANITIZED)
  std::ifstream("/proc/self/statm") >> pages[0] >> pages[1];
#endif
  return pages[1];
}

TEST_F(APort, BringsManySignalsWholeAndInOrderAndMemoryAndDescriptorsStayFlat) {
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, system.message_pair.data()), 0);
  const int descriptors = open_descriptors();
  std::size_t pages = 0;
  // As many as an ordinary run has time for; a release check asks for 10^7.
  const char* const asked = std::getenv("KELTIPC_SOAK_SIGNALS");
  const Traffic traffic{static_cast<std::uint32_t>(std::stoul(asked == nullptr ? "50000" : asked)), 1, 16};
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
      if (n == traffic.count / 10) pages = resident_pages();
    }
    reader.stop();
    receiving.join();
  }
  EXPECT_EQ(came, traffic.count);
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_LE(resident_pages(), pages + 256);
  for (const int end : system.message_pair) ::close(end);
}

TEST(EightThreadsThatLog, GoOnWhileLevelSinkAndModulesChange) {
  const auto log = logging::module("races");
  std::atomic<int> taken{0}, working{8};
  const auto sink = [&](int, const std::string&, const std::string& text) {
    logging::DEBUG << log << "inside a sink";
    logging::DEBUG.do_flush();
    if (++taken % 7 == 0) throw std::runtime_error(text);
  };
  logging::set_sink(sink);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int line = 0; line < 4'000; ++line) {
        auto& level = line % 2 == 0 ? logging::INFO : logging::WARNING;
        level << log << "line " << std::hex << line << std::dec;
        level.do_flush();
      }
      --working;
    });
  }
  for (; working > 0; std::this_thread::yield()) {
    logging::set_sink(sink);
    logging::set_log_level(5 + taken % 2);
    log->enabled = !log->enabled;
  }
  for (std::thread& thread : threads) thread.join();
  logging::set_sink({});
  EXPECT_GT(taken, 0);
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
