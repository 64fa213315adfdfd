#include <gtest/gtest.h>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "ipc/systemd.h"
#include "support/interpose.h"

namespace ecu::vorn::ipc::test {
namespace {

struct Keeper : IDataConsumer<IpcSignal> {
  explicit Keeper(std::vector<char>& last) : bytes(last) {}
  void consume(IpcSignal&& signal) override { bytes = std::move(signal.data); }
  std::vector<char>& bytes;
};

const IpcSignal start{0, 0, 0, std::vector<char>(8)}, sent{5, 0, 0, std::vector<char>(20, 'x')};

TEST(SendingASignal, AllocatesNothing) {
  QueuePortWriter<4088> writer;
  ASSERT_TRUE(writer.open("/dev/null"));
  const long before = Allocations::count();
  EXPECT_TRUE(writer.transmit_data(sent));
  EXPECT_EQ(Allocations::count(), before);
}

/// Opens, sends, receives what was sent, and asks for a unit. Every log line is built.
struct Scenario {
  Scenario() {
    logging::set_log_level(7);
    logging::set_sink([](int, const std::string&, const std::string&) {});
  }
  ~Scenario() {
    logging::set_sink({});
    logging::set_log_level(6);
  }

  void run() {
    writer.open("/dev/tx");
    writer.transmit_data(start);
    writer.transmit_data(sent);
    reader.open("/dev/rx");
    for (const std::string& frame : calls.written) calls.frame(frame);
    reader.receive_data();
    wants = systemd.list_unit_dependencies("a.service", "Wants");
    started = systemd.start_unit("a.service");
  }

  SystemCalls calls;
  FakeBus bus;
  QueuePortWriter<8> writer;
  std::vector<char> received;
  QueuePortReader<8> reader{std::make_unique<Keeper>(received)};
  Systemd systemd;
  std::vector<std::string> wants;
  bool started = false;
};

TEST(AFailedAllocation, LosesNothingAndLeavesTheObjectsUsable) {
  Scenario().run();  // allocates what is kept for the life of the process
  bool failed = true;
  for (long k = 0; failed; ++k) {
    SCOPED_TRACE("allocation " + std::to_string(k));
    const long live = Allocations::live();
    {
      Scenario scenario;
      Allocations::fail_after(k);
      try {
        scenario.run();
      } catch (const std::bad_alloc&) {
      }
      failed = Allocations::has_failed();
      EXPECT_EQ(scenario.bus.held, 0);
      scenario.calls.events.clear();
      scenario.calls.written.clear();
      scenario.run();
      EXPECT_EQ(scenario.received, sent.data);
      EXPECT_TRUE(scenario.started && scenario.wants.size() == 2);
      EXPECT_EQ(scenario.calls.open_descriptors.size(), 2U);
    }
    EXPECT_EQ(Allocations::live(), live);
  }
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
