#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/recorded_log.h"
#include "support/soon.h"
#include "support/traffic.h"

// One set of claims on both kinds of port that keltipc-portsim makes: KELTIPC_PORTSIM is the command that starts it,
// KELTIPC_BACKEND the kind.
namespace ecu::vorn::ipc::test {
namespace {

const std::string backend = std::getenv("KELTIPC_BACKEND");

bool is_cuse() { return backend == "cuse"; }

/// keltipc-portsim as it runs, at a path of its own.
class Port {
 public:
  explicit Port(const std::string& options, std::string where = own_path()) : path(std::move(where)) {
    const std::string command = std::string("exec ") + std::getenv("KELTIPC_PORTSIM") + " --backend " + backend +
                                " " + options + " " + path + " 2>" + record;
    process = ::fork();
    if (process == 0) {
      ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      ::_exit(127);
    }
    soon([&] { return said().find('\n') != std::string::npos; });
  }
  ~Port() {
    if (process > 0) stop();
    ::unlink(record.c_str());
  }
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  /// The exit status after SIGTERM.
  int stop() {
    int status = 0;
    ::kill(process, SIGTERM);
    ::waitpid(std::exchange(process, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  /// The exit status of one that is to end by itself.
  int end() {
    soon([&] {
      siginfo_t left{};
      return ::waitid(P_PID, static_cast<id_t>(process), &left, WEXITED | WNOHANG | WNOWAIT) == 0 && left.si_pid != 0;
    });
    return stop();
  }
  std::string said() const {
    std::ostringstream all;
    all << std::ifstream(record).rdbuf();
    return all.str();
  }
  int open(int flags) const { return ::open(path.c_str(), flags | O_NOCTTY | O_CLOEXEC); }

  const std::string path;

 private:
  static std::string own_path() {
    static int ports = 0;
    return testing::TempDir() + "port." + std::to_string(::getpid()) + "." + std::to_string(++ports);
  }

  const std::string record = own_path();  ///< what it says

  pid_t process = -1;
};

/// Sends in a process of its own; its exit status says whether all was handed over.
template <std::size_t N>
pid_t send_elsewhere(const std::string& path, const Traffic& traffic) {
  const pid_t child = ::fork();
  if (child != 0) return child;
  QueuePortWriter<N> writer;
  IpcSignal signal = sampling_frame_start();
  bool sent = writer.open(path) && writer.transmit_data(signal);
  for (std::uint32_t n = 0; sent && n < traffic.count; ++n) {
    traffic.make(n, signal);
    sent = writer.transmit_data(signal);
  }
  ::_exit(sent ? 0 : 1);
}

template <std::size_t N>
void passes(const Traffic& traffic) {
  SCOPED_TRACE(N);
  const Port port("--frame " + std::to_string(N + 8));
  std::uint32_t came = 0;
  QueuePortReader<N> reader(nullptr);
  reader.set_consumer(std::make_unique<TrafficChecker>(traffic, came, [&] { reader.stop(); }));
  ASSERT_TRUE(reader.open(port.path));
  const pid_t sender = send_elsewhere<N>(port.path, traffic);
  reader.receive_data();
  EXPECT_EQ(came, traffic.count);
  int status = -1;
  ::waitpid(sender, &status, 0);
  EXPECT_EQ(status, 0);
}

std::uint32_t many(std::uint32_t usual) {
  const char* const asked = std::getenv("KELTIPC_TRAFFIC");
  return asked == nullptr ? usual : static_cast<std::uint32_t>(std::strtoul(asked, nullptr, 10));
}

TEST(APort, PassesSignalsBetweenTwoProcessesWholeAndInOrder) {
  const std::uint32_t longest = is_cuse() ? 200 : 2'000;
  passes<8>({many(500), 1, longest});
  passes<24>({many(500), 1, longest});
  if (!is_cuse()) return;
  passes<8>({1, 65'535, 65'535});
  passes<24>({1, 65'535, 65'535});
  passes<4088>({many(2'000), 1, 65'535});
}

TEST(APort, TakenAwayAndGivenBackIsFoundAgainByItsWriter) {
  Transcript lines;
  const RecordedLog log(lines, "ipc.queuewriter", 5);
  auto port = std::make_unique<Port>("--frame 16");
  const std::string path = port->path;
  QueuePortWriter<8> writer;
  ASSERT_TRUE(writer.open(path));
  const Traffic traffic{20, 1, 100};
  for (int round = 0; round < 3; ++round) {
    port.reset();
    port = std::make_unique<Port>("--frame 16", path);
    std::uint32_t came = 0;
    QueuePortReader<8> reader(nullptr);
    reader.set_consumer(std::make_unique<TrafficChecker>(traffic, came, [&] { reader.stop(); }));
    ASSERT_TRUE(reader.open(path));
    IpcSignal signal = sampling_frame_start();
    ASSERT_TRUE(writer.transmit_data(signal));
    for (std::uint32_t n = 0; n < traffic.count; ++n) {
      traffic.make(n, signal);
      ASSERT_TRUE(writer.transmit_data(signal));
    }
    reader.receive_data();
    EXPECT_EQ(came, traffic.count);
  }
  EXPECT_EQ(lines.size(), 6U) << "an ERROR and a NOTICE each time";
}

/// As many messages as the port takes, 0 to 65535 in their first two bytes.
int fill(int fd, int most) {
  int written = 0;
  for (; written < most; ++written) {
    char message[16] = {static_cast<char>(written), static_cast<char>(written / 256)};
    pollfd port{fd, POLLOUT, 0};
    // The pseudo-terminal hands on what it was given in its own time.
    if (::poll(&port, 1, 500) != 1 || ::write(fd, message, sizeof message) != sizeof message) break;
  }
  return written;
}

/// How many messages can be read, in the order in which they were written.
int drain(int fd) {
  int count = 0;
  int last = -1;
  unsigned char message[16];
  for (pollfd port{fd, POLLIN, 0}; ::poll(&port, 1, 500) == 1 && ::read(fd, message, sizeof message) == 16; ++count) {
    const int number = message[0] + 256 * message[1];
    EXPECT_GT(number, std::exchange(last, number));
  }
  return count;
}

TEST(AFullPort, MakesItsWriterWait) {
  Port port("--depth 2");
  const int fd = port.open(O_RDWR | O_NONBLOCK);
  const int taken = fill(fd, 30'000);
  EXPECT_GE(taken, 2);
  EXPECT_LT(taken, 30'000);
  EXPECT_TRUE(!is_cuse() || taken == 2) << taken;
  EXPECT_EQ(drain(fd), taken);
  EXPECT_EQ(fill(fd, 1), 1);
  ::close(fd);
}

TEST(AFullPort, DropsNewMessagesIfAskedTo) {
  Port port("--depth 2 --when-full drop");
  const int fd = port.open(O_RDWR | O_NONBLOCK);
  EXPECT_EQ(fill(fd, 30'000), 30'000);
  const int left = drain(fd);
  EXPECT_GE(left, 2);
  EXPECT_LT(left, 30'000);
  ::close(fd);
  EXPECT_EQ(port.stop(), 0);
  EXPECT_THAT(port.said(), testing::HasSubstr(std::to_string(left) + " messages passed, " +
                                              std::to_string(30'000 - left) + " dropped, 0 not read"));
}

TEST(APort, IsRefusedInASentenceAndLeavesNothingBehind) {
  Port port("--frame 32");
  const std::string path = port.path;
  Port second("--frame 32", path + ".2");
  EXPECT_EQ(port.stop(), 0);
  struct stat record {};
  EXPECT_EQ(::lstat(path.c_str(), &record), -1);

  Port in_the_way("", second.path);
  EXPECT_THAT(in_the_way.said(), testing::HasSubstr("'" + second.path + "' exists already"));
  EXPECT_EQ(in_the_way.end(), 1);
  if (is_cuse()) return;
  Port too_wide("--frame 4096");
  EXPECT_THAT(too_wide.said(), testing::HasSubstr("--backend cuse"));
  EXPECT_EQ(too_wide.end(), 1);
}

TEST(APort, LeavesAPathThatIsNoLongerItsOwn) {
  Port port("");
  ASSERT_EQ(::unlink(port.path.c_str()), 0);
  ASSERT_EQ(::symlink("/dev/null", port.path.c_str()), 0);
  EXPECT_EQ(port.stop(), 0);
  EXPECT_EQ(::unlink(port.path.c_str()), 0);
}

TEST(APort, IsNotShiftedByAWriterCutShort) {
  // A device of CUSE hands a short message on as it is.
  if (is_cuse()) return;
  const Port port("");
  const int fd = port.open(O_RDWR | O_NONBLOCK);
  ASSERT_EQ(::write(fd, "torn!", 5), 5);
  EXPECT_TRUE(
      soon([&] { return port.said().find("5 bytes of a message whose rest never came") != std::string::npos; }));
  EXPECT_EQ(fill(fd, 3), 3);
  EXPECT_EQ(drain(fd), 3);
  ::close(fd);
}

class ACusePort : public testing::Test {
 protected:
  void SetUp() override {
    fd = port.open(O_RDWR);
    quick = port.open(O_RDWR | O_NONBLOCK);
  }
  void TearDown() override {
    ::close(fd);
    ::close(quick);
  }
  int events() const {
    pollfd watched{fd, POLLIN | POLLOUT, 0};
    ::poll(&watched, 1, 0);
    return watched.revents;
  }

  Port port{"--depth 1 --frame 16"};
  int fd = -1;
  int quick = -1;
  char message[32] = "fifteen letters";
};

TEST_F(ACusePort, KeepsMessagesApartAndTellsWhenItCannotGoOn) {
  EXPECT_EQ(events(), POLLOUT);
  EXPECT_EQ(::read(quick, message, 16), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(::write(fd, message, 17), -1);
  EXPECT_EQ(errno, EMSGSIZE);
  EXPECT_EQ(::write(fd, message, 5), 5);
  EXPECT_EQ(events(), POLLIN);
  EXPECT_EQ(::write(quick, message, 16), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(::read(fd, message, 16), 5) << "a short message stays as it was";
}

/// Does what it is told in a process of its own, which is under way when this returns.
template <typename Act>
pid_t elsewhere(Act act) {
  const pid_t child = ::fork();
  if (child == 0) {
    struct sigaction interrupt {};
    interrupt.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &interrupt, nullptr);
    ::_exit(act());
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  return child;
}

int ended(pid_t child) {
  int status = -1;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(ACusePort, EndsAWaitThatASignalInterrupts) {
  const pid_t reader = elsewhere([&] { return ::read(fd, message, 16) == -1 ? errno : 0; });
  ::kill(reader, SIGUSR1);
  EXPECT_EQ(ended(reader), EINTR);
  ASSERT_EQ(::write(fd, message, 16), 16);
  const pid_t writer = elsewhere([&] { return ::write(fd, message, 16) == -1 ? errno : 0; });
  ::kill(writer, SIGUSR1);
  EXPECT_EQ(ended(writer), EINTR);
}

TEST_F(ACusePort, ServesEveryReaderAndWriterThatWaits) {
  const auto reads = [&] { return static_cast<int>(::read(fd, message, 16)); };
  const auto polls = [&] {
    pollfd watched{fd, POLLIN, 0};
    return ::poll(&watched, 1, 20'000) == 1 ? 1 : 0;
  };
  const pid_t poller = elsewhere(polls);
  EXPECT_EQ(::write(fd, message, 16), 16);
  EXPECT_EQ(ended(poller), 1);
  const pid_t writers[] = {elsewhere([&] { return static_cast<int>(::write(fd, message, 7)); }),
                           elsewhere([&] { return static_cast<int>(::write(fd, message, 9)); })};
  EXPECT_EQ(::read(fd, message, 16), 16);
  EXPECT_EQ(::read(fd, message, 16), 7);
  EXPECT_EQ(::read(fd, message, 16), 9);
  EXPECT_EQ(ended(writers[0]) + ended(writers[1]), 16);
  const pid_t readers[] = {elsewhere(reads), elsewhere(reads)};
  EXPECT_EQ(::write(fd, message, 3), 3);
  EXPECT_EQ(::write(fd, message, 4), 4);
  EXPECT_EQ(ended(readers[0]) + ended(readers[1]), 7);
}

TEST_F(ACusePort, EndsUnderItsUsersAndLeavesNoNode) {
  const std::string node = std::filesystem::read_symlink(port.path);
  const pid_t reader = elsewhere([&] { return ::read(fd, message, 16) == -1 ? errno : 0; });
  const pid_t poller = elsewhere([&] {
    pollfd watched{fd, POLLIN, 0};
    return ::poll(&watched, 1, 20'000);
  });
  EXPECT_TRUE(std::filesystem::is_character_file(node));
  EXPECT_EQ(port.stop(), 0);
  EXPECT_EQ(ended(reader), ENODEV);
  EXPECT_EQ(ended(poller), 1);
  EXPECT_FALSE(std::filesystem::exists(node));
}

TEST_F(ACusePort, TakesARelativePathAndRefusesANameThatIsTaken) {
  ASSERT_EQ(::chdir(testing::TempDir().c_str()), 0);
  Port relative("", "relative.port");
  EXPECT_TRUE(std::filesystem::is_character_file(relative.path)) << relative.said();
  EXPECT_EQ(relative.stop(), 0);
  EXPECT_FALSE(std::filesystem::is_symlink(relative.path));

  const std::string name = "/dev/qport-taken";
  const Port first("", name);
  ASSERT_EQ(::unlink(name.c_str()), 0);
  Port second("", name);
  EXPECT_THAT(second.said(), testing::HasSubstr("a device named 'qport-taken' exists already"));
  EXPECT_EQ(second.end(), 1);
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
