// Call by call: this program looks on at what the library asks of sd-bus, and a peer answers as it is told.
#include "ipc/systemd.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <csignal>
#include <cstdarg>
#include <new>
#include <set>
#include <utility>

#include "support/bus_peer.h"
#include "support/descriptors.h"
#include "support/recorded_log.h"
#include "support/soon.h"

namespace {

using ecu::vorn::ipc::test::Transcript;

thread_local Transcript* notes = nullptr;  // null in the peer, and in what sd-bus calls of itself
bool is_odd = false;            // a failed call leaves its error empty, and an empty array is there in place of null
std::set<const void*> to_free;  // what the library got from sd-bus
thread_local std::size_t largest_allocation = SIZE_MAX;  // one that is larger throws

void note(const std::string& what) {
  if (notes != nullptr) notes->push_back(what);
}

struct Silence {
  ~Silence() { notes = before; }
  Transcript* const before = std::exchange(notes, nullptr);
};

/// Passes a call on to sd-bus.
template <typename Function, typename... Arguments>
auto pass_on(Function function, Arguments... arguments) {
  const Silence silence;
  return function(arguments...);
}
#define REAL(function) reinterpret_cast<decltype(&(function))>(::dlsym(RTLD_NEXT, #function))

int emptied(int result, sd_bus_error* error) {
  if (result < 0 && is_odd) pass_on(REAL(sd_bus_error_free), error);
  return result;
}

template <typename Real, typename Value>
int get(Real real, sd_bus* bus, std::array<const char*, 4> names, sd_bus_error* error, Value* value) {
  note(std::string("get ") + names[0] + " " + names[1] + " " + names[2] + " " + names[3]);
  const int result = pass_on(real, bus, names[0], names[1], names[2], names[3], error, value);
  const Silence silence;
  to_free = {*value};
  return emptied(result, error);
}

}  // namespace

extern "C" {

int sd_bus_default_system(sd_bus** bus) {
  note("bus");
  return pass_on(REAL(sd_bus_default_system), bus);
}
sd_bus* sd_bus_unref(sd_bus* bus) {
  note("-bus");
  return pass_on(REAL(sd_bus_unref), bus);
}
int sd_bus_call_method(sd_bus* bus, const char* destination, const char* path, const char* interface,
                       const char* member, sd_bus_error* error, sd_bus_message** reply, const char* types, ...) {
  const char* strings[] = {"", ""};
  va_list arguments;
  va_start(arguments, types);
  for (std::size_t i = 0; types[i] != '\0'; ++i) strings[i] = va_arg(arguments, const char*);
  va_end(arguments);
  note(std::string("call ") + destination + " " + path + " " + interface + " " + member + " " + types + ":" +
       strings[0] + ":" + strings[1]);
  const auto real = REAL(sd_bus_call_method);
  return emptied(
      pass_on(real, bus, destination, path, interface, member, error, reply, types, strings[0], strings[1]), error);
}
int sd_bus_message_read(sd_bus_message* reply, const char* types, ...) {
  va_list arguments;
  va_start(arguments, types);
  void* const value = va_arg(arguments, void*);
  va_end(arguments);
  note(std::string("read ") + types);
  return pass_on(REAL(sd_bus_message_read), reply, types, value);
}
sd_bus_message* sd_bus_message_unref(sd_bus_message* reply) {
  note("-reply");
  return pass_on(REAL(sd_bus_message_unref), reply);
}
int sd_bus_get_property_string(sd_bus* bus, const char* destination, const char* path, const char* interface,
                               const char* member, sd_bus_error* error, char** value) {
  return get(REAL(sd_bus_get_property_string), bus, {destination, path, interface, member}, error, value);
}
int sd_bus_get_property_strv(sd_bus* bus, const char* destination, const char* path, const char* interface,
                             const char* member, sd_bus_error* error, char*** array) {
  const int result = get(REAL(sd_bus_get_property_strv), bus, {destination, path, interface, member}, error, array);
  const Silence silence;
  if (is_odd && result >= 0 && *array == nullptr) *array = static_cast<char**>(std::calloc(1, sizeof(char*)));
  to_free.insert(*array);
  for (char** entry = *array; entry != nullptr && *entry != nullptr; ++entry) to_free.insert(*entry);
  return result;
}
void sd_bus_error_free(sd_bus_error* error) {
  note("-error");
  pass_on(REAL(sd_bus_error_free), error);
}

// Sanitizers bring one of their own, and look for what is lost or used too late.
#if !defined(KELTIPC_SANITIZED)
void __libc_free(void* memory);
void free(void* memory) noexcept {
  if (notes != nullptr && memory != nullptr && to_free.erase(memory) == 1) note("-free");
  __libc_free(memory);
}
constexpr bool sees_free = true;
#else
constexpr bool sees_free = false;
#endif

}  // extern "C"

