#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/descriptors.h"

// Reader and writer on a port of keltipc-portsim. KELTIPC_PORTSIM is the program, KELTIPC_EMULATOR the start of the
// command that runs it, KELTIPC_BACKEND the kind of port.
namespace ecu::vorn::ipc::test {
namespace {

const std::string backend = std::getenv("KELTIPC_BACKEND");
const bool is_cuse = backend == "cuse";

/// A running keltipc-portsim.
struct Port {
  explicit Port(const std::string& options, const std::string& suffix = "")
      : path(testing::TempDir() + "port." + std::to_string(::getpid()) + suffix), process(::fork()) {
    const char* const emulator = std::getenv("KELTIPC_EMULATOR");
    const std::string command = "exec " + std::string(emulator == nullptr ? "" : emulator) +
                                " \"$KELTIPC_PORTSIM\" --backend " + backend + " " + options + " " + path;
    if (process == 0) ::_exit(::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr));
    while (::access(path.c_str(), F_OK) != 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  Port(const Port&) = delete;
  ~Port() {
    int status = -1;
    ::kill(process, SIGTERM);
    ::waitpid(process, &status, 0);
    EXPECT_EQ(status, 0);
  }

  const std::string path;
  const pid_t process;
};

struct Enough {};

/// Expects identifiers that increase by one, and leaves the loop at `enough`.
struct Counter : IDataConsumer<IpcSignal> {
  void consume(IpcSignal&& signal) override {
    EXPECT_TRUE(signal.signal_id == last + 1 || last == 0) << signal.signal_id << " after " << last;
    last = signal.signal_id;
    if (last >= enough) throw Enough();
  }

  std::uint32_t last = 0;
  std::atomic<std::uint32_t> enough{0};
};

/// Replaces the device by another one of the same name. The old one has ended (pty) or lost its name (cuse).
void take_away_and_give_back(std::unique_ptr<Port>& port, const std::string& path) {
  if (!is_cuse) {
    auto other = std::make_unique<Port>("--depth 8", ".next");
    std::filesystem::rename(other->path, path);
    port = std::move(other);
    return;
  }
  struct stat node {};
  const std::string device = "/dev/" + std::filesystem::read_symlink(path).filename().string();
  ASSERT_TRUE(::stat(device.c_str(), &node) == 0 && ::unlink(device.c_str()) == 0);
  ASSERT_EQ(::mknod(device.c_str(), node.st_mode, node.st_rdev), 0);
}

TEST(APort, IsFoundAgainEachTimeItComesBack) {
  auto port = std::make_unique<Port>("--depth 8");
  const std::string path = port->path;
  auto* const counter = new Counter;
  QueuePortReader<8> reader{std::unique_ptr<Counter>(counter)};
  std::atomic<std::uint32_t> sent{0};
  std::atomic<bool> done{false};
  std::thread sender([&] {
    QueuePortWriter<8> writer;
    EXPECT_TRUE(writer.open(path));
    for (bool is_last = false; !is_last;) {
      if ((is_last = done)) counter->enough = sent + 1;
      EXPECT_TRUE(writer.transmit_data({0, 0, 0, std::vector<char>(8)}));  // opens a sampling frame
      EXPECT_TRUE(writer.transmit_data({++sent, 0, 0, std::vector<char>(1 + sent % 40)}));
    }
  });
  int descriptors = 0;
  const char* const asked = std::getenv("KELTIPC_REMOVALS");  // a release check asks for more
  const int removals = asked == nullptr ? (is_cuse ? 50 : 10) : std::stoi(asked);
  for (int removal = 0; removal <= removals; ++removal) {
    if (removal > 0) take_away_and_give_back(port, path);
    if (!is_cuse) counter->last = 0;  // Frames queued in the old device are lost.
    EXPECT_TRUE(reader.open(path));
    counter->enough = sent + 2;  // Before it sends the second one, the writer checks its port.
    EXPECT_THROW(reader.receive_data(), Enough);
    if (removal == 0) descriptors = open_descriptors();
  }
  EXPECT_EQ(open_descriptors(), descriptors);
  counter->enough = std::numeric_limits<std::uint32_t>::max();
  done = true;
  EXPECT_THROW(reader.receive_data(), Enough);
  sender.join();
  EXPECT_EQ(counter->last, sent);
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
