#include <cstdlib>
#include <thread>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/interpose.h"
#include "support/traffic.h"

// Most useful under ThreadSanitizer, which sees a race whether or not it does harm.
using namespace ecu::vorn::ipc;
using namespace ecu::vorn::ipc::test;

TEST(AWriterAndAReader, PassManySignalsWholeAndInOrder) {
  const char* const asked = std::getenv("KELTIPC_SOAK_SIGNALS");  // a release check asks for 10^7
  const Traffic traffic{static_cast<std::uint32_t>(std::stoul(asked == nullptr ? "50000" : asked)), 1, 16};
  FakePort port;
  port.loops_back = true;
  std::uint32_t came = 0;
  QueuePortWriter<8> writer;
  QueuePortReader<8> reader(std::make_unique<TrafficChecker>(traffic, came, [&] { reader.stop(); }));
  ASSERT_TRUE(writer.open("/dev/null") && reader.open("/dev/null"));
  std::thread receiving([&] { reader.receive_data(); });
  writer.transmit_data(sampling_frame_start());
  IpcSignal signal;
  for (std::uint32_t n = 0; n < traffic.count; ++n) {
    traffic.make(n, signal);
    writer.transmit_data(signal);
  }
  receiving.join();
  EXPECT_EQ(came, traffic.count);
}
