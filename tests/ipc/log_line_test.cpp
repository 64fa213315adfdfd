#include "ipc/log_line.h"

#include <gtest/gtest.h>

#include "ipc/queue_port_reader.h"
#include "support/recorded_log.h"

namespace {

int level = 6;
int level_questions = 0;

std::vector<std::string>& names_asked_for() {
  static std::vector<std::string> names;
  return names;
}

}  // namespace

/// This program defines some of the logging operations itself, in place of libkeltlogging's.
namespace ecu::vorn::logging {

/// Refuses every module. The library asks while it is loaded.
std::shared_ptr<LogModule> module(const std::string& name) {
  names_asked_for().push_back(name);
  return nullptr;
}
int get_log_level() {
  ++level_questions;
  return level;
}

}  // namespace ecu::vorn::logging

namespace ecu::vorn::ipc::test {
namespace {

struct ALogLine : testing::Test {
  ALogLine() {
    logging::set_sink([this](int severity, const std::string&, const std::string& text) {
      lines.push_back(std::to_string(severity) + " " + text);
    });
  }
  ~ALogLine() override { logging::set_sink({}); }

  /// One line of each level. Returns how many were written.
  std::size_t write_all(int log_level) {
    lines.clear();
    level = log_level;
    log_line<Debug>(door, "x");
    log_line<Info>(door, "x");
    log_line<Notice>(door, "x");
    log_line<Warning>(door, "x");
    log_line<Error>(door, "x");
    log_line<Critical>(door, "x");
    return lines.size();
  }

  Transcript lines;
  Logger door = std::make_shared<logging::LogModule>("door");
};

/// A piece that does something while its line is written.
struct Act {
  std::function<void()> act;
};
std::ostream& operator<<(std::ostream& os, const Act& piece) {
  piece.act();
  return os;
}

TEST_F(ALogLine, IsWrittenUpToTheLogLevel) {
  EXPECT_EQ(write_all(7), 6U);
  EXPECT_EQ(write_all(6), 5U);
  EXPECT_EQ(write_all(5), 4U);
}

TEST_F(ALogLine, IsWrittenFromWarningOnWhateverTheLevelAndTheModuleSay) {
  EXPECT_EQ(write_all(0), 3U);
  door->enabled = false;
  EXPECT_EQ(write_all(7), 3U);
  EXPECT_EQ(text(lines), "4 x\n3 x\n2 x\n");
}

TEST_F(ALogLine, EndsWhereTheLevelFallsMeanwhile) {
  level = 6;
  log_line<Info>(door, "kept", Act{[] { level = 5; }}, "dropped");
  log_line<Warning>(door, "kept", Act{[] { level = 0; }}, "kept");
  EXPECT_EQ(text(lines), "6 kept\n4 keptkept\n");
}

TEST_F(ALogLine, EndsWhereTheModuleIsSwitchedOffMeanwhile) {
  level = 6;
  log_line<Info>(door, "kept", Act{[this] { door->enabled = false; }}, "dropped");
  EXPECT_EQ(text(lines), "6 kept\n");
}

TEST_F(ALogLine, HasHexadecimalNumbersThatLeaveTheFormatAlone) {
  log_line<Error>(door, FilledHex<2>{10}, " ", Hex{10}, " ", std::setw(4), 10U);
  EXPECT_EQ(text(lines), "3 0a a   10\n");
}

TEST_F(ALogLine, WithoutAModuleIsSkippedBeforeTheLevelIsAskedFor) {
  EXPECT_EQ(names_asked_for(), (Transcript{"ipc.queuereader", "ipc.queuewriter", "ipc.systemd"}));
  level_questions = 0;
  QueuePortReader<8>(nullptr).receive_data();
  EXPECT_EQ(lines, Transcript{});
  EXPECT_EQ(level_questions, 0);
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
