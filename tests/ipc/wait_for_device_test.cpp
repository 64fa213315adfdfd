#include "ipc/wait_for_device.h"

#include <gtest/gtest.h>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/interpose.h"

namespace ecu::vorn::ipc::test {
namespace {

struct OpeningAPort : testing::Test {
  Transcript happened;
  SystemCalls calls{&happened};
  QueuePortWriter<24> writer;
  QueuePortReader<24> reader{nullptr};
};

TEST_F(OpeningAPort, PausesHalfASecondAfterEachFailedAttempt) {
  const RecordedLog log(happened, "ipc.queuewriter");
  calls.failing_opens = 1;
  EXPECT_TRUE(writer.open("/dev/tx"));
  EXPECT_EQ(text(happened), R"(DEBUG Open TX queue '/dev/tx'
stat(/dev/tx)
open(/dev/tx, 0x101001)
nanosleep(0 s 500000000 ns)
stat(/dev/tx)
open(/dev/tx, 0x101001)
INFO TX queue '/dev/tx' opened (retries: 1)
)");
}

TEST_F(OpeningAPort, ClosesTheReadersOldPortFirst) {
  const RecordedLog log(happened, "ipc.queuereader");
  reader.open("/dev/rx");
  happened.clear();
  EXPECT_TRUE(reader.open("/dev/other"));
  EXPECT_EQ(text(happened), R"(DEBUG Open RX queue '/dev/other'
INFO associated file already opened, closing it first.
close(1000)
stat(/dev/other)
open(/dev/other, 0x0)
INFO RX queue '/dev/other' opened (retries: 0)
)");
}

TEST_F(OpeningAPort, SucceedsAtTheLastOf120Attempts) {
  calls.appears_after_sleeps = 119;
  EXPECT_TRUE(writer.open("/dev/tx"));
}

TEST_F(OpeningAPort, FailsAfter120Attempts) {
  const RecordedLog log(happened, "ipc.queuereader", 5);
  calls.appears_after_sleeps = 121;
  EXPECT_FALSE(reader.open("/dev/rx"));
  EXPECT_EQ(calls.sleeps, 120U);
  EXPECT_EQ(happened.back(), "ERROR Unable to open RX queue '/dev/rx' after 120 attempts!");
}

TEST_F(OpeningAPort, OpensCharacterDevicesOnly) {
  calls.path_mode = S_IFREG;
  EXPECT_FALSE(writer.open("/dev/tx"));
}

TEST_F(OpeningAPort, HoldsTheDescriptorUntilThePortIsDestroyed) {
  {
    QueuePortWriter<24> tx;
    QueuePortReader<24> rx(nullptr);
    tx.open("/dev/tx");
    rx.open("/dev/rx");
    EXPECT_EQ(calls.open_descriptors.size(), 2U);
  }
  EXPECT_TRUE(calls.open_descriptors.empty());
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
