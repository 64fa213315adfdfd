#include <gtest/gtest.h>

#include <algorithm>
#include <locale>
#include <thread>

#include "logging/logging.h"

using namespace ecu::vorn::logging;
using Lines = std::vector<std::string>;

struct ALine : testing::Test {
  ALine() {
    set_sink([this](int level, const std::string& name, const std::string& line) {
      lines.push_back(std::to_string(level) + " " + name + ": " + line);
    });
  }
  ~ALine() override {
    set_sink({});
    set_log_level(6);
  }
  void write(_internal::LogStream& level, const std::string& line) {
    level << door << line;
    level.do_flush();
  }

  Lines lines;
  const std::shared_ptr<LogModule> door = module("door"), window = module("window");
};

TEST_F(ALine, EndsWhenItIsFlushedOrTheNextBegins) {
  INFO << door << "opened after " << 12 << ' ' << "ms";
  EXPECT_EQ(lines, Lines{});
  INFO.do_flush();
  INFO.do_flush();
  EXPECT_EQ(lines, Lines{"6 door: opened after 12 ms"});
  INFO << door << "first";
  write(INFO, "second");
  EXPECT_EQ(lines.size(), 3U);
}

TEST_F(ALine, IsAlwaysWrittenFromWarningOn) {
  set_log_level(5);
  for (auto* const each : {&DEBUG, &INFO, &NOTICE}) write(*each, "level 5");
  NOTICE << door << "begun before";
  door->enabled = false;
  for (auto* const each : {&NOTICE, &WARNING, &ERROR, &CRITICAL}) write(*each, "off");
  door->enabled = true;
  EXPECT_EQ(lines, (Lines{"5 door: level 5", "5 door: begun before", "4 door: off", "3 door: off", "2 door: off"}));
}

TEST_F(ALine, KeepsNothingOfTheLineBefore) {
  auto& stream = INFO << door << "kept" << static_cast<const char*>(nullptr) << "lost";
  INFO.do_flush();
  stream << "written after the end";
  write(INFO, "next");
  EXPECT_EQ(lines, (Lines{"6 door: kept", "6 door: next"}));
}

TEST_F(ALine, InsideAnotherIsTheActiveOneUntilItEnds) {
  auto& outer = ERROR << door << "outer";
  INFO << window << "inner";
  EXPECT_EQ(_internal::LogStreambuf::get_active_module(), window);
  INFO.do_flush();
  EXPECT_EQ(_internal::LogStreambuf::get_active_module(), door);
  outer << " goes on";
  ERROR << std::shared_ptr<LogModule>() << "of no module";
  EXPECT_EQ(_internal::LogStreambuf::get_active_module(), nullptr);
  EXPECT_EQ(lines, (Lines{"6 window: inner", "3 door: outer goes on"}));
}

TEST_F(ALine, OfOneThreadIsNotMixedWithOthers) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([this, t] {
      for (int i = 0; i < 1000; ++i) {
        WARNING << door << t << " and " << t;
        WARNING.do_flush();
      }
    });
  }
  for (int i = 0; i < 1000; ++i) set_log_level(i % 8);
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < 8; ++t)
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "4 door: " + std::to_string(t) + " and " + std::to_string(t)),
              1000);
}

TEST_F(ALine, HasTheClassicLocale) {
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
