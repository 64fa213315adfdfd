#include <gmock/gmock.h>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "ipc/signal_processor.h"
#include "support/recorded_log.h"

namespace {

int own_level = 4;
int level_questions = 0;

std::vector<std::string>& names_asked_for() {
  static std::vector<std::string> names;
  return names;
}

}  // namespace

/// This program's own: it refuses every module but the processor's. The library asks while it is loaded.
namespace ecu::vorn::logging {

std::shared_ptr<LogModule> module(const std::string& name) {
  names_asked_for().push_back(name);
  return name == "ipc.signalprocessor" ? std::make_shared<LogModule>(name) : nullptr;
}
int get_log_level() { return ++level_questions, own_level; }

}  // namespace ecu::vorn::logging

namespace ecu::vorn::ipc {
namespace {

TEST(AProgramWithItsOwnModules, IsAskedAtLoadTimeAndMayRefuseThemAndSetsTheLogLevel) {
  test::Transcript lines;
  EXPECT_THAT(names_asked_for(), testing::UnorderedElementsAre("ipc.queuereader", "ipc.queuewriter", "ipc.systemd"));
  logging::set_sink([&](int, const std::string&, const std::string& text) { lines.push_back(text); });
  QueuePortWriter<8> writer;
  QueuePortReader<8>(nullptr).receive_data();
  EXPECT_TRUE(writer.open("/dev/null") && writer.transmit_data({5, 0, 0, {'a'}}));
  EXPECT_EQ(level_questions, 0);
  EXPECT_EQ(lines, test::Transcript{}) << "units whose module is null work without a line";

  SignalProcessor<8> processor(0);
  for (const int level : {6, 7}) {
    own_level = level;
    processor.process({5, 0, 1, "a"});
  }
  logging::set_sink({});
  EXPECT_EQ(lines, (test::Transcript{"Signal received: 0x5 status: 0x0", "current state: 0"}));
}

}  // namespace
}  // namespace ecu::vorn::ipc