[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = size > largest_allocation ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace ecu::vorn::ipc::test {
namespace {

const std::string megabyte(1 << 20, 'x');

std::atomic<const char*> state_word{"active"};
std::atomic<int> wants{2};

int reply_with_wants(sd_bus_message* call) {
  sd_bus_message* reply = nullptr;
  sd_bus_message_new_method_return(call, &reply);
  sd_bus_message_open_container(reply, 'v', "as");
  sd_bus_message_open_container(reply, 'a', "s");
  for (int i = 0; i < wants; ++i)
    sd_bus_message_append(reply, "s", i == 1 ? "" : ("b" + std::to_string(i) + ".service").c_str());
  sd_bus_message_close_container(reply);
  sd_bus_message_close_container(reply);
  sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return 1;
}

/// As a manager does.
int answer_well(sd_bus_message* call) {
  if (std::strcmp(sd_bus_message_get_member(call), "Get") != 0)
    return sd_bus_reply_method_return(call, "o", "/unit/a");
  const char* property = nullptr;
  sd_bus_message_skip(call, "s");
  sd_bus_message_read_basic(call, 's', &property);
  if (std::strcmp(property, "Wants") == 0) return reply_with_wants(call);
  return sd_bus_reply_method_return(call, "v", "s", state_word.load());
}

const sd_bus_error silent{"org.example.Silent", nullptr, 0};
int refuse(sd_bus_message* call) { return sd_bus_reply_method_errorf(call, "org.example.No", "%s", "not today"); }

/// Half a message, then nothing more.
int hang_up_in_mid_reply(sd_bus_message* call) {
  const int fd = sd_bus_get_fd(sd_bus_message_get_bus(call));
  const char half[] = "l\2\1\1\100\0\0\0\1\0\0\0";
  ::send(fd, half, sizeof half - 1, MSG_NOSIGNAL);
  ::shutdown(fd, SHUT_RDWR);
  return 1;
}

const pthread_t main_thread = ::pthread_self();

/// Comes after a signal that the caller handles.
int interrupt(sd_bus_message* call) {
  ::pthread_kill(main_thread, SIGUSR1);
  ::usleep(50'000);
  return answer_well(call);
}

/// What may come in place of the answer that each call is made for: any but the last makes all of them fail.
struct Fault {
  BusPeer::Answer answer;
  std::string error;  ///< how the ERROR line ends
  bool empty_error = false;
  const char* timeout = "20s";
};
int refuse_silently(sd_bus_message* call) { return sd_bus_reply_method_error(call, &silent); }
const Fault faults[] = {{refuse, "org.example.No: not today"},
                        {refuse_silently, "org.example.Silent: "},
                        {refuse, "", true},
                        {hang_up_in_mid_reply, "*"},
                        {[](auto*) { return 1; }, "*", false, "100ms"}};

struct SystemdCalls : testing::Test {
  ~SystemdCalls() override {
    EXPECT_TRUE(soon([this] { return open_descriptors() == descriptors; })) << "the library keeps a connection";
  }

  /// What a call does and logs, in order, and behind "=> " what it gives.
  template <typename Call>
  std::string trace(BusPeer::Answer answer, const Call& call) {
    done.clear();
    peer.answer = answer;
    notes = &done;
    try {
      const auto result = call();
      notes = nullptr;
      done.push_back("=> " + testing::PrintToString(result));
    } catch (const std::bad_alloc&) {
      notes = nullptr;
      done.emplace_back("=> bad_alloc");
    }
    std::string all;
    for (const std::string& one : done) all += (all.empty() ? "" : ", ") + one;
    return all;
  }

  /// Every way in which a call fails: `asked` is the call, `line` begins its ERROR line, `end` is what follows it.
  template <typename Call>
  void expect_failures(const Call& call, const std::string& asked, const std::string& line, const std::string& end) {
    for (const Fault& fault : faults) {
      ::setenv("SYSTEMD_BUS_TIMEOUT", fault.timeout, 1);
      is_odd = fault.empty_error;
      const std::string found = trace(fault.answer, call), begin = "bus, " + asked + ", ERROR " + line;
      const bool any_error = fault.error == "*";
      EXPECT_THAT(found, testing::StartsWith(begin + (any_error ? "" : fault.error + end)));
      EXPECT_THAT(found, testing::EndsWith(end));
    }
    is_odd = false;
    ::setenv("SYSTEMD_BUS_TIMEOUT", "20s", 1);
    BusPeer::is_reachable(false);
    EXPECT_EQ(trace(answer_well, call),
              "bus, CRITICAL Unable to retrieve connection to DBus system bus: Connection refused" +
                  end.substr(end.find(", =>")));
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
const std::string released = ", -error, -reply, -bus";

std::string freed(int times) {
  std::string all;
  for (int i = 0; sees_free && i < times; ++i) all += ", -free";
  return all;
}

/// Throws where the library copies what it was given.
template <typename Call>
auto without_memory(const Call& call) {
  return [&call] {
    struct Shortage {
      Shortage() { largest_allocation = 50'000; }
      ~Shortage() { largest_allocation = SIZE_MAX; }
    } const shortage;
    return call();
  };
}

int too_long(sd_bus_message* call) {
  return sd_bus_message_get_member(call)[0] == 'G'
             ? sd_bus_reply_method_return(call, "v", "s", megabyte.c_str())
             : sd_bus_reply_method_return(call, "o", ("/" + megabyte.substr(0, 60'000)).c_str());
}
int one_too_long(sd_bus_message* call) {
  return sd_bus_reply_method_return(call, "v", "as", 3, "a", megabyte.c_str(), "c");
}
int unreadable(sd_bus_message* call) { return sd_bus_reply_method_return(call, "u", 7U); }
int empty(sd_bus_message* call) { return sd_bus_reply_method_return(call, ""); }

const std::string unread = "could not be parsed: No such device or address" + released;

TEST_F(SystemdCalls, ObjectPathsAreAskedOfLoadUnitAndCopiedBeforeTheReplyGoes) {
  const auto call = [this] { return systemd.get_object_instance("d.e", "i.j", "/p", "a.service"); };
  const std::string asked = "call d.e /p i.j LoadUnit s:a.service:";
  EXPECT_EQ(trace(answer_well, call), "bus, " + asked + ", read o" + released + ", => \"/unit/a\"");
  for (const auto bad : {unreadable, empty}) {
    EXPECT_EQ(trace(bad, call), "bus, " + asked + ", read o, ERROR DBus response message from GetUnit 'a.service' " +
                                    unread + ", => \"\"");
  }
  EXPECT_EQ(trace(too_long, without_memory(call)), "bus, " + asked + ", read o" + released + ", => bad_alloc");
  expect_failures(call, asked, "Retrieving instance of 'a.service' via 'LoadUnit' failed: ", released + ", => \"\"");
}

TEST_F(SystemdCalls, StringPropertiesAreFreedBehindTheErrorAndArraysBeforeIt) {
  const auto text = [this] { return systemd.get_property_value("d.e", "i.j", "/p", "Some"); };
  const auto array = [this] { return systemd.get_property_value_array("d.e", "i.j", "/p", "Wants"); };
  const auto size = [&array] { return array().size(); };
  const std::string begin = "bus, get d.e /p i.j ";
  EXPECT_EQ(trace(answer_well, text), begin + "Some, -error" + freed(1) + ", -bus, => \"active\"");
  EXPECT_EQ(trace(too_long, [&] { return text() == megabyte; }),
            begin + "Some, -error" + freed(1) + ", -bus, => true");
  EXPECT_EQ(trace(too_long, without_memory(text)), begin + "Some, -error" + freed(1) + ", -bus, => bad_alloc");
  EXPECT_EQ(trace(answer_well, array), begin + "Wants" + freed(3) + ", -error, -bus, => { \"b0.service\", \"\" }");
  EXPECT_EQ(trace(one_too_long, without_memory(array)), begin + "Wants" + freed(4) + ", -error, -bus, => bad_alloc");
  for (const int count : {10'000, 0}) {
    wants = count;
    EXPECT_EQ(trace(answer_well, size),
              begin + "Wants" + freed(count == 0 ? 0 : count + 1) + ", -error, -bus, => " + std::to_string(count));
  }
  is_odd = true;
  EXPECT_EQ(trace(answer_well, size), begin + "Wants" + freed(1) + ", -error, -bus, => 0");
  is_odd = false;
  wants = 2;
  for (const auto bad : {unreadable, empty}) {
    EXPECT_THAT(trace(bad, text), testing::StartsWith(begin + "Some, ERROR Retrieving property of 'Some' failed: "));
    EXPECT_THAT(trace(bad, array), testing::EndsWith(", -error, -bus, => {}"));
  }
  expect_failures(text, "get d.e /p i.j Some", "Retrieving property of 'Some' failed: ", ", -error, -bus, => \"\"");
  expect_failures(array, "get d.e /p i.j Wants", "Retrieving property of 'Wants' failed: ", ", -error, -bus, => {}");
}

TEST_F(SystemdCalls, ActionsAreManagerMethodsWithAJobMode) {
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
    const auto call = [this, member = action, &name = argument] { return (systemd.*member)(name); };
    const std::string asked = manager + method + " ss:" + unit + ":" + mode;
    const std::string changed = mode == "isolate" ? ", NOTICE Changed to target '" + argument + "'" : "";
    const std::string issued = ", INFO " + method + " '" + unit + "' issued successfully";
    logging::set_log_level(6);
    EXPECT_EQ(trace(answer_well, call), "bus, " + asked + ", read o" + issued + released + changed + ", => true");
    logging::set_log_level(5);
    EXPECT_EQ(trace(answer_well, call), "bus, " + asked + ", read o" + released + changed + ", => true");
    EXPECT_EQ(trace(unreadable, call), "bus, " + asked + ", read o, ERROR DBus response message from " + method +
                                           " '" + unit + "' " + unread + changed + ", => true");
    expect_failures(call, asked, "Call to " + method + " '" + unit + "' failed: ", released + ", => false");
  }
}

TEST_F(SystemdCalls, AJobModeIsPassedOnAndWhatCannotBeAskedForDoesNotTouchTheBus) {
  const auto stop = [this] { return systemd.start_stop_unit("a", Systemd::UNIT_ACTION_STOP, "fail"); };
  EXPECT_THAT(trace(refuse, stop), testing::StartsWith("bus, " + manager + "StopUnit ss:a:fail, "));
  for (const int action : {-1, 4, 5, INT32_MIN, INT32_MAX}) {
    const auto unknown = static_cast<Systemd::UnitAction>(action);
    EXPECT_EQ(trace(refuse, [&] { return systemd.start_stop_unit("a.service", unknown, "replace"); }), "=> false");
  }
  EXPECT_EQ(trace(refuse, [this] { return systemd.stop_unit(""); }), "=> false");
  EXPECT_EQ(trace(refuse, [this] { return systemd.get_unit_activestate(""); }), "=> 0");
  EXPECT_EQ(trace(refuse, [this] { return systemd.get_unit_installstate(""); }), "=> 0");
}

std::string name_of(const std::string& prefix, const Transcript& words, int value) {
  if (value < 0 || value >= static_cast<int>(words.size())) return "";
  std::string word = words[static_cast<std::size_t>(value)];
  std::transform(word.begin(), word.end(), word.begin(), [](char c) { return c == '-' ? '_' : std::toupper(c); });
  return "Systemd::" + prefix + "_STATE_" + word;
}

TEST_F(SystemdCalls, StatesAreKnownByTheirExactWordsAndHaveNames) {
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
    state_word = word.c_str();
    EXPECT_EQ(systemd.get_unit_activestate("a.service"), value_of(word, active)) << word;
    EXPECT_EQ(systemd.get_unit_installstate("a.service"), value_of(word.empty() ? "disabled" : word, installed));
  }
  state_word = "active";
  for (const int value : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 42, 42}) {
    EXPECT_EQ(systemd.to_str(static_cast<Systemd::ActiveState>(value)), name_of("ACTIVE", active, value));
    EXPECT_EQ(systemd.to_str(static_cast<Systemd::InstallState>(value)), name_of("INSTALL", installed, value));
  }
}

TEST_F(SystemdCalls, StatesAreReadFromTheObjectThatLoadUnitNames) {
  const std::string load = "bus, " + manager + "LoadUnit s:a.service:, read o" + released +
                           ", bus, get org.freedesktop.systemd1 /unit/a org.freedesktop.systemd1.Unit ";
  const std::string end = ", -error" + freed(1) + ", -bus, => ";
  EXPECT_EQ(trace(answer_well, [this] { return systemd.get_unit_activestate("a.service"); }),
            load + "ActiveState" + end + "1");
  EXPECT_EQ(trace(answer_well, [this] { return systemd.get_unit_installstate("a.service"); }),
            load + "UnitFileState" + end + "0");
  EXPECT_EQ(trace(answer_well, [this] { return systemd.list_unit_dependencies("a.service", "Wants").size(); }),
            load + "Wants" + freed(3) + ", -error, -bus, => 2");
  const auto asks_no_more = testing::AllOf(testing::Not(testing::HasSubstr("get ")), testing::EndsWith("=> 0"));
  EXPECT_THAT(trace(refuse, [this] { return systemd.get_unit_installstate("a.service"); }), asks_no_more);
  EXPECT_THAT(trace(refuse, [this] { return systemd.list_target_services("a").size(); }), asks_no_more);
}

TEST_F(SystemdCalls, AHandledSignalInMidCallIsAFailureThatIsReportedOrNoneAtAll) {
  struct sigaction handled {};
  handled.sa_handler = [](int) {};
  ::sigaction(SIGUSR1, &handled, nullptr);
  logging::set_log_level(5);
  peer.answer = interrupt;
  const bool started = systemd.start_unit("a.service");
  // libsystemd before 253 gives up with EINTR, later ones go on.
  EXPECT_EQ(done.size(), started ? 0U : 1U);
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
