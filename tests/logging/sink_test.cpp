#include <gtest/gtest.h>
#include <pthread.h>

#include <thread>

#include "logging/logging.h"

using namespace ecu::vorn::logging;

struct ASink : testing::Test {
  ~ASink() override { set_sink({}); }
  void log(const std::string& line) {
    INFO << module("door") << line;
    INFO.do_flush();
  }
  /// At the next line the sink calls `act` and replaces itself by one that collects the lines after it.
  void at_next_line(const std::function<void()>& act) {
    set_sink([this, act](int, const std::string&, const std::string&) {
      set_sink([this](int, const std::string&, const std::string& line) { taken += line; });
      act();
    });
  }
  std::string taken;
};

TEST_F(ASink, ThatLogsDoesSoToStandardError) {
  at_next_line([this] { log("inside"); });
  testing::internal::CaptureStderr();
  log("outside");
  const std::string written = testing::internal::GetCapturedStderr();
  EXPECT_NE(written.find(" INFO door: inside\n"), std::string::npos) << written;
  EXPECT_EQ(taken, "");
}

TEST_F(ASink, ThatFailsCostsItsLineOnly) {
  at_next_line([] {
    errno = ENOSPC;
    throw "full";
  });
  errno = EAGAIN;
  log("lost");
  EXPECT_EQ(errno, EAGAIN);
  log("next");
  EXPECT_EQ(taken, "next");
}

TEST_F(ASink, CanBeCancelledWithItsThread) {
  at_next_line([] {
    ::pthread_cancel(::pthread_self());
    ::pthread_testcancel();
  });
  std::thread([this] {
    log("lost");
    ADD_FAILURE() << "the thread goes on";
  }).join();
  log("next");
  EXPECT_EQ(taken, "next");
}
