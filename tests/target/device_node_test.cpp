#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "ipc/utils.h"
#include "support/descriptors.h"
#include "support/recorded_log.h"
#include "support/soon.h"

namespace ecu::vorn::ipc::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

double seconds_since(steady_clock::time_point began) {
  return std::chrono::duration<double>(steady_clock::now() - began).count();
}

class InOrder : public IDataConsumer<IpcSignal> {
 public:
  explicit InOrder(std::atomic<std::uint32_t>& last_id) : last(last_id) {}
  void consume(IpcSignal&& signal) override { EXPECT_EQ(signal.signal_id, ++last); }

 private:
  std::atomic<std::uint32_t>& last;
};

/// A real character device, with a reader at work on it.
class DeviceNode : public testing::Test {
 protected:
  void SetUp() override {
    portsim = ::fork();
    if (portsim == 0) {
      ::execl(KELTIPC_PORTSIM, KELTIPC_PORTSIM, node, "--backend", "cuse", nullptr);
      ::_exit(127);
    }
    ASSERT_TRUE(soon([&] { return utils::is_char_dev(node); }));
    ASSERT_TRUE(reader.open(node) && writer.open(node));
    receiving = std::thread([&] { reader.receive_data(); });
    writer.transmit_data({0, 0, 0, std::vector<char>(8)});
  }
  void TearDown() override {
    stop();
    ::kill(portsim, SIGTERM);
    ::waitpid(portsim, nullptr, 0);
  }
  double stop() {
    const auto began = steady_clock::now();
    reader.stop();
    if (receiving.joinable()) receiving.join();
    return seconds_since(began);
  }
  void send(std::uint32_t id) { ASSERT_TRUE(writer.transmit_data({id, 0, 0, std::vector<char>(1 + id % 40)})); }

  const char* node = "/dev/qport-test";
  pid_t portsim = -1;
  std::atomic<std::uint32_t> came{0};
  QueuePortReader<8> reader{std::make_unique<InOrder>(came)};
  QueuePortWriter<8> writer;
  std::thread receiving;
};

TEST_F(DeviceNode, GoneAndBackFiftyTimesLosesNothingThatIsSentAfterAReopen) {
  constexpr std::uint32_t removals = 50;
  struct stat port {};
  ASSERT_EQ(::stat(node, &port), 0);
  const std::ptrdiff_t descriptors = open_descriptors();
  Transcript lines;
  {
    const RecordedLog log(lines, "ipc.queuewriter", 5);
    for (std::uint32_t id = 1; id <= 4 * removals; ++id) {
      if (id % 4 == 1) {
        ASSERT_EQ(::unlink(node), 0);
        ASSERT_EQ(::mknod(node, port.st_mode, port.st_rdev), 0);
      }
      send(id);
    }
  }
  EXPECT_TRUE(soon([&] { return came == 4 * removals; })) << came << " came";
  EXPECT_EQ(open_descriptors(), descriptors);
  const std::string gone = "ERROR The TX queue is no longer available! Will try to reopen the port.";
  EXPECT_EQ(std::count(lines.begin(), lines.end(), gone), removals);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "NOTICE Successfully reopened the TX queue"), removals);
  EXPECT_EQ(lines.size(), 2 * removals);
  ::unlink(node);
}

TEST_F(DeviceNode, StopsTheReaderOnceItIsQuietAndNotWhileItIsBusy) {
  constexpr double busy = 1.5;
  const auto began = steady_clock::now();
  std::thread feeding([&] {
    for (std::uint32_t id = 1; seconds_since(began) < busy; ++id) {
      send(id);
      std::this_thread::sleep_for(milliseconds(20));
    }
  });
  ASSERT_TRUE(soon([&] { return came > 3; }));
  stop();
  EXPECT_GT(seconds_since(began), busy);
  feeding.join();

  receiving = std::thread([&] { reader.receive_data(); });
  std::this_thread::sleep_for(milliseconds(450));
  EXPECT_LT(stop(), 0.4);
}

TEST(ALateDeviceNode, IsOpenedAtTheNextAttempt) {
  const std::string late = "/dev/late-port";
  Transcript lines;
  const RecordedLog log(lines, "ipc.queuereader", 6);
  QueuePortReader<8> reader(nullptr);
  const auto began = steady_clock::now();
  std::thread maker([&] {
    std::this_thread::sleep_until(began + milliseconds(2800));
    ::mknod(late.c_str(), S_IFCHR | 0600, ::makedev(1, 3));
  });
  EXPECT_TRUE(reader.open(late));
  EXPECT_GE(seconds_since(began), 3.0);
  maker.join();
  ::unlink(late.c_str());
  EXPECT_THAT(lines, testing::ElementsAre("INFO RX queue '" + late + "' opened (retries: 6)"));
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
