#include "ipc/wait_for_device.h"

#include <unistd.h>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
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

TEST(OpeningAPort, FailsAfter120Attempts) {
  Transcript happened;
  const RecordedLog log(happened, "ipc.queuereader");
  FakePort port;
  EXPECT_FALSE(QueuePortReader<24>(nullptr).open("/proc/self/exe"));
  EXPECT_EQ(text(happened),
            "DEBUG Open RX queue '/proc/self/exe'\n"
            "ERROR Unable to open RX queue '/proc/self/exe' after 120 attempts!\n");
  EXPECT_EQ(port.sleeps, 120U);
}

TEST(OpeningAPort, ClosesTheOldPortFirst) {
  Transcript happened;
  const RecordedLog log(happened, "ipc.queuereader", 6);
  QueuePortReader<24> reader(nullptr);
  reader.open("/dev/null");
  reader.open("/dev/zero");
  EXPECT_EQ(text(happened), R"(INFO RX queue '/dev/null' opened (retries: 0)
INFO associated file already opened, closing it first.
INFO RX queue '/dev/zero' opened (retries: 0)
)");
}

TEST(OpeningAPort, TakesOneDescriptorUntilThePortIsDestroyed) {
  const int descriptors = open_descriptors();
  {
    QueuePortReader<24> reader(nullptr);
    QueuePortWriter<24> writer;
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(reader.open("/dev/null") && writer.open("/dev/null"));
    EXPECT_EQ(open_descriptors(), descriptors + 2);
  }
  EXPECT_EQ(open_descriptors(), descriptors);
}
