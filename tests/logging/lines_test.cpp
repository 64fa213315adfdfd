#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <iomanip>
#include <sstream>
#include <thread>

#include "ipc/log_line.h"
#include "logging/logging.h"

using namespace ecu::vorn::logging;
using _internal::LogStreambuf;
using ::testing::ElementsAre;

/// A piece that does something while its line is written.
struct Act {
  std::function<const char*()> act;
};
std::ostream& operator<<(std::ostream& os, const Act& piece) { return os << piece.act(); }

struct Lines : ::testing::Test {
  Lines() {
    set_sink([this](int, const auto& module, const auto& text) { lines.push_back(module + ": " + text); });
  }
  ~Lines() override { set_sink({}); }
  /// `now` takes the next line, what comes after it is kept.
  void at_next_line(const std::function<void()>& now) {
    set_sink([this, now](int, const auto&, const auto&) {
      set_sink([this](int, const auto&, const auto& text) { lines.push_back(text); });
      now();
    });
  }

  std::vector<std::string> lines;
  const std::shared_ptr<LogModule> door = module("door");
};

/// Pieces, one of which may be a null string, make a line.
template <typename... Pieces>
void write(_internal::LogStream& level, const std::shared_ptr<LogModule>& module, const Pieces&... pieces) {
  ((level << module) << ... << pieces);
  level.do_flush();
}

/// The one way in which libkeltipc logs.
template <typename... Levels>
void log_lines(const ecu::vorn::ipc::Logger& log) {
  (ecu::vorn::ipc::log_line<Levels>(log, "0x", ecu::vorn::ipc::FilledHex<2>{0xA}, ",", std::setw(4), 10U), ...);
}

TEST_F(Lines, AreWrittenUpToTheLogLevelAndFromWarningOnAlways) {
  using namespace ecu::vorn::ipc;
  EXPECT_EQ(get_log_level(), 6) << "what it is to begin with";
  std::string levels;
  set_sink([&](int level, const auto&, const auto& text) {
    levels += std::to_string(level);
    EXPECT_TRUE(text.empty() || text == "0x0a,  10") << text;
  });
  const std::string enabled[] = {"432", "432", "432", "432", "432", "5432", "65432", "765432"};
  for (int i = 0; i < 16; ++i, levels.clear()) {
    set_log_level(i / 2);
    door->enabled = i % 2 == 0;
    for (auto* level : {&DEBUG, &INFO, &NOTICE, &WARNING, &ERROR, &CRITICAL}) write(*level, door);
    log_lines<Debug, Info, Notice, Warning, Error, Critical>(door);
    log_lines<Debug, Info, Notice, Warning, Error, Critical>(nullptr);
    const std::string once = door->enabled ? enabled[i / 2] : "432";
    EXPECT_EQ(levels, once + once) << "log level " << i / 2;
  }
  door->enabled = true;
  set_log_level(6);
}

TEST_F(Lines, OfLibkeltipcEndEarlyWhereTheirModuleIsSwitchedOffOrTheLevelFalls) {
  using namespace ecu::vorn::ipc;
  const auto act = [this](bool lowers) {
    lowers ? set_log_level(4) : door->enabled.store(false);
    return "!";
  };
  for (const bool lowers : {true, false}) {
    log_line<Notice>(door, "kept", Act{[&] { return act(lowers); }}, "dropped", Hex{1});
    log_line<Warning>(door, "kept", Act{[&] { return act(lowers); }}, "kept");
    door->enabled = true;
    set_log_level(6);
  }
  EXPECT_THAT(lines, ElementsAre("door: kept!", "door: kept!kept", "door: kept!", "door: kept!kept"));
}

