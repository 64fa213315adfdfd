#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "logging/logging.h"

using namespace ecu::vorn::logging;

static void log_a_line() {
  INFO << module("door") << "line";
  INFO.do_flush();
}

/// Replaces the sink while another thread logs: ThreadSanitizer reports a sink that is not guarded.
TEST(AForkedChild, LogsWhateverOtherThreadsWereDoing) {
  std::atomic<bool> done{false};
  std::thread other([&done] {
    while (!done) log_a_line();
  });
  for (int i = 0, status = 0; i < 20 && status == 0; ++i) {
    set_sink([](int, const std::string&, const std::string&) { (void)module("asked for in a sink"); });
    if (::fork() == 0) {
      ::alarm(60);  // ends a child that waits for a lock for ever
      log_a_line();
      ::_exit(0);
    }
    ::wait(&status);
    EXPECT_EQ(status, 0);
  }
  done = true;
  other.join();
}
