#include <gmock/gmock.h>

#include <algorithm>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "ipc/signal_processor.h"
#include "support/frames.h"
#include "support/system_calls.h"

namespace {

int own_level = 4;
int level_questions = 0;

ecu::vorn::ipc::test::Transcript& names_asked_for() {
  static ecu::vorn::ipc::test::Transcript names;
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
  auto names = names_asked_for();
  std::sort(names.begin(), names.end());
  EXPECT_THAT(names, testing::IsSupersetOf({"ipc.queuereader", "ipc.queuewriter"}));
  EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());
  EXPECT_THAT(names, testing::Not(testing::Contains("ipc.signalprocessor")));
}

TEST(AUnitWhoseModuleIsNull, WritesNoLineNotEvenAnErrorAndWorks) {
  test::Transcript lines, happened;
  logging::set_sink([&](int, const std::string&, const std::string& text) { lines.push_back(text); });
  test::SystemCalls calls(happened);
  calls.failing_opens = 120;
  QueuePortWriter<8> writer;
  QueuePortReader<8> reader(nullptr);
  reader.receive_data();
  const int questions = level_questions;
  EXPECT_FALSE(writer.transmit_data({5, 0, 0, {'a'}}));
  EXPECT_TRUE(writer.open("/dev/tx") && writer.transmit_data({5, 0, 0, {'a'}}) && reader.open("/dev/rx"));
  EXPECT_EQ(calls.written.size(), 1U);
  EXPECT_EQ(lines, test::Transcript{});
  EXPECT_EQ(level_questions, questions);
  logging::set_sink({});
}

TEST(AProgramWithItsOwnLogLevel, DecidesWhatIsWritten) {
  test::Transcript lines;
  logging::set_sink([&](int, const std::string&, const std::string& text) { lines.push_back(text); });
  SignalProcessor<8> processor(0);
  for (const int level : {6, 7}) {
    own_level = level;
    processor.process(test::frame_of<8>(5, 1, "a"));
  }
  EXPECT_EQ(lines, (test::Transcript{"Signal received: 0x5 status: 0x0", "current state: 0"}));
  logging::set_sink({});
}

}  // namespace
}  // namespace ecu::vorn::ipc
