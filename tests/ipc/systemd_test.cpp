// Call by call: this program looks on at what the library asks of sd-bus, and a peer answers as it is told.
#include "ipc/systemd.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <new>
#include <regex>
#include <utility>

#include "ipc/bus.h"
#include "support/bus_peer.h"
#include "support/descriptors.h"
#include "support/recorded_log.h"
#include "support/soon.h"

namespace {

using ecu::vorn::ipc::test::Transcript;

thread_local Transcript* notes = nullptr;  // null in the peer, and in what sd-bus calls of itself

bool nameless = false;  // a failed call leaves its error empty
sd_bus_error* filled(sd_bus_error* error) { return nameless ? nullptr : error; }

struct Silence {
  ~Silence() { notes = before; }
  Transcript* const before = std::exchange(notes, nullptr);
};

template <typename Call>
auto noted(const std::string& what, const Call& pass_on) {
  if (notes != nullptr) notes->push_back(what);
  const Silence silence;
  return pass_on();
}

#define REAL(function) reinterpret_cast<decltype(&(function))>(::dlsym(RTLD_NEXT, #function))

std::string joined(std::initializer_list<const char*> words) {
  std::string all;
  for (const char* const word : words) all += (all.empty() ? "" : " ") + std::string(word);
  return all;
}

}  // namespace

extern "C" {

int sd_bus_default_system(sd_bus** bus) {
  return noted("bus", [&] { return REAL(sd_bus_default_system)(bus); });
}
sd_bus* sd_bus_unref(sd_bus* bus) {
  return noted("-bus", [&] { return REAL(sd_bus_unref)(bus); });
}
sd_bus_message* sd_bus_message_unref(sd_bus_message* reply) {
  return noted("-reply", [&] { return REAL(sd_bus_message_unref)(reply); });
}
void sd_bus_error_free(sd_bus_error* error) {
  noted("-error", [&] { REAL(sd_bus_error_free)(error); });
}
int sd_bus_call_method(sd_bus* bus, const char* destination, const char* path, const char* interface,
                       const char* member, sd_bus_error* error, sd_bus_message** reply, const char* types, ...) {
  const char* words[] = {"", ""};
  va_list arguments;
  va_start(arguments, types);
  for (std::size_t i = 0; types[i] != '\0'; ++i) words[i] = va_arg(arguments, const char*);
  va_end(arguments);
  return noted(joined({"call", destination, path, interface, member, types, words[0], words[1]}), [&] {
    const auto real = REAL(sd_bus_call_method);
    return real(bus, destination, path, interface, member, filled(error), reply, types, words[0], words[1]);
  });
}
int sd_bus_get_property_string(sd_bus* bus, const char* destination, const char* path, const char* interface,
                               const char* member, sd_bus_error* error, char** value) {
  return noted(joined({"get", destination, path, interface, member}), [&] {
    return REAL(sd_bus_get_property_string)(bus, destination, path, interface, member, filled(error), value);
  });
}
int sd_bus_get_property_strv(sd_bus* bus, const char* destination, const char* path, const char* interface,
                             const char* member, sd_bus_error* error, char*** array) {
  return noted(joined({"get", destination, path, interface, member}), [&] {
    return REAL(sd_bus_get_property_strv)(bus, destination, path, interface, member, filled(error), array);
  });
}

// Sanitizers bring one of their own, and look for what is lost or used too late.
#if !defined(KELTIPC_SANITIZED)
void __libc_free(void* memory);
void free(void* memory) noexcept {
  if (notes != nullptr && memory != nullptr) notes->emplace_back("-free");
  __libc_free(memory);
}
constexpr bool sees_free = true;
#else
constexpr bool sees_free = false;
#endif

}  // extern "C"

