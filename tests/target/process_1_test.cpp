#include <gmock/gmock.h>
#include <unistd.h>

#include "ipc/systemd.h"
#include "support/soon.h"

namespace ecu::vorn::ipc::test {
namespace {

class Process1 : public testing::Test {
 protected:
  ~Process1() override {
    systemd.start_isolate_target("tests");
    soon([&] { return systemd.is_target_active("tests"); });
  }

  bool only(const std::string& target, const std::string& other) {
    return soon([&] { return systemd.is_target_active(target) && !systemd.is_target_active(other); });
  }
  bool becomes(Systemd::ActiveState state, const std::string& unit) {
    return soon([&] { return systemd.get_unit_activestate(unit) == state; });
  }
  bool all_stopped() {
    return soon([&] { return systemd.are_target_services_stopped("drive"); });
  }

  Systemd systemd;
};

TEST_F(Process1, IsolatesOneTargetAfterTheOtherAndStopsTheServicesOfTheFirst) {
  ASSERT_TRUE(systemd.change_target("drive"));
  EXPECT_TRUE(only("drive", "tests"));
  EXPECT_TRUE(becomes(Systemd::ACTIVE_STATE_ACTIVE, "engine.service"));
  EXPECT_FALSE(systemd.are_target_services_stopped("drive"));

  ASSERT_TRUE(systemd.change_target("park.target"));
  EXPECT_TRUE(only("park", "drive"));
  EXPECT_TRUE(all_stopped());

  ASSERT_TRUE(systemd.change_target("drive"));
  EXPECT_TRUE(only("drive", "park"));
  EXPECT_TRUE(becomes(Systemd::ACTIVE_STATE_ACTIVE, "gearbox.service"));
  systemd.stop_target_services("drive");
  EXPECT_TRUE(all_stopped());
  EXPECT_TRUE(systemd.is_target_active("drive"));
}

using Action = bool (Systemd::*)(const std::string&);

/// Ends the process with 0 where the machine's user app gets a unit's action done.
[[noreturn]] void as_app(Action action, const std::string& unit) {
  constexpr unsigned int app = 1000;
  if (::setgid(app) != 0 || ::setuid(app) != 0) ::_exit(2);
  Systemd systemd;
  ::_exit((systemd.*action)(unit) ? 0 : 1);
}

TEST_F(Process1, RefusesAUserWhomNoRuleLets) {
  EXPECT_EXIT(as_app(&Systemd::stop_unit, "gearbox.service"), testing::ExitedWithCode(1),
              "ERROR ipc.systemd: Call to StopUnit 'gearbox.service' failed: "
              "org.freedesktop.DBus.Error.InteractiveAuthorizationRequired: Interactive authentication required.\n");
}

TEST_F(Process1, LetsTheApplicationControlTheUnitOfTheExamplesRule) {
  EXPECT_EXIT(as_app(&Systemd::start_unit, "engine.service"), testing::ExitedWithCode(0), "'engine.service' issued");
  EXPECT_TRUE(becomes(Systemd::ACTIVE_STATE_ACTIVE, "engine.service"));
  EXPECT_EXIT(as_app(&Systemd::stop_unit, "engine.service"), testing::ExitedWithCode(0), "'engine.service' issued");
  EXPECT_TRUE(becomes(Systemd::ACTIVE_STATE_INACTIVE, "engine.service"));
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
