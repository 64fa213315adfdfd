// Call by call: this program has an sd-bus of its own, which notes what it is asked and answers as it is told.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>

#include "ipc/systemd.h"
#include "support/recorded_log.h"

// Sanitizers bring a free() of their own and look for what is lost or used too late; elsewhere the order is noted.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KELT_SANITIZED
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KELT_SANITIZED
#endif

namespace ecu::vorn::ipc::test {
namespace {

struct Answers {
  int bus = 1;   ///< of sd_bus_default_system
  int call = 0;  ///< of method calls and property reads
  int read = 1;  ///< of sd_bus_message_read
  const char* error_name = "org.example.No";
  const char* error_message = "not today";
  std::string text = "/unit/a";  ///< object path, or value of a string property
  std::vector<std::string> strings = {};
  bool null_array = false;
  std::size_t largest_allocation = SIZE_MAX;  ///< one that is larger throws
};

Answers answers;
std::size_t allowed_allocation = SIZE_MAX;  // in force before any constructor has run
Transcript notes;
std::set<const void*> held;  ///< not released yet
std::set<const void*> ours;  ///< memory that the library is to free

#ifdef KELT_SANITIZED
constexpr bool sees_free = false;
#else
constexpr bool sees_free = true;
#endif

template <typename Memory>
Memory* hand_out(Memory* memory) {
  if (sees_free) held.insert(memory), ours.insert(memory);
  return memory;
}

template <typename Result>
int answer(sd_bus_error* error, Result&& on_success) {
  EXPECT_TRUE(error->name == nullptr && error->message == nullptr && error->_need_free == 0);
  held.insert(error);
  if (answers.call < 0) {
    error->name = answers.error_name;
    error->message = answers.error_message;
  } else {
    on_success();
  }
  return answers.call;
}

void note_released(const char* what, const void* which) {
  notes.emplace_back(what);
  EXPECT_TRUE(which == nullptr || held.erase(which) == 1) << what << " of what is not held";
}

}  // namespace

extern "C" {

int sd_bus_default_system(sd_bus** bus) {
  EXPECT_EQ(*bus, nullptr);
  notes.emplace_back("bus");
  if (answers.bus >= 0) held.insert(*bus = reinterpret_cast<sd_bus*>(&answers));
  return answers.bus;
}

sd_bus* sd_bus_unref(sd_bus* bus) {
  note_released("-bus", bus);
  return nullptr;
}

int sd_bus_call_method(sd_bus* bus, const char* destination, const char* path, const char* interface,
                       const char* member, sd_bus_error* error, sd_bus_message** reply, const char* types, ...) {
  EXPECT_TRUE(held.count(bus) == 1 && *reply == nullptr);
  std::string call = std::string("call ") + destination + " " + path + " " + interface + " " + member;
  va_list arguments;
  va_start(arguments, types);
  for (const char* type = types; *type != '\0'; ++type)
    call += std::string(" ") + *type + ":" + va_arg(arguments, const char*);
  va_end(arguments);
  notes.push_back(call);
  return answer(error,
                [reply] { held.insert(*reply = reinterpret_cast<sd_bus_message*>(::strdup(answers.text.c_str()))); });
}

int sd_bus_message_read(sd_bus_message* reply, const char* types, ...) {
  notes.emplace_back(std::string("read ") + types);
  EXPECT_EQ(held.count(reply), 1U);
  va_list arguments;
  va_start(arguments, types);
  if (answers.read >= 0) *va_arg(arguments, const char**) = reinterpret_cast<const char*>(reply);
  va_end(arguments);
  return answers.read;
}

sd_bus_message* sd_bus_message_unref(sd_bus_message* reply) {
  note_released("-reply", reply);
  std::free(reply);
  return nullptr;
}

int sd_bus_get_property_string(sd_bus*, const char* destination, const char* path, const char* interface,
                               const char* member, sd_bus_error* error, char** value) {
  notes.push_back(std::string("get ") + destination + " " + path + " " + interface + " " + member);
  return answer(error, [value] { *value = hand_out(::strdup(answers.text.c_str())); });
}

int sd_bus_get_property_strv(sd_bus*, const char* destination, const char* path, const char* interface,
                             const char* member, sd_bus_error* error, char*** array) {
  notes.push_back(std::string("get ") + destination + " " + path + " " + interface + " " + member);
  return answer(error, [array] {
    if (answers.null_array) return;
    *array = hand_out(static_cast<char**>(std::calloc(answers.strings.size() + 1, sizeof(char*))));
    for (std::size_t i = 0; i < answers.strings.size(); ++i)
      (*array)[i] = hand_out(::strdup(answers.strings[i].c_str()));
  });
}

void sd_bus_error_free(sd_bus_error* error) { note_released("-error", error); }

#ifndef KELT_SANITIZED
void free(void* memory) noexcept {
  static auto* const system_free = reinterpret_cast<void (*)(void*)>(::dlsym(RTLD_NEXT, "free"));
  if (ours.erase(memory) == 1) note_released("-free", memory);
  system_free(memory);
}
#endif

}  // extern "C"

}  // namespace ecu::vorn::ipc::test

