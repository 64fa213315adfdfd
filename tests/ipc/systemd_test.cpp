#include "ipc/systemd.h"

#include <cerrno>

#include "support/interpose.h"

using namespace ecu::vorn::ipc;
using namespace ecu::vorn::ipc::test;

/// Notes requests to the bus and log lines.
struct ASystemd : testing::Test {
  ~ASystemd() override { EXPECT_EQ(bus.held, 0) << "connections, replies and errors that were not released"; }

  Transcript happened;
  RecordedLog log{happened, "ipc.systemd"};
  FakeBus bus{happened};
  Systemd systemd;
};

const std::string to_manager = "org.freedesktop.systemd1 /org/freedesktop/systemd1 org.freedesktop.systemd1.Manager ",
                  to_unit = "org.freedesktop.systemd1 /unit/a org.freedesktop.systemd1.Unit ";
const FakeBus::Failure not_today{"org.No", "not today"};

std::string load(const std::string& unit) { return to_manager + "LoadUnit " + unit + "\n"; }

/// Asks the manager to queue a job, and it does.
std::string queue(const std::string& method, const std::string& unit, const std::string& mode) {
  return to_manager + method + " " + unit + " " + mode + "\nINFO " + method + " '" + unit + "' issued successfully\n";
}

TEST_F(ASystemd, QueuesJobsOfUnits) {
  EXPECT_TRUE(systemd.start_unit("a"));
  EXPECT_TRUE(systemd.stop_unit("a"));
  EXPECT_TRUE(systemd.restart_unit("a"));
  EXPECT_TRUE(systemd.reload_unit("a"));
  EXPECT_TRUE(systemd.start_stop_unit("a", Systemd::UNIT_ACTION_STOP, "fail"));
  EXPECT_EQ(text(happened), queue("StartUnit", "a", "replace") + queue("StopUnit", "a", "replace") +
                                queue("RestartUnit", "a", "replace") + queue("ReloadUnit", "a", "replace") +
                                queue("StopUnit", "a", "fail"));
}

TEST_F(ASystemd, IsolatesATarget) {
  EXPECT_TRUE(systemd.change_target("t"));
  EXPECT_TRUE(systemd.start_isolate_target(".target"));
  EXPECT_EQ(text(happened), queue("StartUnit", "t.target", "isolate") + "NOTICE Changed to target 't'\n" +
                                queue("StartUnit", ".target", "isolate") + "NOTICE Changed to target '.target'\n");
}

TEST_F(ASystemd, QueuesJobsOfTheServicesOfATarget) {
  systemd.start_target_services("t");
  systemd.stop_target_services("u.target");
  EXPECT_EQ(text(happened), load("t.target") + to_unit + "Wants\n" + queue("StartUnit", "b.service", "replace") +
                                queue("StartUnit", ".service", "replace") + load("u.target") + to_unit + "Wants\n" +
                                queue("StopUnit", "b.service", "replace") + queue("StopUnit", ".service", "replace"));
}

TEST_F(ASystemd, AsksForEachServiceOfATargetThatIsToBeStopped) {
  EXPECT_FALSE(systemd.are_target_services_stopped("t"));
  EXPECT_EQ(text(happened), load("t.target") + to_unit + "Wants\n" + load("b.service") + to_unit + "ActiveState\n" +
                                load(".service") + to_unit + "ActiveState\n");
}

TEST_F(ASystemd, AsksNothingWithoutAUnitOrAnAction) {
  EXPECT_FALSE(systemd.start_unit(""));
  EXPECT_FALSE(systemd.start_stop_unit("a", static_cast<Systemd::UnitAction>(4), "fail"));
  EXPECT_EQ(systemd.get_unit_activestate(""), Systemd::ACTIVE_STATE_ERROR);
  EXPECT_EQ(systemd.get_unit_installstate(""), Systemd::INSTALL_STATE_ERROR);
  EXPECT_EQ(text(happened), "");
}

TEST_F(ASystemd, LogsWhatTheManagerRefuses) {
  bus.method_failure = not_today;
  EXPECT_FALSE(systemd.change_target("t"));
  EXPECT_EQ(systemd.get_unit_activestate("a"), Systemd::ACTIVE_STATE_ERROR);
  EXPECT_EQ(systemd.list_unit_dependencies("a", "Wants"), Transcript{});
  const std::string refused = "ERROR Retrieving instance of 'a' via 'LoadUnit' failed: org.No: not today\n";
  EXPECT_EQ(text(happened), to_manager + "StartUnit t.target isolate\n" +
                                "ERROR Call to StartUnit 't.target' failed: org.No: not today\n" + load("a") +
                                refused + load("a") + refused);
}

