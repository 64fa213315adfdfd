#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "logging/logging.h"

using namespace ecu::vorn::logging;

/// A pipe in packet mode takes its place: each write(2) comes out apart.
struct StandardError : ::testing::Test {
  StandardError() { ::pipe2(ends, O_DIRECT | O_NONBLOCK) == 0 && ::dup2(ends[1], STDERR_FILENO) && ::close(ends[1]); }
  ~StandardError() override { ::dup2(saved, STDERR_FILENO); }
  std::string next_write() {
    char bytes[256] = "";
    return {bytes, static_cast<std::size_t>(std::max<ssize_t>(0, ::read(ends[0], bytes, sizeof bytes)))};
  }

  int ends[2];
  const int saved = ::dup(STDERR_FILENO);
};

TEST_F(StandardError, TakesALineInOneWriteInUtcWithControlCharactersEscaped) {
  struct {
    int level;
    std::string module, text, written;
  } const cases[] = {{7, "", "", "DEBUG : \n"},
                     {5, "a", "\u00c4 \u20ac \u00b5", "NOTICE a: \u00c4 \u20ac \u00b5\n"},
                     {4, "a\n", "b\r\n\t\x1f\x7f", "WARNING a\\x0a: b\\x0d\\x0a\\x09\\x1f\\x7f\n"},
                     {3, "a", "\x1b[2J \u009b \xc2", "ERROR a: \\x1b[2J \\xc2\\x9b \xc2\n"},
                     {2, "a", "b", "CRITICAL a: b\n"},
                     {6, "app.door", "opened", "INFO app.door: opened\n"}};
  ::setenv("TZ", "EST5", 1);
  for (const auto& c : cases) {
    const std::time_t before = std::time(nullptr);
    stderr_sink(c.level, c.module, c.text);
    const std::string line = next_write();
    std::tm utc{};
    const char* const fraction = ::strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    // time(2) reads a clock that is a tick behind.
    EXPECT_TRUE(::timegm(&utc) >= before && ::timegm(&utc) <= std::time(nullptr) + 1) << line;
    EXPECT_EQ(fraction + std::strspn(fraction, ".0123456789"), "Z " + c.written);
    EXPECT_EQ(fraction[4], 'Z') << "no milliseconds: " << line;
    EXPECT_EQ(next_write(), "") << "more than one write";
  }
}

static int troubles = 0;  // what the next writes meet: an interruption, then room for three bytes
extern "C" ssize_t write(int fd, const void* bytes, size_t size) {
  const iovec part{const_cast<void*>(bytes), troubles == 1 ? 3 : size};
  if (troubles > 0 && troubles-- == 2) return errno = EINTR, -1;
  return ::writev(fd, &part, 1);
}

TEST_F(StandardError, TakesTheRestOfALineWhereAWriteIsInterruptedOrCutShort) {
  troubles = 2;
  stderr_sink(3, "door", "jammed");
  EXPECT_EQ(next_write().size(), 3U);
  EXPECT_THAT(next_write(), ::testing::EndsWith("Z ERROR door: jammed\n"));
}

TEST_F(StandardError, ThatNobodyReadsCostsTheLineAndNotTheProcess) {
  ::close(ends[0]);
  stderr_sink(3, "door", "jammed");
  sigset_t blocked;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  EXPECT_EQ(::sigismember(&blocked, SIGPIPE), 0);
}

static std::vector<std::string> fields;
static int journal_result = -1;

/// Looks on, and passes the entry to the journal, where there is one.
extern "C" int sd_journal_sendv(const iovec* parts, int count) {
  for (int i = 0; i < count; ++i) fields.emplace_back(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
  const auto send = reinterpret_cast<int (*)(const iovec*, int)>(::dlsym(RTLD_NEXT, "sd_journal_sendv"));
  return journal_result = send(parts, count);
}

TEST(TheJournal, GetsPriorityAndModuleAsFieldsAndMayBeAbsent) {
  journal_sink(4, "app.door", "half\nopen");
  EXPECT_THAT(fields, ::testing::UnorderedElementsAre("MESSAGE=half\nopen", "PRIORITY=4", "KELT_MODULE=app.door"));
  EXPECT_EQ(journal_result, 0);
}
