#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>

#include "logging/logging.h"

using namespace ecu::vorn::logging;

namespace {

bool interrupts_next_write = false, cuts_next_write = false;

}  // namespace

/// In place of libc's.
extern "C" ssize_t write(int fd, const void* bytes, size_t size) {
  if (std::exchange(interrupts_next_write, false)) {
    errno = EINTR;
    return -1;
  }
  const iovec part{const_cast<void*>(bytes), std::exchange(cuts_next_write, false) ? 3 : size};
  return ::writev(fd, &part, 1);
}

namespace {

/// A pipe takes the place of standard error. In packet mode each read(2) gives what one write(2) wrote.
struct StandardError : testing::Test {
  StandardError() {
    EXPECT_EQ(::pipe2(ends, O_DIRECT | O_NONBLOCK), 0);
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[1]);
  }
  ~StandardError() override {
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    ::close(ends[0]);
  }
  std::string next_write() {
    char bytes[256];
    const ssize_t size = ::read(ends[0], bytes, sizeof bytes);
    return {bytes, static_cast<std::size_t>(std::max<ssize_t>(0, size))};
  }
  /// Without the time stamp.
  std::string written(int level, const std::string& module, const std::string& text) {
    stderr_sink(level, module, text);
    return next_write().substr(sizeof "2024-05-04T12:30:01.250Z");
  }

  int ends[2];
  const int saved = ::dup(STDERR_FILENO);
};

TEST_F(StandardError, TakesALineInOneWrite) {
  EXPECT_EQ(written(6, "app.door", "opened"), "INFO app.door: opened\n");
  EXPECT_EQ(next_write(), "");
}

TEST_F(StandardError, NamesTheLevels) {
  EXPECT_EQ(written(7, "a", ""), "DEBUG a: \n");
  EXPECT_EQ(written(0, "a", ""), "EMERGENCY a: \n");
  EXPECT_EQ(written(8, "a", ""), "LOG a: \n");
  EXPECT_EQ(written(-1, "a", ""), "LOG a: \n");
}

TEST_F(StandardError, EscapesControlCharacters) {
  EXPECT_EQ(written(3, "a\n", "\r\n\t\x1f \x7f\x1b[2J"), "ERROR a\\x0a: \\x0d\\x0a\\x09\\x1f \\x7f\\x1b[2J\n");
  EXPECT_EQ(written(3, "a", "\u0080 \u009f \xc2"), "ERROR a: \\xc2\\x80 \\xc2\\x9f \xc2\n");
}

TEST_F(StandardError, KeepsOtherUtf8) {
  EXPECT_EQ(written(3, "a", "\u00a0\u00c4 \u20ac \x9b"), "ERROR a: \u00a0\u00c4 \u20ac \x9b\n");
}

TEST_F(StandardError, StampsLinesWithMillisecondsInUtc) {
  ::setenv("TZ", "EST5", 1);
  ::tzset();
  const std::time_t before = std::time(nullptr);
  stderr_sink(6, "", "");
  const std::string line = next_write();
  std::tm utc{};
  const char* const fraction = ::strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
  ASSERT_NE(fraction, nullptr) << line;
  EXPECT_TRUE(::timegm(&utc) >= before && ::timegm(&utc) <= std::time(nullptr) + 1)
      << line;  // time(2) may be a tick late
  EXPECT_TRUE(fraction[0] == '.' && std::all_of(fraction + 1, fraction + 4, ::isdigit) && fraction[4] == 'Z') << line;
}

TEST_F(StandardError, TakesTheRestOfALineAfterAShortWrite) {
  cuts_next_write = true;
  stderr_sink(3, "door", "jammed");
  EXPECT_EQ(next_write().size(), 3U);
  EXPECT_NE(next_write().find("Z ERROR door: jammed\n"), std::string::npos);
}

TEST_F(StandardError, TakesALineAfterAnInterruptedWrite) {
  interrupts_next_write = true;
  EXPECT_EQ(written(3, "door", "jammed"), "ERROR door: jammed\n");
}

TEST_F(StandardError, WithoutAReaderRaisesNoSignal) {
  ::close(ends[0]);
  stderr_sink(3, "door", "jammed");
  sigset_t blocked;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  EXPECT_EQ(::sigismember(&blocked, SIGPIPE), 0);
  EXPECT_EQ(errno, EPIPE);
}

}  // namespace