TEST_F(ASystemd, LogsAnErrorWithoutAName) {
  bus.method_failure = FakeBus::Failure{nullptr, nullptr};
  EXPECT_EQ(systemd.get_object_instance("d", "i", "/p", "a"), "");
  EXPECT_EQ(text(happened), "d /p i LoadUnit a\nERROR Retrieving instance of 'a' via 'LoadUnit' failed: \n");
}

TEST_F(ASystemd, LogsAReplyThatIsNotAPath) {
  bus.readable = false;
  EXPECT_TRUE(systemd.start_unit("a"));
  EXPECT_EQ(systemd.get_unit_installstate("a"), Systemd::INSTALL_STATE_ERROR);
  const std::string begin = "ERROR DBus response message from ",
                    end = " 'a' could not be parsed: No such device or address\n";
  EXPECT_EQ(text(happened),
            to_manager + "StartUnit a replace\n" + begin + "StartUnit" + end + load("a") + begin + "GetUnit" + end);
}

TEST_F(ASystemd, LogsThatThereIsNoBus) {
  bus.connect_result = -ECONNREFUSED;
  EXPECT_FALSE(systemd.start_unit("a"));
  EXPECT_EQ(systemd.get_object_instance("d", "i", "/p", "a"), "");
  EXPECT_EQ(systemd.get_property_value("d", "i", "/p", "Some"), "");
  EXPECT_EQ(systemd.get_property_value_array("d", "i", "/p", "Some"), Transcript{});
  const std::string line = "CRITICAL Unable to retrieve connection to DBus system bus: Connection refused";
  EXPECT_EQ(happened, Transcript(4, line));
}

TEST_F(ASystemd, ReadsProperties) {
  EXPECT_EQ(systemd.get_property_value("d", "i", "/p", "Some"), "active");
  EXPECT_EQ(systemd.get_property_value_array("d", "i", "/p", "Some"), bus.list);
  bus.list.clear();
  EXPECT_EQ(systemd.get_property_value_array("d", "i", "/p", "Some"), Transcript{});
  EXPECT_EQ(systemd.get_property_value("d", "i", "/p", "Some"), "");
  EXPECT_EQ(systemd.get_object_instance("d", "i", "/p", "Some"), "");
  EXPECT_EQ(text(happened), "d /p i Some\nd /p i Some\nd /p i Some\nd /p i Some\nd /p i LoadUnit Some\n");
}

TEST_F(ASystemd, LogsAPropertyThatCannotBeRead) {
  bus.property_failure = not_today;
  EXPECT_EQ(systemd.get_unit_installstate("a"), Systemd::INSTALL_STATE_DISABLED);
  EXPECT_EQ(systemd.list_unit_dependencies("a", "Some"), Transcript{});
  const std::string lines = "ERROR Retrieving property of ";
  EXPECT_EQ(text(happened), load("a") + to_unit + "UnitFileState\n" + lines +
                                "'UnitFileState' failed: org.No: not today\n" + load("a") + to_unit + "Some\n" +
                                lines + "'Some' failed: org.No: not today\n");
}

/// "enabled-runtime" -> "INSTALL_STATE_ENABLED_RUNTIME"
std::string enumerator(const std::string& kind, const std::string& word) {
  std::string name = "Systemd::" + kind + "_STATE_";
  for (const char c : word) name += c == '-' ? '_' : static_cast<char>(std::toupper(c));
  return name;
}

TEST_F(ASystemd, KnowsStatesByTheirExactWords) {
  const Transcript of_activity = {"active", "inactive", "activating", "deactivating", "reloading", "failed"},
                   of_files = {"enabled",        "enabled-runtime", "disabled",       "linked",
                               "linked-runtime", "masked",          "masked-runtime", "static"};
  for (const Transcript& words : {of_activity, of_files, Transcript{"Active", "indirect"}}) {
    for (const std::string& word : words) {
      bus.property = word;
      EXPECT_EQ(systemd.to_str(systemd.get_unit_activestate("a")),
                enumerator("ACTIVE", words == of_activity ? word : "error"));
      EXPECT_EQ(systemd.to_str(systemd.get_unit_installstate("a")),
                enumerator("INSTALL", words == of_files ? word : "error"));
      EXPECT_EQ(systemd.is_target_active("t"), word == "active" || word == "activating") << word;
      EXPECT_EQ(systemd.are_target_services_stopped("t"),
                words != of_activity || word == "inactive" || word == "failed")
          << word;
    }
  }
}
