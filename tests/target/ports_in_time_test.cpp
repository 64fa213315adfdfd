#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "ipc/queue_port_reader.h"
#include "support/recorded_log.h"

namespace ecu::vorn::ipc::test {
namespace {

using std::chrono::duration;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(ANodeThatAppearsLate, IsOpenedAtTheNextAttempt) {
  const std::string node = "/dev/late-port";
  Transcript lines;
  const RecordedLog log(lines, "ipc.queuereader", 6);
  QueuePortReader<8> reader(nullptr);
  const auto began = steady_clock::now();
  std::thread maker([&] {
    std::this_thread::sleep_until(began + milliseconds(2800));
    ::mknod(node.c_str(), S_IFCHR | 0600, ::makedev(1, 3));
  });
  EXPECT_TRUE(reader.open(node));
  const duration<double> took = steady_clock::now() - began;
  maker.join();
  ::unlink(node.c_str());
  EXPECT_GE(took.count(), 3.0);
  EXPECT_LT(took.count(), 3.4);
  EXPECT_THAT(lines, testing::ElementsAre("INFO RX queue '" + node + "' opened (retries: 6)"));
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
