#include <gtest/gtest.h>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/system_calls.h"

namespace ecu::vorn::ipc::test {
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
class OpeningAPort : public testing::Test {};
using Directions = testing::Types<Tx, Rx>;
TYPED_TEST_SUITE(OpeningAPort, Directions, );

TYPED_TEST(OpeningAPort, ClosesTheOneBeforeAndTakesUpTo120AttemptsEachFollowedByHalfASecond) {
  const struct {
    unsigned int appears_after_sleeps, failing_opens;
    mode_t mode;
    unsigned int failures;
  } cases[] = {{0, 0, S_IFCHR, 0},     {6, 0, S_IFCHR, 6},     {119, 0, S_IFCHR, 119},
               {120, 0, S_IFCHR, 120}, {0, 0, S_IFREG, 120},   {0, 0, S_IFDIR, 120},
               {0, 3, S_IFCHR, 3},     {0, 119, S_IFCHR, 119}, {0, 120, S_IFCHR, 120}};
  const std::string queue = TypeParam::queue, open_call = std::string("open(/dev/port, ") + TypeParam::flags + ")";
  for (const auto& one : cases) {
    Transcript happened;
    const RecordedLog log(happened, TypeParam::module);
    SystemCalls calls(happened);
    const bool opens = one.failures < 120;
    {
      TypeParam port;
      ASSERT_TRUE(port.open("/dev/old"));
      happened.clear();
      calls.appears_after_sleeps = one.appears_after_sleeps;
      calls.failing_opens = one.failing_opens;
      calls.path_mode = one.mode;
      EXPECT_EQ(port.open("/dev/port"), opens);
    }
    EXPECT_TRUE(calls.open_descriptors.empty()) << "a port that goes closes its descriptor";
    Transcript expected = {"DEBUG Open " + queue, TypeParam::closing, "close(1000)"};
    for (unsigned int i = 0; i < one.failures; ++i) {
      expected.emplace_back("stat(/dev/port)");
      if (one.failing_opens != 0) expected.push_back(open_call);
      expected.emplace_back("nanosleep(0.500000000, null)");
    }
    if (opens) expected.insert(expected.end(), {"stat(/dev/port)", open_call});
    expected.push_back(opens ? "INFO " + queue + " opened (retries: " + std::to_string(one.failures) + ")"
                             : "ERROR Unable to open " + queue + " after 120 attempts!");
    if (opens) expected.emplace_back("close(1001)");
    EXPECT_EQ(happened, expected);
  }
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
