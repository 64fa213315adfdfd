#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "ipc/queue_port_reader.h"
#include "logging/logging.h"
#include "support/system_calls.h"

// Worth most under ThreadSanitizer, which sees a race whether or not it does harm.
namespace ecu::vorn::ipc::test {
namespace {

class FinishCounter : public IDataConsumer<IpcSignal> {
 public:
  explicit FinishCounter(std::atomic<int>& finishes) : count(finishes) {}
  void consume(IpcSignal&& /*signal*/) override {}
  void on_finish() override { ++count; }

 private:
  std::atomic<int>& count;
};

TEST(AReaderOnAQuietPort, IsStartedAndStoppedTenThousandTimes) {
  constexpr int rounds = 10'000;
  Transcript calls;
  SystemCalls system(calls);
  system.silent = true;
  std::atomic<int> finishes{0};
  QueuePortReader<8> reader(std::make_unique<FinishCounter>(finishes));
  ASSERT_TRUE(reader.open("/dev/rx"));
  system.fault = [](const char* /*poll*/, long& result) {
    result = 0;
    return true;
  };
  logging::set_log_level(5);
  std::thread receiving([&] {
    for (int round = 0; round < rounds; ++round) reader.receive_data();
  });
  while (finishes < rounds) {
    reader.stop();
    std::this_thread::yield();
  }
  receiving.join();
  EXPECT_EQ(finishes, rounds);
  system.fault = {};
}

/// What a sink may do at its worst. Counts the lines that it took.
void take_line(std::atomic<int>& taken, const std::string& text) {
  const auto log = logging::module("sink");
  logging::DEBUG << log << "inside a sink";
  logging::DEBUG.do_flush();
  if (++taken % 7 == 0) throw std::runtime_error(text);
}

TEST(EightThreadsThatLog, GoOnWhileLevelSinkAndModulesChange) {
  constexpr int lines = 2'000;
  const auto log = logging::module("races");
  std::atomic<int> taken{0};
  std::atomic<int> working{8};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int line = 0; line < lines; ++line) {
        logging::INFO << log << "line " << std::hex << line << std::dec;
        logging::INFO.do_flush();
        logging::WARNING << log << line;
        logging::WARNING.do_flush();
      }
      --working;
    });
  }
  while (working > 0) {
    logging::set_sink(
        [&](int /*level*/, const std::string& /*module*/, const std::string& text) { take_line(taken, text); });
    logging::set_log_level(5 + taken % 2);
    log->enabled = !log->enabled;
    std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
  logging::set_sink({});
  EXPECT_GT(taken, 0);
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
