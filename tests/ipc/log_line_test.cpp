#include "ipc/log_line.h"

#include <gtest/gtest.h>

#include <functional>

#include "support/recorded_log.h"

namespace ecu::vorn::ipc {
namespace {

/// A piece that does something while the line is written, and leaves a mark in it.
struct Act {
  std::function<void()> act;
};
std::ostream& operator<<(std::ostream& os, const Act& piece) {
  piece.act();
  return os << "!";
}

class ALine : public testing::Test {
 protected:
  template <typename Level>
  void expect_written_iff(bool wanted) {
    happened.clear();
    log_line<Level>(module, "0x", FilledHex<2>{0xA}, ", ", 10U);
    const std::string text = happened.empty() ? "" : happened[0].substr(happened[0].find(' '));
    EXPECT_EQ(text, wanted ? " 0x0a, 10" : "") << Level::value << " at " << logging::get_log_level();
  }

  test::Transcript happened;
  test::RecordedLog log{happened, "test"};
  Logger module = logging::module("test");
};

TEST_F(ALine, IsWrittenUpToTheLogLevelAndFromWarningOnAlways) {
  for (const bool enabled : {true, false}) {
    for (int level = 0; level <= 7; ++level) {
      module->enabled = enabled;
      logging::set_log_level(level);
      expect_written_iff<Debug>(enabled && level >= 7);
      expect_written_iff<Info>(enabled && level >= 6);
      expect_written_iff<Notice>(enabled && level >= 5);
      expect_written_iff<Warning>(true);
      expect_written_iff<Error>(true);
      expect_written_iff<Critical>(true);
    }
  }
  module->enabled = true;
}

TEST_F(ALine, EndsEarlyWhereItsModuleIsSwitchedOffOrTheLevelFalls) {
  const Act switch_off{[this] { module->enabled = false; }}, lower{[] { logging::set_log_level(4); }};
  for (const Act& act : {switch_off, lower}) {
    logging::set_log_level(7);
    log_line<Notice>(module, "kept", act, "dropped", Hex{1});
    log_line<Warning>(module, "kept", act, "kept");
    module->enabled = true;
  }
  EXPECT_EQ(happened, (test::Transcript{"NOTICE kept!", "WARNING kept!kept", "NOTICE kept!", "WARNING kept!kept"}));
}

}  // namespace
}  // namespace ecu::vorn::ipc
