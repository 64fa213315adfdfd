#include <gmock/gmock.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "ipc/systemd.h"
#include "support/descriptors.h"
#include "support/recorded_log.h"
#include "support/soon.h"

// On a real manager, with the units of tests/units: one of its own (tests/support/private-systemd), or process 1.
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
    std::vector<Systemd::ActiveState> on_the_way;
    Systemd::ActiveState in_the_end;
  } steps[] = {
      {&Systemd::start_unit, {Systemd::ACTIVE_STATE_ACTIVATING}, Systemd::ACTIVE_STATE_ACTIVE},
      {&Systemd::reload_unit, {Systemd::ACTIVE_STATE_RELOADING}, Systemd::ACTIVE_STATE_ACTIVE},
      {&Systemd::restart_unit,
       {Systemd::ACTIVE_STATE_DEACTIVATING, Systemd::ACTIVE_STATE_ACTIVATING},
       Systemd::ACTIVE_STATE_ACTIVE},
      {&Systemd::stop_unit, {Systemd::ACTIVE_STATE_DEACTIVATING}, Systemd::ACTIVE_STATE_INACTIVE},
  };
  for (const auto& [action, on_the_way, in_the_end] : steps) {
    ASSERT_TRUE((systemd.*action)("gated.service"));
    for (const Systemd::ActiveState state : on_the_way) {
      EXPECT_TRUE(becomes(state, "gated.service")) << systemd.to_str(state);
      std::filesystem::create_directory("/run/keltipc-go");
    }
    EXPECT_TRUE(becomes(in_the_end, "gated.service")) << systemd.to_str(in_the_end);
  }
  EXPECT_TRUE(systemd.start_unit("fails.service")) << "the job is queued; what comes of it is another matter";
  EXPECT_TRUE(becomes(Systemd::ACTIVE_STATE_FAILED, "fails.service"));
  EXPECT_EQ(lines, Transcript{});
}

TEST_F(AManager, SwitchesToATargetAndStopsWhatItDoesNotNeed) {
  ASSERT_TRUE(systemd.start_unit("runs.service"));
  ASSERT_TRUE(becomes(Systemd::ACTIVE_STATE_ACTIVE, "runs.service"));
  EXPECT_TRUE(systemd.change_target("rest"));
  EXPECT_TRUE(becomes(Systemd::ACTIVE_STATE_INACTIVE, "runs.service"));
  EXPECT_TRUE(soon([&] { return systemd.is_target_active("rest"); }));
  EXPECT_EQ(lines, Transcript{"NOTICE Changed to target 'rest'"});
}

TEST_F(AManager, TellsHowUnitsAreInstalled) {
  EXPECT_EQ(systemd.get_unit_installstate("runs.service"), Systemd::INSTALL_STATE_ENABLED);
  EXPECT_EQ(systemd.get_unit_installstate("door.socket"), Systemd::INSTALL_STATE_DISABLED);
  EXPECT_EQ(systemd.get_unit_installstate("slow.service"), Systemd::INSTALL_STATE_STATIC);
  EXPECT_EQ(systemd.get_unit_installstate("also-runs.service"), Systemd::INSTALL_STATE_ERROR) << "indirect";
  EXPECT_EQ(systemd.get_unit_installstate("masked.service"), Systemd::INSTALL_STATE_MASKED);
  EXPECT_EQ(systemd.get_unit_installstate("nowhere.service"), Systemd::INSTALL_STATE_DISABLED);
  EXPECT_EQ(systemd.get_unit_activestate("nowhere.service"), Systemd::ACTIVE_STATE_INACTIVE);
}

TEST_F(AManager, RefusesWithALineThatSaysWhy) {
  EXPECT_FALSE(systemd.start_unit("masked.service"));
  EXPECT_FALSE(systemd.start_unit("nowhere.service"));
  EXPECT_FALSE(systemd.change_target("guarded"));
  EXPECT_FALSE(systemd.start_stop_unit("runs.service", Systemd::UNIT_ACTION_START, "no-such-mode"));
  EXPECT_EQ(systemd.get_property_value("org.freedesktop.systemd1", "org.freedesktop.systemd1.Manager",
                                       "/org/freedesktop/systemd1", "NoSuchProperty"),
            "");
  const auto says = [](const std::string& call) { return testing::StartsWith("ERROR " + call); };
  EXPECT_THAT(lines,
              ElementsAre(says("Call to StartUnit 'masked.service' failed: org.freedesktop.systemd1.UnitMasked: "),
                          says("Call to StartUnit 'nowhere.service' failed: org.freedesktop.systemd1.NoSuchUnit: "),
                          says("Call to StartUnit 'guarded.target' failed: org.freedesktop.systemd1.NoIsolation: "),
                          says("Call to StartUnit 'runs.service' failed: org.freedesktop.DBus.Error.InvalidArgs: "),
                          says("Retrieving property of 'NoSuchProperty' failed: org.freedesktop.DBus.Error.")));
}

TEST_F(AManager, StartsAndStopsTheServicesThatATargetWants) {
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
}

TEST_F(AManager, GetsNoFurtherThanAFailureWithABadName) {
  const std::string names[] = {"",
                               std::string(4096, 'x') + ".service",
                               "gr\xc3\xbc\xc3\x9f.service",
                               "no \xff utf-8.service",
                               "a/b.service",
                               "a\nb.service"};
  for (const std::string& name : names) {
    lines.clear();
    EXPECT_EQ(systemd.get_unit_activestate(name), Systemd::ACTIVE_STATE_ERROR) << name;
    EXPECT_LE(lines.size(), 1U) << name;
    EXPECT_FALSE(systemd.stop_unit(name)) << name;
    EXPECT_LE(lines.size(), 2U) << name;
  }
}

void ask(Systemd& systemd, int times) {
  for (int i = 0; i < times; ++i) {
    ASSERT_EQ(systemd.get_unit_activestate("masked.service"), Systemd::ACTIVE_STATE_INACTIVE);
  }
}

TEST_F(AManager, AnswersManyThreadsOfOneObjectAndKeepsNoDescriptor) {
  const std::ptrdiff_t descriptors = open_descriptors();
  ask(systemd, 500);  // Two calls each.
  EXPECT_EQ(open_descriptors(), descriptors);
  std::vector<std::thread> threads;
  for (int i = 0; i < 20; ++i) threads.emplace_back([this, i] { ask(systemd, i < 8 ? 50 : 1); });
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

TEST_F(AManager, IsFoundAgainWhenItsBusWasKilled) {
  // Process 1 and the rest of the machine need theirs.
  if (std::getenv("KELTIPC_PRIVATE_MANAGER") == nullptr) return;
  const auto answers = [&] { return systemd.get_unit_activestate("masked.service") != Systemd::ACTIVE_STATE_ERROR; };
  send_all("dbus-daemon", SIGKILL);
  EXPECT_TRUE(soon(answers)) << "after the bus was killed between calls";

  lines.clear();
  const std::ptrdiff_t descriptors = open_descriptors();
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
