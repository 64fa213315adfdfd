#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "logging/logging.h"

using namespace ecu::vorn::logging;

TEST(AForkedChild, CanLogWhateverOtherThreadsWereDoing) {
  const auto door = module("door");
  const auto log = [&door] {
    INFO << door << "line";
    INFO.do_flush();
  };
  set_sink([](int, const std::string&, const std::string&) { (void)module("asked for in a sink"); });
  std::atomic<bool> done{false};
  std::thread other([&] {
    while (!done) log();
  });
  for (int i = 0; i < 20; ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::alarm(60);  // ends a child that waits for a lock
      log();
      ::_exit(0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  done = true;
  other.join();
  set_sink({});
}
