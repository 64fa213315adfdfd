#include "ipc/log_line.h"

#include "ipc/queue_port_reader.h"
#include "support/recorded_log.h"

using namespace ecu::vorn;
using namespace ecu::vorn::ipc;
using ecu::vorn::ipc::test::Transcript;

static int level = 6;

/// This program defines two of the logging operations itself, in place of libkeltlogging's, and refuses every module.
std::shared_ptr<logging::LogModule> logging::module(const std::string& /*name*/) { return nullptr; }
int logging::get_log_level() { return level; }

/// A piece that does something while its line is written.
struct Act {
  std::function<void()> act;
};
static std::ostream& operator<<(std::ostream& os, const Act& piece) {
  piece.act();
  return os;
}

struct ALogLine : testing::Test {
  ALogLine() {
    logging::set_sink([this](int severity, const std::string&, const std::string& line) {
      lines.push_back(std::to_string(severity) + " " + line);
    });
  }
  ~ALogLine() override { logging::set_sink({}); }

  Transcript lines;
  Logger door = std::make_shared<logging::LogModule>("door");
};

TEST_F(ALogLine, IsWrittenUpToTheLogLevel) {
  for (level = 4; level <= 7; ++level) {
    log_line<Debug>(door, level);
    log_line<Info>(door, level);
    log_line<Notice>(door, level);
  }
  EXPECT_EQ(lines, (Transcript{"5 5", "6 6", "5 6", "7 7", "6 7", "5 7"}));
}

TEST_F(ALogLine, OfAModuleThatIsSwitchedOffIsWrittenFromWarningOn) {
  level = 7;
  door->enabled = false;
  log_line<Notice>(door, "silent");
  level = 1;
  log_line<Warning>(door, "loud");
  log_line<Error>(door, "loud");
  log_line<Critical>(door, "loud");
  EXPECT_EQ(lines, (Transcript{"4 loud", "3 loud", "2 loud"}));
}

TEST_F(ALogLine, EndsWhereTheLevelFallsOrItsModuleIsSwitchedOff) {
  level = 6;
  log_line<Info>(door, "kept", Act{[] { level = 5; }}, "dropped");
  log_line<Notice>(door, "kept", Act{[this] { door->enabled = false; }}, "dropped");
  log_line<Warning>(door, "kept", Act{[] { level = 0; }}, "kept");
  EXPECT_EQ(lines, (Transcript{"6 kept", "5 kept", "4 keptkept"}));
}

TEST_F(ALogLine, WithHexadecimalNumbersLeavesTheFormatAlone) {
  log_line<Error>(door, FilledHex<2>{10}, Hex{10}, std::setw(4), 10U);
  EXPECT_EQ(lines, Transcript{"3 0aa  10"});
}

TEST_F(ALogLine, WithoutAModuleIsNotWritten) {
  QueuePortReader<8>(nullptr).receive_data();
  EXPECT_EQ(lines, Transcript{});
}
