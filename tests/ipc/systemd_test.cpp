#include "ipc/systemd.h"

#include <cerrno>

#include "support/interpose.h"

using namespace ecu::vorn::ipc;
using namespace ecu::vorn::ipc::test;
using testing::PrintToString;

// How the bus answers.
void well(FakeBus& /*bus*/) {}
void not_at_all(FakeBus& bus) { bus.connect_result = -ECONNREFUSED; }
void unreadably(FakeBus& bus) { bus.readable = false; }
void with_nothing(FakeBus& bus) { bus.list.clear(); }
void with_errors(FakeBus& bus) { bus.method_failure = bus.property_failure = {"org.No", "not today"}; }
void without_property(FakeBus& bus) { bus.property_failure = {"org.No", "not today"}; }
void without_error_name(FakeBus& bus) { bus.method_failure = {nullptr, nullptr}; }

// The calls under test. Each returns its result as text.
template <bool (Systemd::*call)(const std::string&)>
std::string on_a(Systemd& s) {
  return PrintToString((s.*call)("a"));
}
std::string start_nothing(Systemd& s) { return PrintToString(s.start_unit("")); }
template <int action>
std::string act(Systemd& s) {
  return PrintToString(s.start_stop_unit("a", static_cast<Systemd::UnitAction>(action), "fail"));
}
std::string isolate(Systemd& s) { return PrintToString(s.start_isolate_target("t")); }
std::string isolate_suffix(Systemd& s) { return PrintToString(s.start_isolate_target(".target")); }
std::string load(Systemd& s) { return PrintToString(s.get_object_instance("d", "i", "/p", "a")); }
std::string property(Systemd& s) { return PrintToString(s.get_property_value("d", "i", "/p", "Some")); }
std::string array(Systemd& s) { return PrintToString(s.get_property_value_array("d", "i", "/p", "Some")); }
std::string active(Systemd& s) { return s.to_str(s.get_unit_activestate("a")); }
std::string active_nothing(Systemd& s) { return s.to_str(s.get_unit_activestate("")); }
std::string install(Systemd& s) { return s.to_str(s.get_unit_installstate("a")); }
std::string install_nothing(Systemd& s) { return s.to_str(s.get_unit_installstate("")); }
std::string start_services(Systemd& s) {
  s.start_target_services("t");
  return "";
}
std::string wants(Systemd& s) { return PrintToString(s.list_unit_dependencies("a", "Wants")); }

// The requests to the bus and the log lines that are expected.
const std::string manager = "org.freedesktop.systemd1 /org/freedesktop/systemd1 org.freedesktop.systemd1.Manager ",
                  ask_load = manager + "LoadUnit a\n", ask = "d /p i LoadUnit a\n", get = "d /p i Some\n",
                  ask_unit = ask_load + "org.freedesktop.systemd1 /unit/a org.freedesktop.systemd1.Unit ",
                  not_loaded = "ERROR Retrieving instance of 'a' via 'LoadUnit' failed: ",
                  no_property = "ERROR Retrieving property of 'Some' failed: ", refusal = "org.No: not today\n",
                  no_path = "could not be parsed: No such device or address\n",
                  no_bus = "CRITICAL Unable to retrieve connection to DBus system bus: Connection refused\n";
std::string queued(const std::string& method, const std::string& unit, const std::string& mode) {
  return manager + method + " " + unit + " " + mode + "\nINFO " + method + " '" + unit + "' issued successfully\n";
}

struct Case {
  const char* name;
  std::string (*call)(Systemd&);
  void (*bus_answers)(FakeBus&);
  std::string expected;  ///< ends in the result
};

