#include <gtest/gtest.h>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/system_calls.h"

namespace ecu::vorn::ipc {
namespace {

struct Tx : QueuePortWriter<24> {
  static constexpr auto module = "ipc.queuewriter", queue = "TX queue '/dev/port'", flags = "0x101001",
                        closing = "INFO associated file (/dev/old) already opened, closing it first.";
};
struct Rx : QueuePortReader<24> {
  Rx() : QueuePortReader(nullptr) {}
  static constexpr auto module = "ipc.queuereader", queue = "RX queue '/dev/port'", flags = "0x0",
                        closing = "INFO associated file already opened, closing it first.";
};

template <typename Port>
class OpeningAPort : public testing::Test {
 protected:
  test::Transcript happened;
  test::RecordedLog log{happened, Port::module};
  test::SystemCalls calls{happened};
  const std::string queue = Port::queue;
  const std::string open_call = std::string("open(/dev/port, ") + Port::flags + ")";
};
using Directions = testing::Types<Tx, Rx>;
TYPED_TEST_SUITE(OpeningAPort, Directions, );

TYPED_TEST(OpeningAPort, TakesUpTo120AttemptsEachFollowedByHalfASecond) {
  const struct {
    unsigned int appears_after_sleeps, failing_opens;
    mode_t mode;
    unsigned int failures;
  } cases[] = {{0, 0, S_IFCHR, 0},     {6, 0, S_IFCHR, 6},     {119, 0, S_IFCHR, 119},
               {120, 0, S_IFCHR, 120}, {0, 0, S_IFREG, 120},   {0, 0, S_IFDIR, 120},
               {0, 3, S_IFCHR, 3},     {0, 119, S_IFCHR, 119}, {0, 120, S_IFCHR, 120}};
  for (const auto& one : cases) {
    this->calls.sleeps = 0;
    this->calls.appears_after_sleeps = one.appears_after_sleeps;
    this->calls.failing_opens = one.failing_opens;
    this->calls.path_mode = one.mode;
    test::Transcript expected = {"DEBUG Open " + this->queue};
    for (unsigned int i = 0; i < one.failures; ++i) {
      expected.emplace_back("stat(/dev/port)");
      if (one.failing_opens != 0) expected.push_back(this->open_call);
      expected.emplace_back("nanosleep(0.500000000, null)");
    }
    const bool opens = one.failures < 120;
    if (opens) expected.insert(expected.end(), {"stat(/dev/port)", this->open_call});
    expected.push_back(opens ? "INFO " + this->queue + " opened (retries: " + std::to_string(one.failures) + ")"
                             : "ERROR Unable to open " + this->queue + " after 120 attempts!");
    this->happened.clear();
    TypeParam port;
    EXPECT_EQ(port.open("/dev/port"), opens);
    EXPECT_EQ(this->happened, expected);
    EXPECT_EQ(this->calls.open_descriptors.size(), opens ? 1U : 0U);
  }
  EXPECT_TRUE(this->calls.open_descriptors.empty()) << "a port that goes closes its descriptor";
}

TYPED_TEST(OpeningAPort, ClosesTheOneOpenBeforeFirst) {
  TypeParam port;
  ASSERT_TRUE(port.open("/dev/old"));
  this->happened.clear();
  ASSERT_TRUE(port.open("/dev/port"));
  EXPECT_EQ(this->happened,
            (test::Transcript{"DEBUG Open " + this->queue, TypeParam::closing, "close(1000)", "stat(/dev/port)",
                              this->open_call, "INFO " + this->queue + " opened (retries: 0)"}));
  EXPECT_EQ(this->calls.open_descriptors, std::set<int>{1001});
  this->calls.path_mode = S_IFREG;
  EXPECT_FALSE(port.open("/dev/port"));
  EXPECT_TRUE(this->calls.open_descriptors.empty());
}

}  // namespace
}  // namespace ecu::vorn::ipc
