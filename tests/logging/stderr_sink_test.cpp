#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/uio.h>
#include <unistd.h>

#include <csignal>
#include <deque>
#include <regex>

#include "logging/logging.h"

using ecu::vorn::logging::stderr_sink;

/// What the next writes do. Afterwards they write all.
enum class Write { is_interrupted, writes_three_bytes };
static std::deque<Write> next_writes;

/// Replaces libc's function.
extern "C" ssize_t write(int fd, const void* bytes, size_t size) {
  iovec part{const_cast<void*>(bytes), size};
  if (next_writes.empty()) return ::writev(fd, &part, 1);
  const Write what = next_writes.front();
  next_writes.pop_front();
  errno = EINTR;
  if (what == Write::is_interrupted) return -1;
  part.iov_len = 3;
  return ::writev(fd, &part, 1);
}

/// A pipe takes the place of standard error. In packet mode each read(2) gives what one write(2) wrote.
struct StandardError : testing::Test {
  StandardError() {
    EXPECT_EQ(::pipe2(ends, O_DIRECT | O_NONBLOCK), 0);
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[1]);
  }
  ~StandardError() override { ::dup2(saved, STDERR_FILENO); }
  std::string next_write() {
    char bytes[256];
    const ssize_t size = ::read(ends[0], bytes, sizeof bytes);
    return size < 0 ? "" : std::string(bytes, static_cast<std::size_t>(size));
  }
  /// What one line writes, without the time stamp.
  std::string written(int level, const std::string& module, const std::string& text) {
    stderr_sink(level, module, text);
    return next_write().substr(sizeof "2024-05-04T12:30:01.250Z");
  }

  int ends[2];
  const int saved = ::dup(STDERR_FILENO);
};

TEST_F(StandardError, TakesALineInOneWrite) {
  EXPECT_EQ(written(0, "app.door", "opened"), "EMERGENCY app.door: opened\n");
  EXPECT_EQ(written(7, "", ""), "DEBUG : \n");
  EXPECT_EQ(written(8, "", "") + written(-1, "", ""), "LOG : \nLOG : \n");
}

TEST_F(StandardError, EscapesControlCharactersOnly) {
  EXPECT_EQ(written(3, "\n", "\t\x1f \x7f\u0080\u009f"), "ERROR \\x0a: \\x09\\x1f \\x7f\\xc2\\x80\\xc2\\x9f\n");
  EXPECT_EQ(written(3, "", "\u00a0 \u20ac\x9b \xc2"), "ERROR : \u00a0 \u20ac\x9b \xc2\n");
}

TEST_F(StandardError, StampsLinesInUtcWithMilliseconds) {
  ::setenv("TZ", "EST5", 1);
  stderr_sink(6, "", "");
  const std::string line = next_write();
  EXPECT_TRUE(std::regex_search(line, std::regex(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )"))) << line;
  std::tm utc{};
  ::strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
  EXPECT_NEAR(std::difftime(::timegm(&utc), std::time(nullptr)), 0, 60) << line;
}

TEST_F(StandardError, TakesTheWholeLineWhateverTheWritesReturn) {
  next_writes = {Write::is_interrupted, Write::writes_three_bytes};
  stderr_sink(3, "door", "jammed");
  const std::string line = next_write() + next_write();
  EXPECT_NE(line.find("Z ERROR door: jammed\n"), std::string::npos) << line;
}

TEST_F(StandardError, WithoutAReaderCostsTheLineOnly) {
  ::close(ends[0]);
  stderr_sink(3, "door", "jammed");
  sigset_t blocked;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  EXPECT_EQ(::sigismember(&blocked, SIGPIPE), 0);
}