TEST_F(Lines, TakeNothingFromOutsideAndLoseNoMoreThanTheirOwn) {
  INFO.do_flush();
  write(INFO, door, "kept", static_cast<const char*>(nullptr), "lost with the null string");
  auto& stream = INFO << door << "ended by the next";
  INFO << door << "switched off in the middle";
  door->enabled = false;
  INFO.do_flush();
  write(INFO, door, "silent");
  door->enabled = true;
  stream << "after the end";
  write(ERROR, nullptr, "for no module");
  write(INFO, module(""), "last");
  EXPECT_THAT(lines,
              ElementsAre("door: kept", "door: ended by the next", "door: switched off in the middle", ": last"));
}

TEST_F(Lines, NestAndTheLastOneBegunIsActive) {
  auto& outer = ERROR << door << "outer";
  INFO << module("window") << "inner";
  EXPECT_EQ(LogStreambuf::get_active_module(), module("window"));
  std::thread([] { EXPECT_EQ(LogStreambuf::get_active_module(), nullptr); }).join();
  INFO.do_flush();
  EXPECT_EQ(LogStreambuf::get_active_module(), door);
  outer << " goes on";
  ERROR.do_flush();
  EXPECT_EQ(LogStreambuf::get_active_module(), nullptr);
  EXPECT_THAT(lines, ElementsAre("window: inner", "door: outer goes on"));
}

/// Every second thread leaves its stream in hexadecimal with a star for fill.
void number(std::ostream& os, int thread, int i) {
  if (i == 0 && thread % 2 == 1) os << std::hex << std::setfill('*');
  os << thread << std::setw(6) << i << std::setw(3) << '|';
}

TEST_F(Lines, OfEightThreadsStayWholeAndInTheirOwnFormat) {
  std::ostringstream models[8];
  int taken[8] = {}, wrong = 0;
  set_sink([&](int, const auto& module, const auto& text) {
    const int t = std::stoi(module);
    models[t].str("");
    number(models[t], t, taken[t]++);
    wrong += models[t].str() != text;
  });
  std::thread threads[8];
  for (int t = 0; t < 8; ++t) {
    threads[t] = std::thread([t] {
      for (int i = 0; i < 2000; ++i, INFO.do_flush()) number(INFO << module(std::to_string(t)), t, i);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(taken, ::testing::Each(2000));
  EXPECT_EQ(wrong, 0);
}

TEST_F(Lines, OfASinkGoToStandardErrorAndItsFailureCostsItsOwnLineOnly) {
  at_next_line([this] { write(ERROR, door, "from inside"), throw errno = ENOSPC; });
  ERROR << door << "begun before";
  ::testing::internal::CaptureStderr();
  errno = EAGAIN;
  write(INFO, door, "lost");
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), ::testing::EndsWith(" ERROR door: from inside\n"));
  ERROR.do_flush();
  EXPECT_THAT(lines, ElementsAre("begun before"));
}

TEST_F(Lines, AreTakenFromThreadsToTheirVeryEnd) {
  struct Late {
    ~Late() { write(INFO, module("late"), "cancelled in the sink"); }
  };
  at_next_line([] { ::pthread_cancel(::pthread_self()), ::pthread_testcancel(); });
  std::thread([this] {
    thread_local const Late late;
    write(INFO, (static_cast<void>(&late), door), "never taken");
  }).join();
  EXPECT_THAT(lines, ElementsAre("cancelled in the sink"));
}

TEST_F(Lines, OfAForkedChildAreTakenWhateverOtherThreadsWereAt) {
  set_sink([](auto...) { (void)module("asked for in a sink"); });
  std::atomic<bool> done{false};
  std::thread other([&] {
    while (!done) write(INFO, door, "busy");
  });
  const auto log_in_time = [this] { ::alarm(60), write(INFO, door, "from the child"), ::_exit(0); };
  for (int i = 0, status = -1; i < 20; ++i) {
    const pid_t child = ::fork();
    if (child == 0) log_in_time();
    EXPECT_TRUE(::waitpid(child, &status, 0) == child && status == 0) << "the child hung in its line";
  }
  done = true;
  other.join();
}
