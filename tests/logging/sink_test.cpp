#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <thread>

#include "logging/logging.h"

using namespace ecu::vorn::logging;

namespace {

struct ASink : testing::Test {
  ~ASink() override { set_sink({}); }
  void log(const std::string& line) {
    INFO << door << line;
    INFO.do_flush();
  }
  /// What the function writes to standard error.
  template <typename Function>
  std::string standard_error(Function function) {
    testing::internal::CaptureStderr();
    function();
    return testing::internal::GetCapturedStderr();
  }

  const std::shared_ptr<LogModule> door = module("door");
  std::string taken;
};

TEST_F(ASink, ThatLogsDoesSoToStandardError) {
  set_sink([this](int, const std::string&, const std::string& line) {
    taken += line;
    log("inside");
  });
  const std::string written = standard_error([this] { log("outside"); });
  EXPECT_EQ(taken, "outside");
  EXPECT_NE(written.find(" INFO door: inside\n"), std::string::npos) << written;
}

TEST_F(ASink, ThatThrowsLosesItsLineOnly) {
  set_sink([this](int, const std::string&, const std::string& line) {
    if (line == "bad") throw std::runtime_error(line);
    taken += line;
  });
  log("bad");
  log("good");
  EXPECT_EQ(taken, "good");
}

TEST_F(ASink, DoesNotChangeErrno) {
  set_sink([](int, const std::string&, const std::string&) { errno = ENOSPC; });
  errno = EAGAIN;
  log("line");
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(ASink, MayReplaceItself) {
  set_sink([this](int, const std::string&, const std::string&) {
    set_sink([this](int, const std::string&, const std::string& line) { taken += line; });
  });
  log("first");
  log("second");
  EXPECT_EQ(taken, "second");
}

TEST_F(ASink, ThatIsEmptyMeansStandardError) {
  set_sink({});
  EXPECT_NE(standard_error([this] { log("line"); }), "");
}

TEST_F(ASink, MayBeCancelledWithItsThread) {
  set_sink([](int, const std::string&, const std::string&) {
    ::pthread_cancel(::pthread_self());
    ::pthread_testcancel();
  });
  std::thread([this] {
    log("never taken");
    ADD_FAILURE() << "the thread was not cancelled";
  }).join();
  set_sink([this](int, const std::string&, const std::string& line) { taken = line; });
  log("next");
  EXPECT_EQ(taken, "next");
}

}  // namespace
