#include "ipc/wait_for_device.h"

#include <unistd.h>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/descriptors.h"
#include "support/interpose.h"

using namespace ecu::vorn::ipc;
using namespace ecu::vorn::ipc::test;

struct OpeningAPort : testing::Test {
  Transcript happened;
  FakePort port{&happened};
  QueuePortWriter<24> writer;
  QueuePortReader<24> reader{nullptr};
};

TEST_F(OpeningAPort, PausesHalfASecondAfterEachFailedAttempt) {
  const std::string link = testing::TempDir() + "kelt_device_" + std::to_string(::getpid());
  port.during_sleep = [&] { EXPECT_EQ(port.sleeps < 2 ? 0 : ::symlink("/dev/null", link.c_str()), 0); };
  const RecordedLog log(happened, "ipc.queuewriter", 6);
  EXPECT_TRUE(writer.open(link));
  EXPECT_EQ(text(happened), "nanosleep 500\nnanosleep 500\nINFO TX queue '" + link + "' opened (retries: 2)\n");
  ::unlink(link.c_str());
}

TEST_F(OpeningAPort, FailsAfter120Attempts) {
  const RecordedLog log(happened, "ipc.queuereader");
  EXPECT_FALSE(reader.open("/proc/self/exe"));
  EXPECT_EQ(happened.front(), "DEBUG Open RX queue '/proc/self/exe'");
  EXPECT_EQ(happened.back(), "ERROR Unable to open RX queue '/proc/self/exe' after 120 attempts!");
  EXPECT_EQ(port.sleeps, 120U);
}

TEST_F(OpeningAPort, ClosesTheOldPortFirst) {
  const RecordedLog log(happened, "ipc.queuereader", 6);
  reader.open("/dev/null");
  happened.clear();
  const int descriptors = open_descriptors();
  reader.open("/dev/zero");
  EXPECT_EQ(open_descriptors(), descriptors);
  EXPECT_EQ(text(happened),
            "INFO associated file already opened, closing it first.\n"
            "INFO RX queue '/dev/zero' opened (retries: 0)\n");
}

TEST_F(OpeningAPort, HoldsADescriptorUntilThePortIsDestroyed) {
  const int descriptors = open_descriptors();
  {
    QueuePortReader<8> rx(nullptr);
    QueuePortWriter<8> tx;
    EXPECT_TRUE(rx.open("/dev/null") && tx.open("/dev/null"));
    EXPECT_EQ(open_descriptors(), descriptors + 2);
  }
  EXPECT_EQ(open_descriptors(), descriptors);
}
