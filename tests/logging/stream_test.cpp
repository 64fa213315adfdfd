#include <gtest/gtest.h>

#include <functional>
#include <locale>
#include <thread>

#include "support/recorded_log.h"

using namespace ecu::vorn::logging;
using _internal::LogStreambuf;

namespace {

struct ALine : testing::Test {
  ALine() {
    set_sink([this](int level, const std::string& name, const std::string& line) {
      lines.push_back(std::to_string(level) + " " + name + ": " + line);
    });
  }
  ~ALine() override { set_sink({}); }

  std::vector<std::string> lines;
  const std::shared_ptr<LogModule> door = module("door"), window = module("window");
};

using Lines = std::vector<std::string>;

TEST_F(ALine, IsHandedOverWhenItIsFlushed) {
  INFO << door << "opened after " << 12 << " ms";
  EXPECT_EQ(lines, Lines{});
  INFO.do_flush();
  INFO.do_flush();
  EXPECT_EQ(lines, Lines{"6 door: opened after 12 ms"});
}

TEST_F(ALine, IsEndedByTheNextOfItsLevel) {
  INFO << door << "first";
  INFO << window << "second";
  EXPECT_EQ(lines, Lines{"6 door: first"});
  INFO.do_flush();
  EXPECT_EQ(lines.back(), "6 window: second");
}

TEST_F(ALine, IsWrittenUpToTheLogLevelAndFromWarningOnAlways) {
  for (const int level : {2, 7}) {
    set_log_level(level);
    for (auto* const stream : {&DEBUG, &INFO, &NOTICE, &WARNING, &ERROR, &CRITICAL}) {
      *stream << door << level;
      stream->do_flush();
    }
  }
  set_log_level(6);
  EXPECT_EQ(lines, (Lines{"4 door: 2", "3 door: 2", "2 door: 2", "7 door: 7", "6 door: 7", "5 door: 7", "4 door: 7",
                          "3 door: 7", "2 door: 7"}));
}

TEST_F(ALine, OfAModuleThatIsSwitchedOffIsWrittenFromWarningOn) {
  door->enabled = false;
  NOTICE << door << "silent";
  NOTICE.do_flush();
  WARNING << door << "loud";
  WARNING.do_flush();
  door->enabled = true;
  EXPECT_EQ(lines, Lines{"4 door: loud"});
}

TEST_F(ALine, KeepsWhatItHasWhenItsModuleIsSwitchedOffMeanwhile) {
  INFO << door << "kept";
  door->enabled = false;
  INFO.do_flush();
  door->enabled = true;
  EXPECT_EQ(lines, Lines{"6 door: kept"});
}

TEST_F(ALine, WithoutAModuleIsNotWritten) {
  ERROR << std::shared_ptr<LogModule>() << "lost";
  ERROR.do_flush();
  EXPECT_EQ(lines, Lines{});
}

TEST_F(ALine, LosesWhatFollowsANullStringAndTheNextLineLosesNothing) {
  auto& stream = INFO << door;
  stream << "kept" << static_cast<const char*>(nullptr) << "lost";
  INFO.do_flush();
  stream << "written after the end";
  INFO << door << "next";
  INFO.do_flush();
  EXPECT_EQ(lines, (Lines{"6 door: kept", "6 door: next"}));
}

TEST_F(ALine, InsideAnotherIsTheActiveOneUntilItEnds) {
  auto& outer = ERROR << door << "outer";
  INFO << window << "inner" << '!';
  EXPECT_EQ(LogStreambuf::get_active_module(), window);
  INFO.do_flush();
  EXPECT_EQ(LogStreambuf::get_active_module(), door);
  outer << " goes on";
  ERROR.do_flush();
  EXPECT_EQ(LogStreambuf::get_active_module(), nullptr);
  EXPECT_EQ(lines, (Lines{"6 window: inner!", "3 door: outer goes on"}));
}

TEST_F(ALine, BelongsToItsThread) {
  INFO << door << "of the main thread";
  std::thread([] {
    EXPECT_EQ(LogStreambuf::get_active_module(), nullptr);
    INFO.do_flush();
  }).join();
  EXPECT_EQ(lines, Lines{});
  INFO.do_flush();
}

TEST_F(ALine, HasTheClassicLocaleWhateverTheApplicationsIs) {
  struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\1"; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
  std::thread([this] {
    INFO << door << 1125;
    INFO.do_flush();
  }).join();
  std::locale::global(before);
  EXPECT_EQ(lines, Lines{"6 door: 1125"});
}

TEST_F(ALine, IsWrittenFromTheDestructorsOfAThreadsObjects) {
  struct Late {
    ~Late() {
      INFO << module("late") << "the end";
      INFO.do_flush();
    }
  };
  std::thread([this] {
    thread_local const Late late;
    INFO << door << static_cast<const void*>(&late);
  }).join();
  EXPECT_EQ(lines.back(), "6 late: the end");
}

}  // namespace
