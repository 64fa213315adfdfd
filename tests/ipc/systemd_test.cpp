#include "ipc/systemd.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/interpose.h"

namespace ecu::vorn::ipc::test {
namespace {

// How the bus answers.
void well(FakeBus& /*bus*/) {}
void not_at_all(FakeBus& bus) { bus.connect_result = -ECONNREFUSED; }
void unreadably(FakeBus& bus) { bus.readable = false; }
void with_nothing(FakeBus& bus) { bus.list.clear(); }
void with_errors(FakeBus& bus) { bus.method_failure = bus.property_failure = {"org.example.No", "not today"}; }
void with_errors_of_properties(FakeBus& bus) { bus.property_failure = {"org.example.No", "not today"}; }
void with_an_error_without_message(FakeBus& bus) { bus.method_failure = {"org.example.No", nullptr}; }
void with_an_error_without_name(FakeBus& bus) { bus.method_failure = {nullptr, nullptr}; }

// What is called; gives the result as text.
using testing::PrintToString;
std::string start(Systemd& s) { return PrintToString(s.start_unit("a.service")); }
std::string isolate(Systemd& s) { return PrintToString(s.start_isolate_target("t")); }
std::string load(Systemd& s) { return PrintToString(s.get_object_instance("d.e", "i.j", "/p", "a.service")); }
std::string property(Systemd& s) { return PrintToString(s.get_property_value("d.e", "i.j", "/p", "Some")); }
std::string array(Systemd& s) { return PrintToString(s.get_property_value_array("d.e", "i.j", "/p", "Wants")); }
std::string active_state(Systemd& s) { return s.to_str(s.get_unit_activestate("a.service")); }
std::string install_state(Systemd& s) { return s.to_str(s.get_unit_installstate("a.service")); }
std::string dependencies(Systemd& s) { return PrintToString(s.list_unit_dependencies("a.service", "Wants")); }
template <int action>
std::string act(Systemd& s) {
  return PrintToString(s.start_stop_unit("a.service", static_cast<Systemd::UnitAction>(action), "fail"));
}

// What is then asked of the bus, and logged.
const std::string manager = "org.freedesktop.systemd1 /org/freedesktop/systemd1 org.freedesktop.systemd1.Manager ",
                  loaded = manager + "LoadUnit a.service\n",
                  unit = loaded + "org.freedesktop.systemd1 /unit/a org.freedesktop.systemd1.Unit ",
                  not_loaded =
                      "ERROR Retrieving instance of 'a.service' via 'LoadUnit' failed: org.example.No: not today\n",
                  no_bus = "CRITICAL Unable to retrieve connection to DBus system bus: Connection refused\n";

/// A job that the manager accepted.
std::string queued(const std::string& method, const std::string& name, const std::string& mode) {
  return manager + method + " " + name + " " + mode + "\nINFO " + method + " '" + name + "' issued successfully\n";
}

struct Case {
  const char* name;
  std::string (*call)(Systemd&);
  void (*bus_answers)(FakeBus&);
  std::string expected;
};

const Case cases[] = {
    {"Start", start, well, queued("StartUnit", "a.service", "replace") + "true"},
    {"Stop", [](Systemd& s) { return PrintToString(s.stop_unit("a")); }, well,
     queued("StopUnit", "a", "replace") + "true"},
    {"Restart", [](Systemd& s) { return PrintToString(s.restart_unit("a")); }, well,
     queued("RestartUnit", "a", "replace") + "true"},
    {"Reload", [](Systemd& s) { return PrintToString(s.reload_unit("a")); }, well,
     queued("ReloadUnit", "a", "replace") + "true"},
    {"ActionInAModeOfChoice", act<0>, well, queued("StopUnit", "a.service", "fail") + "true"},
    {"ActionThatIsNone", act<4>, well, "false"},
    {"NegativeAction", act<-1>, well, "false"},
    {"StartWithoutAName", [](Systemd& s) { return PrintToString(s.start_unit("")); }, well, "false"},
    {"StartRefused", start, with_errors,
     manager +
         "StartUnit a.service replace\nERROR Call to StartUnit 'a.service' failed: org.example.No: not today\nfalse"},
    {"StartWithAnUnreadableReply", start, unreadably,
     manager +
         "StartUnit a.service replace\nERROR DBus response message from StartUnit 'a.service' could not be parsed: "
         "No such device or address\ntrue"},
    {"StartWithoutABus", start, not_at_all, no_bus + "false"},

    {"Isolate", isolate, well, queued("StartUnit", "t.target", "isolate") + "NOTICE Changed to target 't'\ntrue"},
    {"IsolateRefused", isolate, with_errors,
     manager +
         "StartUnit t.target isolate\nERROR Call to StartUnit 't.target' failed: org.example.No: not today\nfalse"},
    {"ChangeTargetWithASuffix", [](Systemd& s) { return PrintToString(s.change_target(".target")); }, well,
     queued("StartUnit", ".target", "isolate") + "NOTICE Changed to target '.target'\ntrue"},
    {"ChangeTargetWithAShortName", [](Systemd& s) { return PrintToString(s.change_target("target")); }, well,
     queued("StartUnit", "target.target", "isolate") + "NOTICE Changed to target 'target'\ntrue"},

    {"Load", load, well, "d.e /p i.j LoadUnit a.service\n\"/unit/a\""},
    {"LoadRefused", load, with_errors, "d.e /p i.j LoadUnit a.service\n" + not_loaded + "\"\""},
    {"LoadRefusedWithoutAMessage", load, with_an_error_without_message,
     "d.e /p i.j LoadUnit a.service\n"
     "ERROR Retrieving instance of 'a.service' via 'LoadUnit' failed: org.example.No: \n\"\""},
    {"LoadFailedWithoutAnError", load, with_an_error_without_name,
     "d.e /p i.j LoadUnit a.service\nERROR Retrieving instance of 'a.service' via 'LoadUnit' failed: \n\"\""},
    {"LoadWithAnUnreadableReply", load, unreadably,
     "d.e /p i.j LoadUnit a.service\nERROR DBus response message from GetUnit 'a.service' could not be parsed: "
     "No such device or address\n\"\""},
    {"LoadWithoutABus", load, not_at_all, no_bus + "\"\""},

    {"Property", property, well, "d.e /p i.j Some\n\"active\""},
    {"PropertyRefused", property, with_errors,
     "d.e /p i.j Some\nERROR Retrieving property of 'Some' failed: org.example.No: not today\n\"\""},
    {"PropertyWithoutABus", property, not_at_all, no_bus + "\"\""},
    {"Array", array, well, "d.e /p i.j Wants\n{ \"b.service\", \"\" }"},
    {"EmptyArray", array, with_nothing, "d.e /p i.j Wants\n{}"},
    {"ArrayRefused", array, with_errors,
     "d.e /p i.j Wants\nERROR Retrieving property of 'Wants' failed: org.example.No: not today\n{}"},
    {"ArrayWithoutABus", array, not_at_all, no_bus + "{}"},

    {"ActiveState", active_state, well, unit + "ActiveState\nSystemd::ACTIVE_STATE_ACTIVE"},
    {"ActiveStateNotLoaded", active_state, with_errors, loaded + not_loaded + "Systemd::ACTIVE_STATE_ERROR"},
    {"ActiveStateWithoutAName", [](Systemd& s) { return s.to_str(s.get_unit_activestate("")); }, well,
     "Systemd::ACTIVE_STATE_ERROR"},
    {"InstallState", install_state, well, unit + "UnitFileState\nSystemd::INSTALL_STATE_ERROR"},
    {"InstallStateNotLoaded", install_state, with_errors, loaded + not_loaded + "Systemd::INSTALL_STATE_ERROR"},
    {"InstallStateNotReadable", install_state, with_errors_of_properties,
     unit + "UnitFileState\nERROR Retrieving property of 'UnitFileState' failed: org.example.No: not today\n"
            "Systemd::INSTALL_STATE_DISABLED"},
    {"InstallStateWithoutAName", [](Systemd& s) { return s.to_str(s.get_unit_installstate("")); }, well,
     "Systemd::INSTALL_STATE_ERROR"},
    {"Dependencies", dependencies, well, unit + "Wants\n{ \"b.service\", \"\" }"},
    {"DependenciesNotLoaded", dependencies, with_errors, loaded + not_loaded + "{}"},
};

struct SystemdCall : testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(Each, SystemdCall, testing::ValuesIn(cases),
                         [](const auto& each) { return each.param.name; });

TEST_P(SystemdCall, AsksLogsAndReleases) {
  Transcript happened;
  const RecordedLog log(happened, "ipc.systemd");
  FakeBus bus(&happened);
  GetParam().bus_answers(bus);
  Systemd systemd;
  const std::string result = GetParam().call(systemd);
  EXPECT_EQ(text(happened) + result, GetParam().expected);
  EXPECT_EQ(bus.held, 0) << "not released";
}

TEST(States, AreKnownByTheirExactWords) {
  const struct {
    const char *word, *active, *install;
  } words[] = {{"active", "ACTIVE", "ERROR"},
               {"inactive", "INACTIVE", "ERROR"},
               {"activating", "ACTIVATING", "ERROR"},
               {"deactivating", "DEACTIVATING", "ERROR"},
               {"reloading", "RELOADING", "ERROR"},
               {"failed", "FAILED", "ERROR"},
               {"enabled", "ERROR", "ENABLED"},
               {"enabled-runtime", "ERROR", "ENABLED_RUNTIME"},
               {"linked", "ERROR", "LINKED"},
               {"linked-runtime", "ERROR", "LINKED_RUNTIME"},
               {"masked", "ERROR", "MASKED"},
               {"masked-runtime", "ERROR", "MASKED_RUNTIME"},
               {"static", "ERROR", "STATIC"},
               {"disabled", "ERROR", "DISABLED"},
               {"", "ERROR", "DISABLED"},
               {"Active", "ERROR", "ERROR"},
               {"indirect", "ERROR", "ERROR"}};
  FakeBus bus;
  Systemd systemd;
  for (const auto& [word, active, install] : words) {
    bus.property = word;
    EXPECT_EQ(active_state(systemd), std::string("Systemd::ACTIVE_STATE_") + active) << word;
    EXPECT_EQ(install_state(systemd), std::string("Systemd::INSTALL_STATE_") + install) << word;
  }
}

TEST(States, OutsideTheEnumerationHaveEmptyNames) {
  EXPECT_EQ(Systemd().to_str(static_cast<Systemd::ActiveState>(7)), "");
  EXPECT_EQ(Systemd().to_str(static_cast<Systemd::InstallState>(9)), "");
}

/// Overrides what asks the bus.
struct BuslessSystemd : Systemd {
  std::vector<std::string> list_unit_dependencies(const std::string& name, const std::string& which) override {
    happened.push_back("list " + name + " " + which);
    return units;
  }
  ActiveState get_unit_activestate(const std::string& name) override {
    happened.push_back("state " + name);
    return state;
  }
  bool start_unit(const std::string& name) override { return note("start " + name); }
  bool stop_unit(const std::string& name) override { return note("stop " + name); }
  bool start_isolate_target(const std::string& target) override { return !note("isolate " + target); }
  bool note(const std::string& what) {
    happened.push_back(what);
    return false;
  }

