#include <gmock/gmock.h>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "ipc/signal_processor.h"
#include "support/frames.h"
#include "support/system_calls.h"

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

int get_log_level() {
  ++level_questions;
  return own_level;
}

}  // namespace ecu::vorn::logging

namespace ecu::vorn::ipc {
namespace {

TEST(AProgramWithItsOwnModule, IsAskedOnceForEachUnitWhileTheLibraryIsLoaded) {
  EXPECT_THAT(names_asked_for(), testing::IsSupersetOf({"ipc.queuereader", "ipc.queuewriter"}));
  EXPECT_THAT(names_asked_for(), testing::Not(testing::Contains("ipc.signalprocessor")));
}

struct WithOwnModules : testing::Test {
  WithOwnModules() {
    logging::set_sink([this](int, const std::string&, const std::string& text) { lines.push_back(text); });
  }
  ~WithOwnModules() override { logging::set_sink({}); }
  test::Transcript lines;
};

TEST_F(WithOwnModules, AUnitWhoseModuleIsNullWritesNoLineAndWorks) {
  test::Transcript happened;
  test::SystemCalls calls(happened);
  calls.failing_opens = 120;
  QueuePortWriter<8> writer;
  QueuePortReader<8> reader(nullptr);
  reader.receive_data();
  level_questions = 0;
  EXPECT_FALSE(writer.transmit_data({5, 0, 0, {'a'}}));
  EXPECT_TRUE(writer.open("/dev/tx") && writer.transmit_data({5, 0, 0, {'a'}}) && reader.open("/dev/rx"));
  EXPECT_EQ(calls.written.size(), 1U);
  EXPECT_EQ(lines, test::Transcript{});
  EXPECT_EQ(level_questions, 0);
}

TEST_F(WithOwnModules, TheProgramsOwnLogLevelDecidesWhatIsWritten) {
  SignalProcessor<8> processor(0);
  for (const int level : {6, 7}) {
    own_level = level;
    processor.process(test::frame_of<8>(5, 1, "a"));
  }
  EXPECT_EQ(lines, (test::Transcript{"Signal received: 0x5 status: 0x0", "current state: 0"}));
}

}  // namespace
}  // namespace ecu::vorn::ipc