const Case cases[] = {
    {"Start", on_a<&Systemd::start_unit>, well, queued("StartUnit", "a", "replace") + "true"},
    {"Stop", on_a<&Systemd::stop_unit>, well, queued("StopUnit", "a", "replace") + "true"},
    {"Restart", on_a<&Systemd::restart_unit>, well, queued("RestartUnit", "a", "replace") + "true"},
    {"Reload", on_a<&Systemd::reload_unit>, well, queued("ReloadUnit", "a", "replace") + "true"},
    {"StopInAnotherMode", act<0>, well, queued("StopUnit", "a", "fail") + "true"},
    {"UnknownAction", act<4>, well, "false"},
    {"StartWithoutAName", start_nothing, well, "false"},
    {"StartRefused", on_a<&Systemd::start_unit>, with_errors,
     manager + "StartUnit a replace\nERROR Call to StartUnit 'a' failed: " + refusal + "false"},
    {"StartAnsweredUnreadably", on_a<&Systemd::start_unit>, unreadably,
     manager + "StartUnit a replace\nERROR DBus response message from StartUnit 'a' " + no_path + "true"},
    {"StartWithoutABus", on_a<&Systemd::start_unit>, not_at_all, no_bus + "false"},
    {"Isolate", isolate, well, queued("StartUnit", "t.target", "isolate") + "NOTICE Changed to target 't'\ntrue"},
    {"IsolateWithSuffix", isolate_suffix, well,
     queued("StartUnit", ".target", "isolate") + "NOTICE Changed to target '.target'\ntrue"},
    {"IsolateRefused", isolate, with_errors,
     manager + "StartUnit t.target isolate\nERROR Call to StartUnit 't.target' failed: " + refusal + "false"},
    {"StartServices", start_services, well,
     manager + "LoadUnit t.target\norg.freedesktop.systemd1 /unit/a org.freedesktop.systemd1.Unit Wants\n" +
         queued("StartUnit", "b.service", "replace") + queued("StartUnit", ".service", "replace")},
    {"Load", load, well, ask + "\"/unit/a\""},
    {"LoadRefused", load, with_errors, ask + not_loaded + refusal + "\"\""},
    {"LoadFailedWithoutAName", load, without_error_name, ask + not_loaded + "\n\"\""},
    {"LoadAnsweredUnreadably", load, unreadably,
     ask + "ERROR DBus response message from GetUnit 'a' " + no_path + "\"\""},
    {"LoadWithoutABus", load, not_at_all, no_bus + "\"\""},
    {"Property", property, well, get + "\"active\""},
    {"PropertyRefused", property, with_errors, get + no_property + refusal + "\"\""},
    {"PropertyWithoutABus", property, not_at_all, no_bus + "\"\""},
    {"Array", array, well, get + "{ \"b.service\", \"c\", \".service\" }"},
    {"EmptyArray", array, with_nothing, get + "{}"},
    {"ArrayRefused", array, with_errors, get + no_property + refusal + "{}"},
    {"ArrayWithoutABus", array, not_at_all, no_bus + "{}"},
    {"ActiveState", active, well, ask_unit + "ActiveState\nSystemd::ACTIVE_STATE_ACTIVE"},
    {"ActiveStateNotLoaded", active, with_errors, ask_load + not_loaded + refusal + "Systemd::ACTIVE_STATE_ERROR"},
    {"ActiveStateWithoutAName", active_nothing, well, "Systemd::ACTIVE_STATE_ERROR"},
    {"InstallStateNotLoaded", install, with_errors, ask_load + not_loaded + refusal + "Systemd::INSTALL_STATE_ERROR"},
    {"InstallStateNotReadable", install, without_property,
     ask_unit + "UnitFileState\nERROR Retrieving property of 'UnitFileState' failed: " + refusal +
         "Systemd::INSTALL_STATE_DISABLED"},
    {"InstallStateWithoutAName", install_nothing, well, "Systemd::INSTALL_STATE_ERROR"},
    {"Dependencies", wants, well, ask_unit + "Wants\n{ \"b.service\", \"c\", \".service\" }"},
    {"DependenciesNotLoaded", wants, with_errors, ask_load + not_loaded + refusal + "{}"},
};

struct SystemdCall : testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(Each, SystemdCall, testing::ValuesIn(cases),
                         [](const auto& each) { return each.param.name; });

TEST_P(SystemdCall, AsksLogsAndReleases) {
  Transcript happened;
  const RecordedLog log(happened, "ipc.systemd");
  FakeBus bus(happened);
  GetParam().bus_answers(bus);
  Systemd systemd;
  const std::string result = GetParam().call(systemd);
  EXPECT_EQ(text(happened) + result, GetParam().expected);
  EXPECT_EQ(bus.held, 0) << "not released";
}

/// "enabled-runtime" -> "INSTALL_STATE_ENABLED_RUNTIME"
std::string enumerator(const std::string& kind, const std::string& word) {
  std::string name = "Systemd::" + kind + "_STATE_";
  for (const char c : word) name += c == '-' ? '_' : static_cast<char>(std::toupper(c));
  return name;
}

TEST(States, AreKnownByTheirExactWords) {
  const Transcript of_activity = {"active", "inactive", "activating", "deactivating", "reloading", "failed"},
                   of_files = {"enabled",        "enabled-runtime", "disabled",       "linked",
                               "linked-runtime", "masked",          "masked-runtime", "static"};
  Transcript unused;
  FakeBus bus(unused);
  Systemd systemd;
  for (const Transcript& words : {of_activity, of_files, Transcript{"Active", "indirect"}}) {
    for (const std::string& word : words) {
      bus.property = word;
      EXPECT_EQ(active(systemd), enumerator("ACTIVE", words == of_activity ? word : "error"));
      EXPECT_EQ(install(systemd), enumerator("INSTALL", words == of_files ? word : "error"));
      EXPECT_EQ(systemd.is_target_active("t"), word == "active" || word == "activating") << word;
      EXPECT_EQ(systemd.are_target_services_stopped("t"),
                words != of_activity || word == "inactive" || word == "failed")
          << word;
    }
  }
}

/// Works without a bus, as an application's test does.
struct BuslessSystemd : Systemd {
  Transcript list_unit_dependencies(const std::string& unit, const std::string& which) override {
    return {unit + "." + which + ".service"};
  }
  ActiveState get_unit_activestate(const std::string& /*unit*/) override { return ACTIVE_STATE_ACTIVATING; }
  bool start_unit(const std::string& unit) override { return note("start " + unit); }
  bool stop_unit(const std::string& unit) override { return note("stop " + unit); }
  bool start_isolate_target(const std::string& target) override { return note("isolate " + target); }
  bool note(const std::string& what) {
    happened += what + "\n";
    return true;
  }
  std::string happened;
};

TEST(CompositeMembers, CallTheOthersThroughTheVirtualTable) {
  BuslessSystemd systemd;
  EXPECT_TRUE(systemd.change_target("t") && systemd.is_target_active("t"));
  EXPECT_FALSE(systemd.are_target_services_stopped("t"));
  systemd.start_target_services("t.target");
  systemd.stop_target_services("t");
  EXPECT_EQ(systemd.happened, "isolate t\nstart t.target.Wants.service\nstop t.target.Wants.service\n");
}
