#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>

#include "ipc/queue_port_writer.h"
#include "ipc/signal_processor.h"
#include "support/system_calls.h"

namespace ecu::vorn::ipc::test {
namespace {

constexpr std::size_t longest = 65535;

/// Every length unless KELTIPC_ROUND_TRIP_STEP thins them out, as it does under sanitizers and emulation.
std::size_t step() {
  const char* const asked = std::getenv("KELTIPC_ROUND_TRIP_STEP");
  return asked == nullptr ? 1 : std::strtoul(asked, nullptr, 10);
}

std::vector<char> noise() {
  std::minstd_rand random(1);
  std::vector<char> bytes(longest);
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

template <typename Size>
class EveryLength : public testing::Test {};
using Sizes = testing::Types<std::integral_constant<std::size_t, 8>, std::integral_constant<std::size_t, 24>,
                             std::integral_constant<std::size_t, 4088>>;
TYPED_TEST_SUITE(EveryLength, Sizes, );

TYPED_TEST(EveryLength, ComesBackAsItWasSent) {
  constexpr std::size_t N = TypeParam::value;
  Transcript calls;
  SystemCalls system(calls);
  system.silent = true;
  SignalProcessor<N> processor(0);
  system.on_write = [&](const void* bytes, std::size_t size) {
    signal_t_dyn<N> frame;
    ASSERT_EQ(size, sizeof frame);
    std::memcpy(&frame, bytes, sizeof frame);
    processor.process(std::move(frame));
  };
  QueuePortWriter<N> writer;
  ASSERT_TRUE(writer.open("/dev/port"));
  ASSERT_TRUE(writer.transmit_data({0, 0, 0, std::vector<char>(8)}));

  const std::vector<char> bytes = noise();
  IpcSignal sent{0xF0000005, 0, 0, {}};
  for (std::size_t length = 1; length <= longest; length += step()) {
    const auto from = bytes.begin() + static_cast<std::ptrdiff_t>((longest - length) / 2);
    sent.data.assign(from, from + static_cast<std::ptrdiff_t>(length));
    ASSERT_TRUE(writer.transmit_data(sent));
    ASSERT_EQ(processor.get_state(), SignalProcessor<N>::STATE_COMPLETE) << length;
    const auto came = processor.take();
    ASSERT_TRUE(came->signal_id == 5 && came->status == 15 && came->data == sent.data) << length;
  }
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