[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = size > ecu::vorn::ipc::test::allowed_allocation ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace ecu::vorn::ipc::test {
namespace {

const std::string manager =
    "call org.freedesktop.systemd1 /org/freedesktop/systemd1 org.freedesktop.systemd1.Manager ";
const std::string no_bus =
    "bus, CRITICAL Unable to retrieve connection to DBus system bus: No such file or directory";
const std::string reply_released = ", -error, -reply, -bus";

Answers with(void (*change)(Answers&)) {
  Answers changed;
  change(changed);
  return changed;
}

const Answers disconnected = with([](Answers& a) { a.bus = -ENOENT; });
const Answers refusing = with([](Answers& a) { a.call = -EACCES; });
const Answers wordless = with([](Answers& a) { a.call = -EIO, a.error_message = nullptr; });
const Answers nameless = with([](Answers& a) { a.call = -ENOMEM, a.error_name = a.error_message = nullptr; });
const Answers unreadable = with([](Answers& a) { a.read = -ENXIO; });
const Answers too_long = with([](Answers& a) { a.text.assign(5000, 'x'), a.largest_allocation = 4000; });

struct SystemdCalls : testing::Test {
  ~SystemdCalls() override { answers = {}, notes.clear(); }

  /// What one call does and logs with these answers, in order, and behind "=> " what it gives.
  template <typename Call>
  std::string trace(const Answers& given, Call&& call) {
    notes.clear();
    answers = given;
    allowed_allocation = given.largest_allocation;
    try {
      const auto result = call();
      allowed_allocation = SIZE_MAX;
      answers = {};
      notes.push_back("=> " + testing::PrintToString(result));
    } catch (const std::bad_alloc&) {
      allowed_allocation = SIZE_MAX;
      answers = {};
      notes.emplace_back("=> bad_alloc");
    }
    EXPECT_TRUE(held.empty()) << "references that are left";
    std::string all;
    for (const std::string& note : notes) all += (all.empty() ? "" : ", ") + note;
    return all;
  }

  /// The ways in which every call fails: `asked` is the call, `line` begins its ERROR line.
  template <typename Call>
  void expect_failures(Call&& call, const std::string& asked, const std::string& line, const std::string& end) {
    const std::string logged = "bus, " + asked + ", ERROR " + line;
    EXPECT_EQ(trace(disconnected, call), no_bus + end.substr(end.find(", =>")));
    EXPECT_EQ(trace(refusing, call), logged + "org.example.No: not today" + end);
    EXPECT_EQ(trace(wordless, call), logged + "org.example.No: " + end);
    EXPECT_EQ(trace(nameless, call), logged + end);
  }

  RecordedLog log{notes, "ipc.systemd"};
  Systemd systemd;
};

std::string freed(int times) {
  std::string all;
  for (int i = 0; sees_free && i < times; ++i) all += ", -free";
  return all;
}

}  // namespace

TEST_F(SystemdCalls, ObjectPathsAreAskedOfLoadUnitAndCopiedBeforeTheReplyGoes) {
  const auto call = [this] { return systemd.get_object_instance("d", "i", "/p", "a.service"); };
  const std::string asked = "call d /p i LoadUnit s:a.service";
  const std::string unread = ", ERROR DBus response message from GetUnit 'a.service' could not be parsed: ";
  EXPECT_EQ(trace({}, call), "bus, " + asked + ", read o" + reply_released + ", => \"/unit/a\"");
  EXPECT_EQ(trace(unreadable, call),
            "bus, " + asked + ", read o" + unread + "No such device or address" + reply_released + ", => \"\"");
  EXPECT_EQ(trace(too_long, call), "bus, " + asked + ", read o" + reply_released + ", => bad_alloc");
  expect_failures(call, asked,
                  "Retrieving instance of 'a.service' via 'LoadUnit' failed: ", reply_released + ", => \"\"");
}

TEST_F(SystemdCalls, StringPropertiesAreFreedBehindTheError) {
  const auto call = [this] { return systemd.get_property_value("d", "i", "/p", "ActiveState"); };
  const std::string asked = "get d /p i ActiveState";
  EXPECT_EQ(trace({}, call), "bus, " + asked + ", -error" + freed(1) + ", -bus, => \"/unit/a\"");
  EXPECT_EQ(trace(too_long, call), "bus, " + asked + ", -error" + freed(1) + ", -bus, => bad_alloc");
  expect_failures(call, asked, "Retrieving property of 'ActiveState' failed: ", ", -error, -bus, => \"\"");
}

TEST_F(SystemdCalls, StringArraysAreFreedBeforeTheError) {
  const auto call = [this] { return systemd.get_property_value_array("d", "i", "/p", "Wants"); };
  const std::string asked = "get d /p i Wants";
  Answers given;
  EXPECT_EQ(trace(given, call), "bus, " + asked + freed(1) + ", -error, -bus, => {}");
  given.strings = {"b.socket", "", "a.service", "b.socket"};
  EXPECT_EQ(trace(given, call),
            "bus, " + asked + freed(5) + ", -error, -bus, => { \"b.socket\", \"\", \"a.service\", \"b.socket\" }");
  given.strings = {"a.service", std::string(5000, 'x'), "c.service"};
  given.largest_allocation = 4000;
  EXPECT_EQ(trace(given, call), "bus, " + asked + freed(4) + ", -error, -bus, => bad_alloc");
  given.null_array = true;
  EXPECT_EQ(trace(given, call), "bus, " + asked + ", -error, -bus, => {}");
  expect_failures(call, asked, "Retrieving property of 'Wants' failed: ", ", -error, -bus, => {}");
}

TEST_F(SystemdCalls, ActionsAreManagerMethodsWithAJobMode) {
  const std::pair<std::string, bool (*)(Systemd&)> actions[] = {
      {"StartUnit replace", [](Systemd& s) { return s.start_unit("a.service"); }},
      {"StopUnit replace", [](Systemd& s) { return s.stop_unit("a.service"); }},
      {"RestartUnit replace", [](Systemd& s) { return s.restart_unit("a.service"); }},
      {"ReloadUnit replace", [](Systemd& s) { return s.reload_unit("a.service"); }},
      {"StopUnit fail", [](Systemd& s) { return s.start_stop_unit("a.service", Systemd::UNIT_ACTION_STOP, "fail"); }},
  };
  for (const auto& [name, action] : actions) {
    const auto call = [this, act = action] { return act(systemd); };
    const std::string method = name.substr(0, name.find(' '));
    const std::string asked = manager + method + " s:a.service s:" + name.substr(method.size() + 1);
    const std::string unread = "ERROR DBus response message from " + method + " 'a.service' could not be parsed: ";
    EXPECT_EQ(trace({}, call), "bus, " + asked + ", read o, INFO " + method + " 'a.service' issued successfully" +
                                   reply_released + ", => true");
    EXPECT_EQ(trace(unreadable, call),
              "bus, " + asked + ", read o, " + unread + "No such device or address" + reply_released + ", => true");
    expect_failures(call, asked, "Call to " + method + " 'a.service' failed: ", reply_released + ", => false");
  }
  const RecordedLog below_info(notes, "ipc.systemd", 5);
  EXPECT_EQ(trace({}, [this] { return systemd.start_unit("a.service"); }),
            "bus, " + manager + "StartUnit s:a.service s:replace, read o" + reply_released + ", => true");
}

TEST_F(SystemdCalls, WhatCannotBeAskedForDoesNotTouchTheBus) {
  for (const int action : {-1, 4, 5, INT32_MIN, INT32_MAX}) {
    const auto unknown = static_cast<Systemd::UnitAction>(action);
    EXPECT_EQ(trace({}, [&] { return systemd.start_stop_unit("a.service", unknown, "replace"); }), "=> false");
  }
  EXPECT_EQ(trace({}, [this] { return systemd.stop_unit(""); }), "=> false");
  EXPECT_EQ(trace({}, [this] { return systemd.get_unit_activestate(""); }), "=> 0");
  EXPECT_EQ(trace({}, [this] { return systemd.get_unit_installstate(""); }), "=> 0");
}

TEST_F(SystemdCalls, IsolatingLogsTheTargetAsTheCallerNamedItAndOnlyOnSuccess) {
  const std::pair<std::string, std::string> targets[] = {
      {"multi-user", "multi-user.target"}, {"rescue.target", "rescue.target"}, {".target", ".target"},
      {"target", "target.target"},         {"x.Target", "x.Target.target"},    {"", ".target"}};
  for (const auto& [target, unit] : targets) {
    const std::string asked = manager + "StartUnit s:" + unit + " s:isolate";
    EXPECT_EQ(trace({}, [&, &name = target] { return systemd.change_target(name); }),
              "bus, " + asked + ", read o, INFO StartUnit '" + unit + "' issued successfully" + reply_released +
                  ", NOTICE Changed to target '" + target + "', => true");
    expect_failures([&, &name = target] { return systemd.start_isolate_target(name); }, asked,
                    "Call to StartUnit '" + unit + "' failed: ", reply_released + ", => false");
  }
}

TEST_F(SystemdCalls, StatesAreKnownByTheirExactWords) {
  const Transcript active = {"Active", "active", "inactive", "activating", "deactivating", "failed", "reloading"};
  const Transcript installed = {"indirect", "enabled",        "enabled-runtime", "linked",  "linked-runtime",
                                "masked",   "masked-runtime", "static",          "disabled"};
  for (const char* word :
       {"active ",        "activ",        "maintenance",    "enabled-", "bad",     "Static",
        "\xff",           "linked",       "failed",         "Active",   "active",  "inactive",
        "activating",     "deactivating", "reloading",      "indirect", "enabled", "enabled-runtime",
        "linked-runtime", "masked",       "masked-runtime", "static",   "disabled"}) {
    const auto value_in = [word](const Transcript& words) {
      const auto found = std::find(words.begin(), words.end(), word);
      return found == words.end() ? 0 : found - words.begin();
    };
    answers.text = word;
    EXPECT_EQ(systemd.get_unit_activestate("a.service"), value_in(active)) << word;
    EXPECT_EQ(systemd.get_unit_installstate("a.service"), value_in(installed)) << word;
  }
  answers.text = "/unit/a";
}

TEST_F(SystemdCalls, StatesAreReadFromTheObjectThatLoadUnitNames) {
  const std::string get = "bus, " + manager + "LoadUnit s:a.service, read o" + reply_released +
                          ", bus, get org.freedesktop.systemd1 /unit/a org.freedesktop.systemd1.Unit ";
  const std::string end = ", -error" + freed(1) + ", -bus, => 0";
  EXPECT_EQ(trace({}, [this] { return systemd.get_unit_activestate("a.service"); }), get + "ActiveState" + end);
  EXPECT_EQ(trace({}, [this] { return systemd.get_unit_installstate("a.service"); }), get + "UnitFileState" + end);
  EXPECT_EQ(trace({}, [this] { return systemd.list_unit_dependencies("a.service", "After"); }),
            get + "After" + freed(1) + ", -error, -bus, => {}");
  const auto without_path = with([](Answers& a) { a.text = ""; });
  for (const auto& text : {trace(without_path, [this] { return systemd.get_unit_installstate("a.service"); }),
                           trace(without_path, [this] { return systemd.list_target_services("a").size(); })}) {
    EXPECT_TRUE(text.find("get ") == std::string::npos && text.find("=> 0") != std::string::npos) << text;
  }
}

TEST_F(SystemdCalls, NamesOfStatesCoverEachValueAndNoOther) {
  EXPECT_EQ(systemd.to_str(Systemd::ACTIVE_STATE_RELOADING), "Systemd::ACTIVE_STATE_RELOADING");
  EXPECT_EQ(systemd.to_str(Systemd::INSTALL_STATE_MASKED_RUNTIME), "Systemd::INSTALL_STATE_MASKED_RUNTIME");
  for (const int value : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 42, 42}) {
    EXPECT_EQ(systemd.to_str(static_cast<Systemd::ActiveState>(value)).empty(), value < 0 || value > 6) << value;
    EXPECT_EQ(systemd.to_str(static_cast<Systemd::InstallState>(value)).empty(), value < 0 || value > 8) << value;
  }
}

namespace {

/// The primitive members, without a bus.
struct BuslessSystemd : Systemd {
  std::vector<std::string> list_unit_dependencies(const std::string& unit, const std::string& property) override {
    return done.push_back(unit + " " + property), wants;
  }
  ActiveState get_unit_activestate(const std::string& unit) override { return done.push_back(unit), state; }
  bool start_unit(const std::string& unit) override { return done.push_back("start " + unit), false; }
  bool stop_unit(const std::string& unit) override { return done.push_back("stop " + unit), false; }
  bool start_isolate_target(const std::string& target) override { return done.push_back("isolate " + target), true; }

  std::vector<std::string> wants = {"a.service", "b.socket", "c.target", "x.Service", "d.service", "service"};
  ActiveState state = ACTIVE_STATE_FAILED;
  Transcript done;
};

}  // namespace

TEST_F(SystemdCalls, CompositesGoThroughTheVirtualTable) {
  BuslessSystemd busless;
  Systemd& base = busless;
  EXPECT_TRUE(base.change_target("t"));
  EXPECT_EQ(base.list_target_services("t"), busless.wants);
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
  busless.wants = {"b.socket"};
  EXPECT_TRUE(base.are_target_services_stopped("t"));
  EXPECT_TRUE(notes.empty()) << "the bus was used";
}

}  // namespace ecu::vorn::ipc::test
