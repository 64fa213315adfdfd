#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <functional>
#include <thread>

#include "ipc/systemd.h"
#include "support/recorded_log.h"

namespace ecu::vorn::ipc::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

/// Jobs are only queued when a call returns.
bool soon(const std::function<bool()>& holds) {
  const auto end = steady_clock::now() + std::chrono::seconds(30);
  while (!holds()) {
    if (steady_clock::now() > end) return false;
    std::this_thread::sleep_for(milliseconds(50));
  }
  return true;
}

/// What `work` logs and returns when the user app of the machine does it.
Transcript as_app(const std::function<bool(Systemd&)>& work) {
  constexpr unsigned int app = 1000;
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) return {"no pipe"};
  const pid_t child = ::fork();
  if (child == 0) {
    Transcript lines;
    const RecordedLog log(lines, "ipc.systemd", 6);
    Systemd systemd;
    const bool is_app = ::setgid(app) == 0 && ::setuid(app) == 0;
    lines.emplace_back(is_app && work(systemd) ? "true" : "false");
    for (std::string& line : lines) {
      line += '\n';
      [[maybe_unused]] const ssize_t unchecked = ::write(ends[1], line.data(), line.size());
    }
    ::_exit(0);
  }
  ::close(ends[1]);
  Transcript lines;
  std::string line;
  for (char c = 0; ::read(ends[0], &c, 1) == 1;) {
    if (c != '\n') {
      line += c;
      continue;
    }
    lines.push_back(line);
    line.clear();
  }
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  return lines;
}

class Process1 : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(systemd.start_isolate_target("tests"));
    EXPECT_TRUE(soon([&] { return systemd.is_target_active("tests"); }));
  }

  bool only(const std::string& target, const std::string& other) {
    return soon([&] { return systemd.is_target_active(target) && !systemd.is_target_active(other); });
  }

  Systemd systemd;
};

TEST_F(Process1, IsolatesOneTargetAfterTheOtherAndComesBack) {
  ASSERT_TRUE(systemd.change_target("drive"));
  EXPECT_TRUE(only("drive", "tests"));
  EXPECT_TRUE(soon([&] { return systemd.get_unit_activestate("engine.service") == Systemd::ACTIVE_STATE_ACTIVE; }));
  EXPECT_FALSE(systemd.are_target_services_stopped("drive"));

  ASSERT_TRUE(systemd.change_target("park.target"));
  EXPECT_TRUE(only("park", "drive"));
  EXPECT_TRUE(soon([&] { return systemd.are_target_services_stopped("drive"); }));
  EXPECT_EQ(systemd.get_unit_activestate("engine.service"), Systemd::ACTIVE_STATE_INACTIVE);

  ASSERT_TRUE(systemd.change_target("drive"));
  EXPECT_TRUE(only("drive", "park"));
}

TEST_F(Process1, StopsATargetsServicesAndSeesThemStopped) {
  EXPECT_THAT(systemd.list_target_services("drive"), UnorderedElementsAre("engine.service", "gearbox.service"));
  systemd.start_target_services("drive");
  EXPECT_TRUE(soon([&] { return systemd.get_unit_activestate("gearbox.service") == Systemd::ACTIVE_STATE_ACTIVE; }));
  EXPECT_FALSE(systemd.are_target_services_stopped("drive"));
  EXPECT_FALSE(systemd.is_target_active("drive"));
  systemd.stop_target_services("drive");
  EXPECT_TRUE(soon([&] { return systemd.are_target_services_stopped("drive"); }));
}

TEST_F(Process1, LetsAnybodyAskButRefusesToAct) {
  EXPECT_THAT(
      as_app([](Systemd& s) { return s.get_unit_activestate("dbus.service") == Systemd::ACTIVE_STATE_ACTIVE; }),
      ElementsAre("true"));
  EXPECT_THAT(as_app([](Systemd& s) { return s.stop_unit("gearbox.service"); }),
              ElementsAre("ERROR Call to StopUnit 'gearbox.service' failed: "
                          "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired: "
                          "Interactive authentication required.",
                          "false"));
}

TEST_F(Process1, LetsTheApplicationControlTheUnitOfTheExamplesRule) {
  EXPECT_THAT(as_app([](Systemd& s) { return s.start_unit("engine.service"); }),
              ElementsAre("INFO StartUnit 'engine.service' issued successfully", "true"));
  EXPECT_TRUE(soon([&] { return systemd.get_unit_activestate("engine.service") == Systemd::ACTIVE_STATE_ACTIVE; }));
  EXPECT_THAT(as_app([](Systemd& s) { return s.stop_unit("engine.service"); }),
              ElementsAre("INFO StopUnit 'engine.service' issued successfully", "true"));
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