/// The library gets no memory for what is long.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = notes != nullptr && size > 50'000 ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  const Silence silence;
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace ecu::vorn::ipc::test {
namespace {

using testing::EndsWith;
using testing::PrintToString;
using testing::StartsWith;

int refuse(sd_bus_message* call) { return sd_bus_reply_method_errorf(call, "org.example.No", "%s", "not today"); }
int refuse_silently(sd_bus_message* call) {
  const sd_bus_error silent{"org.example.Silent", nullptr, 0};
  return sd_bus_reply_method_error(call, &silent);
}
int unreadable(sd_bus_message* call) { return sd_bus_reply_method_return(call, "u", 7U); }
int empty(sd_bus_message* call) { return sd_bus_reply_method_return(call, ""); }

/// What may come in place of the answer that each call is made for, and how its ERROR line then ends.
const struct Fault {
  BusPeer::Answer answer;
  const char* end_of_line;
  bool is_nameless = false;
  const char* timeout = "20s";
} faults[] = {{[](auto*) { return 1; }, "org.freedesktop.DBus.Error.", false, "100ms"},
              {refuse, "org.example.No: not today, -error"},
              {refuse_silently, "org.example.Silent: , -error"},
              {refuse, ", -error", true}};

struct SystemdCalls : testing::Test {
  ~SystemdCalls() override {
    managed = {};
    EXPECT_TRUE(soon([this] { return open_descriptors() == descriptors; })) << "the library keeps a connection";
  }

  /// What a call does and logs, in order, and behind "=> " what it gives.
  template <typename Call>
  std::string trace(BusPeer::Answer answer, const Call& call) {
    std::string all, result = "bad_alloc";
    done.clear();
    peer.answer = answer;
    notes = &done;
    try {
      result = call(systemd);
    } catch (const std::bad_alloc&) {
      notes = nullptr;
    }
    notes = nullptr;
    for (const std::string& one : done) all += one + ", ";
    return all + "=> " + result;
  }

  /// Every way in which a call fails: `asked` is the call, `line` begins its ERROR line, `end` is what follows it.
  template <typename Call>
  void expect_failures(const Call& call, const std::string& asked, const std::string& line, const std::string& end) {
    for (const Fault& fault : faults) {
      ::setenv("SYSTEMD_BUS_TIMEOUT", fault.timeout, 1);
      nameless = fault.is_nameless;
      const std::string begin = "bus, " + asked + ", ERROR " + line + fault.end_of_line;
      EXPECT_THAT(trace(fault.answer, call), testing::AllOf(StartsWith(begin), EndsWith(", " + end)));
    }
    nameless = false;
    BusPeer::is_reachable(false);
    EXPECT_EQ(trace(answer_well, call),
              "bus, CRITICAL Unable to retrieve connection to DBus system bus: Connection refused, " +
                  end.substr(end.find("=>")));
    BusPeer::is_reachable(true);
  }

  Transcript done;
  RecordedLog log{done, "ipc.systemd"};
  BusPeer peer;
  int descriptors = open_descriptors();
  Systemd systemd;
};

const std::string manager =
    "call org.freedesktop.systemd1 /org/freedesktop/systemd1 org.freedesktop.systemd1.Manager ";
const std::string released = "-error, -reply, -bus, => ", unread = "could not be parsed: No such device or address, ";

std::string seen(const std::string& expected) {
  return sees_free ? expected : std::regex_replace(expected, std::regex("-free, "), "");
}

TEST_F(SystemdCalls, ReleaseErrorReplyValueAndBusInThisOrderAndArraysFirst) {
  const std::string megabyte(1 << 20, 'x'), long_path = "/" + megabyte.substr(0, 60'000);
  const struct {
    std::string asked, line, well, without_memory, failed;
    std::string (*call)(Systemd&);
  } primitives[] = {
      {"call d.e /p i.j LoadUnit s a.service ", "Retrieving instance of 'a.service' via 'LoadUnit' failed: ",
       released + "\"/unit/a\"", released + "bad_alloc", released + "\"\"",
       [](Systemd& s) { return PrintToString(s.get_object_instance("d.e", "i.j", "/p", "a.service")); }},
      {"get d.e /p i.j Some", "Retrieving property of 'Some' failed: ", "-error, -free, -bus, => \"active\"",
       "-error, -free, -bus, => bad_alloc", "-error, -bus, => \"\"",
       [](Systemd& s) { return PrintToString(s.get_property_value("d.e", "i.j", "/p", "Some")); }},
      {"get d.e /p i.j Wants",
       "Retrieving property of 'Wants' failed: ", "-free, -free, -free, -error, -bus, => { \"b.service\", \"\" }",
       "-free, -free, -free, -free, -error, -bus, => bad_alloc", "-error, -bus, => {}",
       [](Systemd& s) { return PrintToString(s.get_property_value_array("d.e", "i.j", "/p", "Wants")); }}};
  for (const auto& [asked, line, well, without_memory, failed, call] : primitives) {
    const std::string begin = "bus, " + asked + ", ";
    EXPECT_EQ(trace(answer_well, call), seen(begin + well));
    managed = {long_path.c_str(), megabyte.c_str(), {"a", megabyte.c_str(), "c", nullptr}};
    EXPECT_EQ(trace(answer_well, call), seen(begin + without_memory));
    managed = {};
    for (const auto bad : {unreadable, empty}) {
      const bool reads = asked[0] == 'c';
      EXPECT_THAT(
          trace(bad, call),
          testing::AllOf(StartsWith(begin + "ERROR " +
                                    (reads ? "DBus response message from GetUnit 'a.service' " + unread : line)),
                         EndsWith(", " + failed)));
    }
    expect_failures(call, asked, line, failed);
  }
}

TEST_F(SystemdCalls, TakePropertiesOfAnySize) {
  const std::string megabyte(1 << 20, 'x');
  const auto count = [](Systemd& s) {
    return PrintToString(s.get_property_value_array("d.e", "i.j", "/p", "Wants").size());
  };
  peer.answer = answer_well;
  managed.state = megabyte.c_str();
  EXPECT_EQ(systemd.get_property_value("d.e", "i.j", "/p", "Some"), megabyte);
  managed.wants = std::vector<const char*>(10'001, "c.service");
  managed.wants.back() = nullptr;
  EXPECT_EQ(count(systemd), "10000");
  managed.wants = {nullptr};
  EXPECT_EQ(trace(answer_well, count), "bus, get d.e /p i.j Wants, -error, -bus, => 0");
  EXPECT_EQ(BusStrings(static_cast<char**>(std::calloc(1, sizeof(char*)))).next(), nullptr) << "one that is there";
}

TEST_F(SystemdCalls, ActAsManagerMethodsWithAJobMode) {
  const struct {
    std::string method, unit, argument, mode;
    bool (Systemd::*action)(const std::string&);
  } actions[] = {{"StartUnit", "a.service", "a.service", "replace", &Systemd::start_unit},
                 {"StopUnit", "a.service", "a.service", "replace", &Systemd::stop_unit},
                 {"RestartUnit", "a.service", "a.service", "replace", &Systemd::restart_unit},
                 {"ReloadUnit", "a.service", "a.service", "replace", &Systemd::reload_unit},
                 {"StartUnit", "x.target", "x", "isolate", &Systemd::change_target},
                 {"StartUnit", "x.target", "x.target", "isolate", &Systemd::start_isolate_target},
                 {"StartUnit", ".target", ".target", "isolate", &Systemd::change_target},
                 {"StartUnit", "target.target", "target", "isolate", &Systemd::change_target},
                 {"StartUnit", "x.Target.target", "x.Target", "isolate", &Systemd::change_target},
                 {"StartUnit", ".target", "", "isolate", &Systemd::change_target}};
  for (const auto& [method, unit, argument, mode, action] : actions) {
    const auto call = [member = action, &name = argument](Systemd& s) { return PrintToString((s.*member)(name)); };
    const std::string asked = manager + method + " ss " + unit + " " + mode, named = method + " '" + unit + "' ";
    std::string ends = released + "true";
    if (mode == "isolate") ends.insert(ends.find("=>"), "NOTICE Changed to target '" + argument + "', ");
    EXPECT_EQ(trace(answer_well, call), "bus, " + asked + ", INFO " + named + "issued successfully, " + ends);
    EXPECT_EQ(trace(unreadable, call),
              "bus, " + asked + ", ERROR DBus response message from " + named + unread + ends);
    expect_failures(call, asked, "Call to " + named + "failed: ", released + "false");
  }
  for (const int action : {-1, 0, 4, 5, INT32_MIN, INT32_MAX}) {
    const auto act = [action](Systemd& s) {
      return PrintToString(s.start_stop_unit("a", static_cast<Systemd::UnitAction>(action), "fail"));
    };
    EXPECT_THAT(trace(refuse, act),
                action == 0 ? StartsWith("bus, " + manager + "StopUnit ss a fail, ERROR ") : StartsWith("=> false"));
  }
}

TEST_F(SystemdCalls, ReadStatesFromTheObjectThatLoadUnitNamesAndAskNothingOfNoUnit) {
  const struct {
    std::string property;
    std::string (*call)(Systemd&);
  } queries[] = {
      {"ActiveState", [](Systemd& s) { return std::to_string(s.get_unit_activestate("a.service")); }},
      {"UnitFileState", [](Systemd& s) { return std::to_string(s.get_unit_installstate("a.service")); }},
      {"Wants", [](Systemd& s) { return std::to_string(s.list_unit_dependencies("a.service", "Wants").size()); }}};
  for (const auto& [property, call] : queries) {
    EXPECT_THAT(trace(answer_well, call),
                StartsWith("bus, " + manager + "LoadUnit s a.service , -error, -reply, -bus, bus, get " +
                           "org.freedesktop.systemd1 /unit/a org.freedesktop.systemd1.Unit " + property + ", -"));
    EXPECT_THAT(trace(refuse, call), EndsWith("not today, " + released + "0"));
  }
  done.clear();
  EXPECT_FALSE(systemd.get_unit_activestate("") || systemd.get_unit_installstate("") || systemd.stop_unit(""));
  EXPECT_EQ(done, Transcript{});
}

std::string name_of(const std::string& prefix, const Transcript& words, int value) {
  if (value < 0 || value >= static_cast<int>(words.size())) return "";
  std::string word = words[static_cast<std::size_t>(value)];
  std::transform(word.begin(), word.end(), word.begin(), [](char c) { return c == '-' ? '_' : std::toupper(c); });
  return "Systemd::" + prefix + "_STATE_" + word;
}

TEST_F(SystemdCalls, KnowStatesByTheirExactWordsAndNameThem) {
  const Transcript active = {"error", "active", "inactive", "activating", "deactivating", "failed", "reloading"};
  const Transcript installed = {"error",  "enabled",        "enabled-runtime", "linked",  "linked-runtime",
                                "masked", "masked-runtime", "static",          "disabled"};
  Transcript words = {"", "Active", "active ", "activ", "maintenance", "indirect", "enabled-", "Static"};
  for (const auto* known : {&active, &installed}) words.insert(words.end(), known->begin(), known->end());
  const auto value_of = [](const std::string& word, const Transcript& known) {
    const auto found = std::find(known.begin(), known.end(), word);
    return found == known.end() ? 0 : found - known.begin();
  };
  peer.answer = answer_well;
  for (const std::string& word : words) {
    managed.state = word.c_str();
    EXPECT_EQ(systemd.get_unit_activestate("a.service"), value_of(word, active)) << word;
    EXPECT_EQ(systemd.get_unit_installstate("a.service"), value_of(word.empty() ? "disabled" : word, installed));
  }
  for (const int value : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 42, 42}) {
    EXPECT_EQ(systemd.to_str(static_cast<Systemd::ActiveState>(value)), name_of("ACTIVE", active, value));
    EXPECT_EQ(systemd.to_str(static_cast<Systemd::InstallState>(value)), name_of("INSTALL", installed, value));
  }
}

/// The primitive members, without a bus.
struct BuslessSystemd : Systemd {
  std::vector<std::string> list_unit_dependencies(const std::string& unit, const std::string& property) override {
    return done.push_back(unit + " " + property), units;
  }
  ActiveState get_unit_activestate(const std::string& unit) override { return done.push_back(unit), state; }
  bool start_unit(const std::string& unit) override { return done.push_back("start " + unit), false; }
  bool stop_unit(const std::string& unit) override { return done.push_back("stop " + unit), false; }
  bool start_isolate_target(const std::string& target) override { return done.push_back("isolate " + target), true; }

  std::vector<std::string> units = {"a.service", "b.socket", "c.target", "x.Service", "d.service", "service"};
  ActiveState state = ACTIVE_STATE_FAILED;
  Transcript done;
};

TEST(CompositeMembers, GoThroughTheVirtualTable) {
  BuslessSystemd busless;
  Systemd& base = busless;
  EXPECT_TRUE(base.change_target("t"));
  EXPECT_EQ(base.list_target_services("t"), busless.units);
  base.start_target_services("t.target");
  base.stop_target_services("t");
  EXPECT_EQ(busless.done, (Transcript{"isolate t", "t.target Wants", "t.target Wants", "start a.service",
                                      "start d.service", "t.target Wants", "stop a.service", "stop d.service"}));
  for (int state = 0; state <= 6; ++state) {
    busless.state = static_cast<Systemd::ActiveState>(state);
    busless.done.clear();
    EXPECT_EQ(base.is_target_active("t"), state == 1 || state == 3) << state;
    EXPECT_EQ(base.are_target_services_stopped("t"), state == 0 || state == 2 || state == 5) << state;
    EXPECT_EQ(busless.done, (Transcript{"t.target", "t.target Wants", "a.service", "d.service"}));
  }
  busless.units = {"b.socket"};
  EXPECT_TRUE(base.are_target_services_stopped("t"));
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
