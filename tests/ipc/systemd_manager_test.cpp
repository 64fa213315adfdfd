#include <gmock/gmock.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "ipc/systemd.h"
#include "support/descriptors.h"
#include "support/recorded_log.h"
#include "support/soon.h"

// On a real manager, with the units of tests/units: one of its own (scripts/private-systemd), or process 1. What
// becomes of units is played with the tool (tests/tools/units.transcript).
namespace ecu::vorn::ipc::test {
namespace {

struct AManager : testing::Test {
  bool answers() { return systemd.get_unit_activestate("masked.service") == Systemd::ACTIVE_STATE_INACTIVE; }
  Transcript lines;
  RecordedLog log{lines, "ipc.systemd", 5};
  Systemd systemd;
};

TEST_F(AManager, AnswersManyThreadsOfOneObjectAndKeepsNoDescriptor) {
  const auto ask = [this](int times) {
    for (; times > 0; --times) ASSERT_TRUE(answers());
  };
  const int descriptors = open_descriptors();
  ask(500);  // Two calls each.
  EXPECT_EQ(open_descriptors(), descriptors);
  std::vector<std::thread> threads;
  for (int i = 0; i < 20; ++i) threads.emplace_back(ask, i < 8 ? 50 : 1);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(open_descriptors(), descriptors);
}

/// To every process of that name among those that can be seen: in a manager of one's own there are no others.
void send_all(const std::string& name, int signal) {
  for (const auto& process : std::filesystem::directory_iterator("/proc")) {
    std::string found;
    std::ifstream(process.path() / "comm") >> found;
    if (found == name) ::kill(std::atoi(process.path().filename().c_str()), signal);
  }
}

using AKilledBus = AManager;

TEST_F(AKilledBus, IsFoundAgain) {
  ASSERT_NE(std::getenv("KELTIPC_PRIVATE_MANAGER"), nullptr) << "it may be the whole machine's bus: left alone";
  send_all("dbus-daemon", SIGKILL);
  EXPECT_TRUE(soon([this] { return answers(); })) << "after the bus was killed between calls";

  lines.clear();
  const int descriptors = open_descriptors();
  send_all("systemd", SIGSTOP);  // So that the call waits for its reply.
  std::thread killer([descriptors] {
    soon([descriptors] { return open_descriptors() > descriptors; });
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    send_all("dbus-daemon", SIGKILL);
  });
  EXPECT_FALSE(systemd.start_unit("runs.service"));
  killer.join();
  EXPECT_THAT(lines, testing::ElementsAre(testing::StartsWith("ERROR Call to StartUnit 'runs.service' failed: ")));
  send_all("systemd", SIGCONT);
  EXPECT_TRUE(soon([this] { return answers(); })) << "after it was killed in the middle of a call";
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
