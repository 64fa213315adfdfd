#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/descriptors.h"
#include "support/recorded_log.h"
#include "support/soon.h"
#include "support/traffic.h"

// The library on the ports that keltipc-portsim makes. KELTIPC_PORTSIM is the command that starts it, KELTIPC_BACKEND
// the kind of port.
namespace ecu::vorn::ipc::test {
namespace {

const std::string backend = std::getenv("KELTIPC_BACKEND");
const bool is_cuse = backend == "cuse";

/// A longer run is the same test with a larger number.
std::uint32_t number(const char* variable, std::uint32_t usual) {
  const char* const asked = std::getenv(variable);
  return asked == nullptr ? usual : static_cast<std::uint32_t>(std::strtoul(asked, nullptr, 10));
}

/// The status of a process, once it has ended.
int ended(pid_t child) {
  int status = -1;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// keltipc-portsim as it runs.
struct Port {
  explicit Port(const std::string& options = "", const std::string& suffix = "")
      : path(testing::TempDir() + "port." + std::to_string(::getpid()) + suffix) {
    const std::string command =
        "exec " + std::string(std::getenv("KELTIPC_PORTSIM")) + " --backend " + backend + " " + options + " " + path;
    ::unlink(path.c_str());  // of a run that was killed
    process = ::fork();
    if (process == 0) ::_exit(::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr));
    if (!soon([this] { return ::access(path.c_str(), F_OK) == 0; })) throw std::runtime_error(command);
  }
  Port(const Port&) = delete;
  ~Port() {
    ::kill(process, SIGTERM);
    EXPECT_EQ(ended(process), 0);
  }

  const std::string path;
  pid_t process;
};

/// Acts in a process of its own, which waits for something or has ended when this returns.
template <typename Act>
pid_t elsewhere(Act act) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(act());
  EXPECT_TRUE(soon([child] {
    std::string word;
    std::ifstream record("/proc/" + std::to_string(child) + "/stat");
    record >> word >> word >> word;
    return word == "S" || word == "Z";
  }));
  return child;
}

template <std::size_t N>
bool send_all(const std::string& path, const Traffic& traffic) {
  QueuePortWriter<N> writer;
  IpcSignal signal = sampling_frame_start();
  bool sent = writer.open(path) && writer.transmit_data(signal);
  for (std::uint32_t n = 0; sent && n < traffic.count; ++n) {
    traffic.make(n, signal);
    sent = writer.transmit_data(signal);
  }
  return sent;
}

template <std::size_t N>
void passes(const Traffic& traffic) {
  SCOPED_TRACE(N);
  const Port port("--frame " + std::to_string(N + 8));
  std::uint32_t came = 0;
  QueuePortReader<N> reader(std::make_unique<TrafficChecker>(traffic, came, [&] { reader.stop(); }));
  ASSERT_TRUE(reader.open(port.path));
  const pid_t sender = elsewhere([&] { return send_all<N>(port.path, traffic) ? 0 : 1; });
  reader.receive_data();
  EXPECT_EQ(came, traffic.count);
  EXPECT_EQ(ended(sender), 0);
}

TEST(APort, PassesSignalsBetweenTwoProcessesWholeAndInOrder) {
  const Traffic usual{number("KELTIPC_TRAFFIC", 500), 1, is_cuse ? 200U : 2'000U};
  passes<8>(usual);
  passes<24>(usual);
  if (!is_cuse) return;
  passes<8>({1, 65'535, 65'535});
  passes<24>({1, 65'535, 65'535});
  passes<4088>({number("KELTIPC_TRAFFIC", 2'000), 1, 65'535});
}

struct Enough {};

/// Takes signals with rising identifiers, each behind the one before, and leaves the loop at `enough`.
struct Counter : IDataConsumer<IpcSignal> {
  void consume(IpcSignal&& signal) override {
    EXPECT_TRUE(signal.signal_id == last + 1 || last == 0) << signal.signal_id << " behind " << last;
    last = signal.signal_id;
    if (last >= enough) throw Enough();
  }

  std::uint32_t last = 0;
  std::atomic<std::uint32_t> enough{0};
};

/// Another device under the same name, at once; the one of before has ended, or has lost its name.
void take_away_and_give_back(std::unique_ptr<Port>& port, const std::string& path) {
  if (!is_cuse) {
    auto other = std::make_unique<Port>("--depth 8", ".next");
    ASSERT_EQ(::rename(other->path.c_str(), path.c_str()), 0);
    port = std::move(other);
    return;
  }
  struct stat node {};
  const std::string device = "/dev/" + std::filesystem::read_symlink(path).filename().string();
  ASSERT_EQ(::stat(device.c_str(), &node), 0);
  ASSERT_TRUE(::unlink(device.c_str()) == 0 && ::mknod(device.c_str(), node.st_mode, node.st_rdev) == 0);
}

TEST(APort, TakenAwayAndGivenBackWhileSignalsAreSentIsFoundAgainEachTime) {
  const std::uint32_t removals = number("KELTIPC_REMOVALS", is_cuse ? 50 : 10);
  Transcript lines;
  const RecordedLog log(lines, "ipc.queuewriter", 5);
  auto port = std::make_unique<Port>("--depth 8");
  const std::string path = port->path;
  auto* const counter = new Counter;
  QueuePortReader<8> reader{std::unique_ptr<Counter>(counter)};
  std::atomic<std::uint32_t> sent{0};
  std::atomic<bool> done{false};
  std::thread sender([&] {
    QueuePortWriter<8> writer;
    EXPECT_TRUE(writer.open(path));
    const auto send = [&] {
      EXPECT_TRUE(writer.transmit_data(sampling_frame_start()));
      EXPECT_TRUE(writer.transmit_data({++sent, 0, 0, std::vector<char>(1 + sent % 40)}));
    };
    while (!done) send();
    counter->enough = sent + 1;
    send();
  });
  int descriptors = 0;
  for (std::uint32_t removal = 0; removal <= removals; ++removal) {
    if (removal > 0) take_away_and_give_back(port, path);
    if (!is_cuse) counter->last = 0;  // What the device of before still held went with it.
    EXPECT_TRUE(reader.open(path));
    // The second signal from here on goes through a port that the writer has looked at anew.
    counter->enough = sent + 2;
    EXPECT_THROW(reader.receive_data(), Enough);
    if (removal == 0) descriptors = open_descriptors();
  }
  EXPECT_EQ(open_descriptors(), descriptors);
  counter->enough = std::numeric_limits<std::uint32_t>::max();
  done = true;
  EXPECT_THROW(reader.receive_data(), Enough);
  sender.join();
  ::unlink(path.c_str());
  EXPECT_EQ(counter->last, sent);
  const std::string gone = "ERROR The TX queue is no longer available! Will try to reopen the port.";
  EXPECT_EQ(std::count(lines.begin(), lines.end(), gone), removals);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "NOTICE Successfully reopened the TX queue"), removals);
  EXPECT_EQ(lines.size(), 2 * removals);
  std::printf("%u removals, %u signals sent, %d descriptors before and after\n", removals, sent.load(), descriptors);
}

/// A pseudo-terminal's messages are there a little later than they were sent, a CUSE device's at once.
bool all_arrived(const std::string& path, const Traffic& traffic) {
  if (is_cuse) return true;
  IpcSignal signal = sampling_frame_start();
  std::size_t frames = 1;
  for (std::uint32_t n = 0; n < traffic.count; ++n) {
    traffic.make(n, signal);
    frames += (signal.data.size() + 7) / 8;
  }
  const int port = ::open(path.c_str(), O_RDONLY | O_NOCTTY);
  int bytes = 0;
  const bool arrived =
      soon([&] { return ::ioctl(port, FIONREAD, &bytes) == 0 && bytes == static_cast<int>(16 * frames); });
  ::close(port);
  return arrived;
}

TEST(AStoppedReader, TakesAllThatAPortHoldsAndEndsOnceItIsQuiet) {
  using std::chrono::steady_clock;
  const Traffic held{50, 1, 40};
  const Port port;
  std::uint32_t came = 0;
  steady_clock::time_point quiet_since;
  QueuePortReader<8> reader(std::make_unique<TrafficChecker>(held, came, [&] { quiet_since = steady_clock::now(); }));
  ASSERT_TRUE(reader.open(port.path) && send_all<8>(port.path, held) && all_arrived(port.path, held));
  reader.stop();
  reader.receive_data();
  EXPECT_EQ(came, held.count);
  const std::chrono::duration<double> quiet = steady_clock::now() - quiet_since;
  EXPECT_GE(quiet.count(), 0.3);
  EXPECT_LT(quiet.count(), 10) << "one slice, and what a machine adds that has other things to do";
  std::printf("ended after %.3f s of quiet\n", quiet.count());
}

/// Opens a device that appears after that time. False where the machine did something else when it mattered.
bool opens_late_device(std::chrono::milliseconds after, Transcript& lines) {
  using std::chrono::steady_clock;
  constexpr std::chrono::milliseconds slack(150);
  const std::string late = testing::TempDir() + "late." + std::to_string(::getpid());
  const RecordedLog log(lines, "ipc.queuereader", 6);
  QueuePortReader<8> reader(nullptr);
  const auto began = steady_clock::now();
  steady_clock::time_point made;
  std::thread maker([&] {
    std::this_thread::sleep_until(began + after);
    EXPECT_EQ(::symlink("/dev/null", late.c_str()), 0);
    made = steady_clock::now();
  });
  EXPECT_TRUE(reader.open(late));
  const auto opened = steady_clock::now();
  maker.join();
  ::unlink(late.c_str());
  return made < began + after + slack && opened > began + after && opened < began + std::chrono::seconds(3) + slack;
}

TEST(ALateDevice, IsOpenedAtTheNextAttempt) {
  for (int trial = 0; trial < 5; ++trial) {
    Transcript lines;
    if (!opens_late_device(std::chrono::milliseconds(2'800), lines)) continue;
    EXPECT_THAT(lines, testing::ElementsAre(testing::EndsWith("opened (retries: 6)")));
    return;
  }
  FAIL() << "in five trials it was not opened within 3.15 s";
}

class ACuseDevice : public testing::Test {
 protected:
  ACuseDevice() : fd(::open(port.path.c_str(), O_RDWR)), quick(::open(port.path.c_str(), O_RDWR | O_NONBLOCK)) {
    struct sigaction interrupt {};
    interrupt.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &interrupt, nullptr);
  }
  ~ACuseDevice() override {
    ::close(fd);
    ::close(quick);
  }
  /// Each gives a count, or the error number.
  int reads(int from) { return result(::read(from, message, 16)); }
  int writes(int to, std::size_t size) { return result(::write(to, message, size)); }
  int polls(short events, int time) {
    pollfd watched{fd, events, 0};
    ::poll(&watched, 1, time);
    return watched.revents;
  }
  static int result(ssize_t count) { return count < 0 ? errno : static_cast<int>(count); }
  static int interrupted(pid_t child) {
    for (siginfo_t left{}; left.si_pid == 0;
         ::waitid(P_PID, static_cast<id_t>(child), &left, WEXITED | WNOHANG | WNOWAIT)) {
      ::kill(child, SIGUSR1);
    }
    return ended(child);
  }

  Port port{"--depth 1"};
  int fd;
  int quick;
  char message[16]{};
};

TEST_F(ACuseDevice, TellsWhatGoesOnAtOnceAndMakesTheRestWaitUntilASignalInterrupts) {
  EXPECT_EQ(polls(POLLIN | POLLOUT, 0), POLLOUT);
  EXPECT_EQ(reads(quick), EAGAIN);
  EXPECT_EQ(interrupted(elsewhere([&] { return reads(fd); })), EINTR);
  EXPECT_EQ(writes(quick, 5), 5);
  EXPECT_EQ(polls(POLLIN | POLLOUT, 0), POLLIN);
  EXPECT_EQ(writes(quick, 16), EAGAIN);
  EXPECT_EQ(interrupted(elsewhere([&] { return writes(fd, 16); })), EINTR);
  EXPECT_EQ(reads(fd), 5);
}

TEST_F(ACuseDevice, ServesAllThatWait) {
  const pid_t poller = elsewhere([&] { return polls(POLLIN, 20'000); });
  const pid_t readers[] = {elsewhere([&] { return reads(fd); }), elsewhere([&] { return reads(fd); })};
  EXPECT_EQ(writes(fd, 3), 3);
  EXPECT_EQ(writes(fd, 4), 4);
  EXPECT_EQ(ended(readers[0]) + ended(readers[1]), 7);
  EXPECT_EQ(writes(fd, 1), 1);
  EXPECT_EQ(ended(poller), POLLIN);
  const pid_t writers[] = {elsewhere([&] { return writes(fd, 7); }), elsewhere([&] { return writes(fd, 9); })};
  EXPECT_EQ(reads(fd) + reads(fd) + reads(fd), 17);
  EXPECT_EQ(ended(writers[0]) + ended(writers[1]), 16);
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
