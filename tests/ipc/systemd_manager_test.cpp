#include <gmock/gmock.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "ipc/systemd.h"
#include "support/descriptors.h"
#include "support/recorded_log.h"
#include "support/soon.h"

// On a real manager, with the units of tests/units: one of its own (scripts/lib/private-systemd), or process 1.
namespace ecu::vorn::ipc::test {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

class AManager : public testing::Test {
 protected:
  ~AManager() override {
    for (const char* unit : {"runs.service", "also-runs.service", "door.socket"}) stop(unit);
  }
  void stop(const std::string& unit) {
    systemd.stop_unit(unit);
    becomes(Systemd::ACTIVE_STATE_INACTIVE, unit);
  }
  bool becomes(Systemd::ActiveState state, const std::string& unit) {
    return soon([&] { return systemd.get_unit_activestate(unit) == state; });
  }

  Transcript lines;
  RecordedLog log{lines, "ipc.systemd", 5};
  Systemd systemd;
};

TEST_F(AManager, TakesAUnitThroughItsStates) {
  const struct {
    bool (Systemd::*action)(const std::string&);
    std::vector<Systemd::ActiveState> states;
  } steps[] = {{&Systemd::start_unit, {Systemd::ACTIVE_STATE_ACTIVATING, Systemd::ACTIVE_STATE_ACTIVE}},
               {&Systemd::reload_unit, {Systemd::ACTIVE_STATE_RELOADING, Systemd::ACTIVE_STATE_ACTIVE}},
               {&Systemd::restart_unit,
                {Systemd::ACTIVE_STATE_DEACTIVATING, Systemd::ACTIVE_STATE_ACTIVATING, Systemd::ACTIVE_STATE_ACTIVE}},
               {&Systemd::stop_unit, {Systemd::ACTIVE_STATE_DEACTIVATING, Systemd::ACTIVE_STATE_INACTIVE}}};
  for (const auto& [action, states] : steps) {
    ASSERT_TRUE((systemd.*action)("gated.service"));
    for (const Systemd::ActiveState state : states) {
      EXPECT_TRUE(becomes(state, "gated.service")) << systemd.to_str(state);
      if (state != states.back()) std::filesystem::create_directory("/run/keltipc-go");
    }
  }
  EXPECT_TRUE(systemd.start_unit("fails.service")) << "the job is queued; what comes of it is another matter";
  EXPECT_TRUE(becomes(Systemd::ACTIVE_STATE_FAILED, "fails.service"));
  EXPECT_EQ(lines, Transcript{});
}

TEST_F(AManager, StartsAndStopsWhatATargetWantsAndSwitchesToAnother) {
  EXPECT_THAT(systemd.list_target_services("work"),
              UnorderedElementsAre("also-runs.service", "door.socket", "rest.target", "runs.service"));
  EXPECT_TRUE(systemd.are_target_services_stopped("work"));
  systemd.start_target_services("work");
  EXPECT_TRUE(becomes(Systemd::ACTIVE_STATE_ACTIVE, "runs.service"));
  EXPECT_TRUE(becomes(Systemd::ACTIVE_STATE_ACTIVE, "also-runs.service"));
  EXPECT_EQ(systemd.get_unit_activestate("door.socket"), Systemd::ACTIVE_STATE_INACTIVE);
  EXPECT_FALSE(systemd.are_target_services_stopped("work"));
  systemd.stop_target_services("work");
  EXPECT_TRUE(soon([&] { return systemd.are_target_services_stopped("work"); }));

  ASSERT_TRUE(systemd.start_unit("runs.service"));
  ASSERT_TRUE(becomes(Systemd::ACTIVE_STATE_ACTIVE, "runs.service"));
  EXPECT_TRUE(systemd.change_target("rest"));
  EXPECT_TRUE(becomes(Systemd::ACTIVE_STATE_INACTIVE, "runs.service"));
  EXPECT_TRUE(soon([&] { return systemd.is_target_active("rest"); }));
  EXPECT_EQ(lines, Transcript{"NOTICE Changed to target 'rest'"});
}

TEST_F(AManager, TellsHowUnitsAreInstalledAndRefusesWithALineThatSaysWhy) {
  const std::pair<const char*, Systemd::InstallState> units[] = {
      {"runs.service", Systemd::INSTALL_STATE_ENABLED},  {"door.socket", Systemd::INSTALL_STATE_DISABLED},
      {"slow.service", Systemd::INSTALL_STATE_STATIC},   {"also-runs.service", Systemd::INSTALL_STATE_ERROR},
      {"masked.service", Systemd::INSTALL_STATE_MASKED}, {"nowhere.service", Systemd::INSTALL_STATE_DISABLED}};
  for (const auto& [unit, state] : units) EXPECT_EQ(systemd.get_unit_installstate(unit), state) << unit;
  EXPECT_EQ(systemd.get_unit_activestate("nowhere.service"), Systemd::ACTIVE_STATE_INACTIVE);

  EXPECT_FALSE(systemd.start_unit("masked.service") || systemd.start_unit("nowhere.service") ||
               systemd.change_target("guarded") ||
               systemd.start_stop_unit("runs.service", Systemd::UNIT_ACTION_START, "no-such-mode"));
  const std::string service = "org.freedesktop.systemd1";
  EXPECT_EQ(systemd.get_property_value(service, service + ".Manager", "/org/freedesktop/systemd1", "Nothing"), "");
  const auto says = [](const std::string& call) { return testing::StartsWith("ERROR " + call); };
  EXPECT_THAT(lines,
              ElementsAre(says("Call to StartUnit 'masked.service' failed: org.freedesktop.systemd1.UnitMasked: "),
                          says("Call to StartUnit 'nowhere.service' failed: org.freedesktop.systemd1.NoSuchUnit: "),
                          says("Call to StartUnit 'guarded.target' failed: org.freedesktop.systemd1.NoIsolation: "),
                          says("Call to StartUnit 'runs.service' failed: org.freedesktop.DBus.Error.InvalidArgs: "),
                          says("Retrieving property of 'Nothing' failed: org.freedesktop.DBus.Error.")));
}

TEST_F(AManager, GetsNoFurtherThanAFailureWithABadName) {
  for (const std::string& name :
       {std::string(), std::string(4096, 'x') + ".service", std::string("gr\xc3\xbc.service"),
        std::string("no \xff utf-8.service"), std::string("a/b.service"), std::string("a\nb.service")}) {
    lines.clear();
    EXPECT_EQ(systemd.get_unit_activestate(name), Systemd::ACTIVE_STATE_ERROR) << name;
    EXPECT_LE(lines.size(), 1U) << name;
    EXPECT_FALSE(systemd.stop_unit(name)) << name;
    EXPECT_LE(lines.size(), 2U) << name;
  }
}

TEST_F(AManager, AnswersManyThreadsOfOneObjectAndKeepsNoDescriptor) {
  const auto ask = [this](int times) {
    for (; times > 0; --times)
      ASSERT_EQ(systemd.get_unit_activestate("masked.service"), Systemd::ACTIVE_STATE_INACTIVE);
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
  const auto answers = [&] { return systemd.get_unit_activestate("masked.service") != Systemd::ACTIVE_STATE_ERROR; };
  send_all("dbus-daemon", SIGKILL);
  EXPECT_TRUE(soon(answers)) << "after the bus was killed between calls";

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
  EXPECT_THAT(lines, ElementsAre(testing::StartsWith("ERROR Call to StartUnit 'runs.service' failed: ")));
  send_all("systemd", SIGCONT);
  EXPECT_TRUE(soon(answers)) << "after it was killed in the middle of a call";
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