  std::vector<std::string> units = {"a.service", "b.socket", "x.Service", ".service", "service"};
  ActiveState state = ACTIVE_STATE_FAILED;
  Transcript happened;
};

TEST(CompositeMembers, CallTheOthersThroughTheVirtualTable) {
  BuslessSystemd busless;
  Systemd& base = busless;
  EXPECT_TRUE(base.change_target("t"));
  EXPECT_EQ(base.list_target_services("t"), busless.units);
  base.start_target_services("t.target");
  base.stop_target_services("t");
  EXPECT_EQ(text(busless.happened), R"(isolate t
list t.target Wants
list t.target Wants
start a.service
start .service
list t.target Wants
stop a.service
stop .service
)");
}

TEST(CompositeMembers, JudgeTargetsByTheStatesOfTheirUnits) {
  BuslessSystemd busless;
  Systemd& base = busless;
  for (int state = 0; state <= 6; ++state) {
    busless.state = static_cast<Systemd::ActiveState>(state);
    busless.happened.clear();
    EXPECT_EQ(base.is_target_active("t"), state == 1 || state == 3) << state;
    EXPECT_EQ(base.are_target_services_stopped("t"), state == 0 || state == 2 || state == 5) << state;
    EXPECT_EQ(text(busless.happened), "state t.target\nlist t.target Wants\nstate a.service\nstate .service\n");
  }
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
