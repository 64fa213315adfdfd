#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>

#include "support/pty_loopback.h"

namespace {

using kelttest::PtyLoopback;
using testing::HasSubstr;
using testing::IsEmpty;

/// A file that is removed in the end.
struct TemporaryFile {
  explicit TemporaryFile(const std::string& content = {}) {
    ::close(::mkstemp(path.data()));
    std::ofstream(path) << content;
  }
  ~TemporaryFile() { ::unlink(path.c_str()); }
  std::string content() const {
    std::ostringstream all;
    all << std::ifstream(path).rdbuf();
    return all.str();
  }

  std::string path = testing::TempDir() + "/keltipc.XXXXXX";
};

/// The real tool, running.
class Tool {
 public:
  explicit Tool(const std::string& arguments) {
    const char* const tool = std::getenv("KELTIPC_TOOL");
    if (tool == nullptr) throw std::runtime_error("KELTIPC_TOOL does not name the tool");
    const std::string command = std::string("echo $$; exec ") + tool + " " + arguments + " 2>" + errors.path;
    output = ::popen(command.c_str(), "re");
    process = std::stoi(line());
  }
  ~Tool() {
    if (output != nullptr) finish();
  }
  std::string line() {
    std::string result;
    for (int c = std::fgetc(output); c != EOF && c != '\n'; c = std::fgetc(output)) result += static_cast<char>(c);
    return result;
  }
  std::string lines(int count) {
    std::string result;
    for (; count > 0; --count) result += line() + "\n";
    return result;
  }
  void kill(int signal) const { ::kill(process, signal); }
  /// Closes its standard output and waits for its end.
  int finish() {
    const int status = ::pclose(std::exchange(output, nullptr));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  TemporaryFile errors;

 private:
  FILE* output = nullptr;
  pid_t process = 0;
};

struct Result {
  int status;
  std::string output;
  std::string errors;
};

Result run(const std::string& arguments) {
  Tool tool(arguments);
  Result result{};
  for (std::string line = tool.line(); !line.empty(); line = tool.line()) result.output += line + "\n";
  result.status = tool.finish();
  result.errors = tool.errors.content();
  return result;
}

/// A log without its times.
std::string signals_of(const std::string& log) {
  std::istringstream lines(log);
  std::string result;
  for (std::string line; std::getline(lines, line);) result += line.substr(line.rfind(' ') + 1) + " ";
  return result;
}

const std::string one_signal = " --frame-start 0=1f 1000005a#0aff";

void expect_round_trip(unsigned int frame) {
  PtyLoopback port(frame);
  const std::string with_frame = port.path + " --frame " + std::to_string(frame);
  const TemporaryFile long_payload(std::string(65535, 'k'));
  const TemporaryFile lines("0#0200000000000000\n\n6# 01.02 03\n7#\n");
  Tool first("dump " + with_frame + " -n 3");
  const Result sent =
      run("send " + with_frame + one_signal + " 7#@" + long_payload.path + " - --gap 1 <" + lines.path);
  EXPECT_EQ(sent.status, 0);
  EXPECT_EQ(sent.errors, "keltipc: signal 7 has no data: no frame is written\n");
  const std::string log = first.lines(3);
  EXPECT_EQ(first.finish(), 0);
  std::string bytes;
  for (int i = 0; i < 65535; ++i) bytes += "6b";
  EXPECT_EQ(signals_of(log), "5a:1:1f#0aff 7:0:1f#" + bytes + " 6:0:2#010203 ");

  const TemporaryFile file(log);
  Tool second("dump " + with_frame + " -n 3 --frame-start 10");
  EXPECT_EQ(run("send " + with_frame + " --no-timing --frame-start 10 --replay " + file.path).status, 0);
  EXPECT_EQ(signals_of(second.lines(3)), signals_of(log));
  EXPECT_EQ(second.finish(), 0);
}

TEST(Keltipc, DumpReplayDumpGivesTheSameSignals) {
  expect_round_trip(16);
  expect_round_trip(32);
}

TEST(Keltipc, RefusesBadInputByNameAndSendsNothing) {
  PtyLoopback port(16);
  const TemporaryFile too_long(std::string(65536, 'k'));
  const TemporaryFile bad_log("(1.000000) p 5:0:1#00\n(1.000000) p 5:0:1#0\n");
  const std::string send = "send " + port.path + " --frame-start 0=1 5#00 ";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {send + "6#1", "'6#1'"},
      {send + "6#@" + too_long.path, too_long.path},
      {send + "6#@/nowhere", "/nowhere"},
      {send + "--frame 64", "'64'"},
      {send + "--gap 1x", "'1x'"},
      {send + "--wait -1", "'-1'"},
      {"send " + port.path + " --replay " + bad_log.path, "line 2"},
      {"send " + port.path + " --replay /nowhere", "/nowhere"},
      {"send " + port.path, "nothing to send"},
      {"send " + bad_log.path + " 5#00", "'" + bad_log.path + "': is no character device"},
      {"dump " + bad_log.path, "is no character device"},
      {"dump " + port.path + ",5", "'5'"},
      {"dump " + port.path + " -n 0", "'0'"},
      {"dump " + port.path + " --json -t a", "--json"},
      {"dump", "DEVICE"},
  };
  for (const auto& [arguments, named] : cases) {
    const Result result = run(arguments);
    EXPECT_EQ(result.status, 2) << arguments;
    EXPECT_THAT(result.errors, HasSubstr(named)) << arguments;
    EXPECT_THAT(result.output, IsEmpty()) << arguments;
  }
  const TemporaryFile lines("5#01\n6#1\n7#01\n");
  const Result bad_line = run("send " + port.path + " --frame-start 0=1 - <" + lines.path);
  EXPECT_EQ(bad_line.status, 1);
  EXPECT_THAT(bad_line.errors, HasSubstr("line 2: '6#1'"));
  EXPECT_EQ(signals_of(run("dump --idle 100 " + port.path).output), "5:0:1#01 ");
}

TEST(Keltipc, DumpPrintsTheFormAskedFor) {
  PtyLoopback port(16);
  const std::string printed = "  5a: 01, 1f { 0a ff }";
  const std::string pattern = "  5a: 01, 1f [{] 0a ff [}]\n$";
  const auto dump = [&](const std::string& options) {
    run("send " + port.path + one_signal + " 5b#01");
    return run("dump --idle 100 " + port.path + options).output;
  };
  EXPECT_THAT(dump(",5a:ff -t a"), testing::ContainsRegex("^20..-..-..T..:..:..[.]......Z" + pattern));
  EXPECT_THAT(dump(",5b~ff -t d"), testing::ContainsRegex("^[0-9]+[.]......" + pattern));
  EXPECT_THAT(dump(" -n 1 --json"), HasSubstr(R"(,"id":"5a","status":1,"sampling_frame":"1f","data":"0aff"})"));
  run("dump --idle 100 " + port.path);

  std::string shown(std::string("2024-12-27T03:34:56.916858Z\n").size() + printed.size(), ' ');
  PtyLoopback terminal(static_cast<unsigned int>(shown.size()));
  run("send " + port.path + one_signal);
  EXPECT_EQ(run("dump -n 1 " + port.path + " >" + terminal.path).status, 0);
  ASSERT_EQ(::read(terminal.slave, shown.data(), shown.size()), static_cast<ssize_t>(shown.size()));
  EXPECT_THAT(shown, HasSubstr("Z" + printed + "\n"));
}

TEST(Keltipc, DumpEndsByASignalOnAQuietPortAndOnABusyOne) {
  PtyLoopback port(16);
  Tool quiet("dump " + port.path);
  run("send " + port.path + one_signal);
  EXPECT_THAT(quiet.line(), HasSubstr(" 5a:1:1f#0aff"));
  quiet.kill(SIGINT);
  EXPECT_EQ(quiet.line(), "");
  EXPECT_EQ(quiet.finish(), 128 + SIGINT);
  EXPECT_EQ(quiet.errors.content(), "keltipc: 1 signal\n");

  run("send " + port.path + " --frame-start 0=1 5#");
  std::atomic<bool> ended{false};
  std::thread traffic([&] {
    const std::string whole_signal("\5\0\0\0\0\0\1\0k\0\0\0\0\0\0\0", 16);
    for (; !ended; ::usleep(20'000)) EXPECT_EQ(::write(port.slave, whole_signal.data(), 16), 16);
  });
  Tool busy("dump " + port.path);
  busy.line();
  busy.kill(SIGTERM);
  while (!busy.line().empty()) continue;
  EXPECT_EQ(busy.finish(), 128 + SIGTERM);
  EXPECT_THAT(busy.errors.content(), testing::ContainsRegex("^keltipc: [0-9]+ signals\n$"));
  ended = true;
  traffic.join();
}

TEST(Keltipc, DumpEndsWhenNobodyReadsNothingComesOrTheDeviceGoes) {
  auto port = std::make_unique<PtyLoopback>(16);
  const std::string path = port->path;
  EXPECT_EQ(run("dump --idle 50 " + path).status, 124);

  Tool unread("dump " + path);
  run("send " + path + one_signal);
  unread.line();
  EXPECT_EQ(unread.finish(), 0);
  EXPECT_THAT(unread.errors.content(), IsEmpty());
  run("send " + path + one_signal);
  EXPECT_EQ(run("dump " + path + " >/dev/full").status, 1);

  Tool watching("dump " + path);
  run("send " + path + one_signal);
  EXPECT_THAT(watching.line(), HasSubstr(" 5a:1:1f#0aff"));
  port.reset();
  // Until the node goes too, a port that hung up hands on its last frame again and again.
  while (!watching.line().empty()) continue;
  EXPECT_EQ(watching.finish(), 1);
  EXPECT_EQ(watching.errors.content(), "keltipc: '" + path + "' is gone\n");

  const Result waited = run("send " + path + one_signal + " --wait 0");
  EXPECT_EQ(waited.status, 124);
  EXPECT_THAT(waited.errors, HasSubstr("waiting up to 0 s for '" + path + "'"));
}

}  // namespace
