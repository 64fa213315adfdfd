#include "ipc/wait_for_device.h"

#include <unistd.h>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "ipc/utils.h"
#include "support/descriptors.h"
#include "support/interpose.h"

using namespace ecu::vorn::ipc;
using namespace ecu::vorn::ipc::test;

TEST(OpeningAPort, PausesHalfASecondAfterEachFailedAttempt) {
  Transcript happened;
  const RecordedLog log(happened, "ipc.queuewriter", 6);
  FakePort port(&happened);
  const std::string link = testing::TempDir() + "kelt_device_" + std::to_string(::getpid());
  port.during_sleep = [&] { EXPECT_EQ(port.sleeps < 2 ? 0 : ::symlink("/dev/null", link.c_str()), 0); };
  EXPECT_TRUE(QueuePortWriter<24>().open(link));
  EXPECT_EQ(text(happened), "nanosleep 500\nnanosleep 500\nINFO TX queue '" + link + "' opened (retries: 2)\n");
  ::unlink(link.c_str());
}

TEST(OpeningAPort, ThatFailsLeavesTheReaderClosed) {
  Transcript happened;
  const RecordedLog log(happened, "ipc.queuereader", 6);
  FakePort port;
  QueuePortReader<24> reader(nullptr);
  reader.open("/dev/null");
  EXPECT_FALSE(reader.open("/proc/self/exe"));
  EXPECT_EQ(port.sleeps, 120U);
  reader.receive_data();
  EXPECT_EQ(text(happened), R"(INFO RX queue '/dev/null' opened (retries: 0)
INFO associated file already opened, closing it first.
ERROR Unable to open RX queue '/proc/self/exe' after 120 attempts!
ERROR The rx queue is not open, unable to read IPC data.
)");
}

/// With standard input closed, the port gets descriptor 0, which is as good as any.
TEST(OpeningAPort, TakesOneDescriptorUntilThePortIsDestroyed) {
  Transcript calls;
  FakePort port(&calls);
  const int input = ::dup(STDIN_FILENO);
  ::close(STDIN_FILENO);
  const int descriptors = open_descriptors();
  {
    QueuePortReader<24> reader(nullptr);
    EXPECT_TRUE(reader.open("/dev/null") && reader.open("/dev/null"));
    EXPECT_EQ(open_descriptors(), descriptors + 1);
    reader.receive_data();
    EXPECT_EQ(calls, Transcript{"poll for input 300"});
  }
  {
    QueuePortWriter<24> writer;
    EXPECT_TRUE(writer.open("/dev/null") && writer.open("/dev/null") && utils::is_queuing_port_ok(STDIN_FILENO));
    EXPECT_EQ(open_descriptors(), descriptors + 1);
  }
  EXPECT_EQ(open_descriptors(), descriptors);
  ::dup2(input, STDIN_FILENO);
  ::close(input);
}
