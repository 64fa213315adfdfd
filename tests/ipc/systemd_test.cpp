// Call by call: this program looks on at what the library asks of sd-bus, and a peer answers as it is told.
#include "ipc/systemd.h"

#include <dlfcn.h>
#include <fnmatch.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <fstream>
#include <map>
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

template <typename Function, typename... Arguments>
auto noted(const std::string& what, Function pass_on, Arguments... arguments) {
  if (notes != nullptr) notes->push_back(what);
  const Silence silence;
  return pass_on(arguments...);
}

#define REAL(function) reinterpret_cast<decltype(&(function))>(::dlsym(RTLD_NEXT, #function))

std::string joined(std::initializer_list<const char*> words) {
  std::string all;
  for (const char* const word : words) all += (all.empty() ? "" : " ") + std::string(word);
  return all;
}

}  // namespace

extern "C" {

int sd_bus_default_system(sd_bus** bus) { return noted("bus", REAL(sd_bus_default_system), bus); }
sd_bus* sd_bus_unref(sd_bus* bus) { return noted("-bus", REAL(sd_bus_unref), bus); }
void sd_bus_error_free(sd_bus_error* error) { noted("-error", REAL(sd_bus_error_free), error); }
sd_bus_message* sd_bus_message_unref(sd_bus_message* reply) {
  return noted("-reply", REAL(sd_bus_message_unref), reply);
}
int sd_bus_call_method(sd_bus* bus, const char* destination, const char* path, const char* interface,
                       const char* member, sd_bus_error* error, sd_bus_message** reply, const char* types, ...) {
  const char* words[] = {"", ""};
  va_list arguments;
  va_start(arguments, types);
  for (std::size_t i = 0; types[i] != '\0'; ++i) words[i] = va_arg(arguments, const char*);
  va_end(arguments);
  return noted(joined({"call", destination, path, interface, member, types, words[0], words[1]}),
               REAL(sd_bus_call_method), bus, destination, path, interface, member, filled(error), reply, types,
               words[0], words[1]);
}
int sd_bus_get_property_string(sd_bus* bus, const char* destination, const char* path, const char* interface,
                               const char* member, sd_bus_error* error, char** value) {
  return noted(joined({"get", destination, path, interface, member}), REAL(sd_bus_get_property_string), bus,
               destination, path, interface, member, filled(error), value);
}
int sd_bus_get_property_strv(sd_bus* bus, const char* destination, const char* path, const char* interface,
                             const char* member, sd_bus_error* error, char*** array) {
  return noted(joined({"get", destination, path, interface, member}), REAL(sd_bus_get_property_strv), bus,
               destination, path, interface, member, filled(error), array);
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

using testing::PrintToString;

int refuse(sd_bus_message* call) { return sd_bus_reply_method_errorf(call, "org.example.No", "%s", "not today"); }
int refuse_silently(sd_bus_message* call) {
  const sd_bus_error silent{"org.example.Silent", nullptr, 0};
  return sd_bus_reply_method_error(call, &silent);
}
int unreadable(sd_bus_message* call) { return sd_bus_reply_method_return(call, "u", 7U); }
int empty(sd_bus_message* call) { return sd_bus_reply_method_return(call, ""); }

const std::string megabyte(1 << 20, 'x'), long_path = "/" + megabyte.substr(0, 60'000);

/// By their names in the table; "says WORD" is the state of a unit.
struct Answer {
  BusPeer::Answer answer;
  ManagedUnit unit = {};
  bool is_nameless = false, is_reachable = true;
  const char* timeout = "20s";
};
const std::map<std::string, Answer> answers = {
    {"well", {answer_well}},
    {"too long for the memory",
     {answer_well, {long_path.c_str(), megabyte.c_str(), {"a", megabyte.c_str(), "c", nullptr}}}},
    {"of no units", {answer_well, {"", "", {nullptr}}}},
    {"a refusal", {refuse}},
    {"a refusal without a message", {refuse_silently}},
    {"a refusal without a name", {refuse, {}, true}},
    {"a number", {unreadable}},
    {"nothing", {empty}},
    {"none", {[](auto*) { return 1; }, {}, false, true, "100ms"}},
    {"no bus", {answer_well, {}, false, false}}};

/// By their names in the table, with an argument.
const std::map<std::string, std::string (*)(Systemd&, const std::string&)> calls = {
    {"get_object_instance",
     [](auto& s, auto& unit) { return PrintToString(s.get_object_instance("d.e", "i.j", "/p", unit)); }},
    {"get_property_value",
     [](auto& s, auto& name) { return PrintToString(s.get_property_value("d.e", "i.j", "/p", name)); }},
    {"get_property_value_array",
     [](auto& s, auto& name) { return PrintToString(s.get_property_value_array("d.e", "i.j", "/p", name)); }},
    {"start_unit", [](auto& s, auto& unit) { return PrintToString(s.start_unit(unit)); }},
    {"stop_unit", [](auto& s, auto& unit) { return PrintToString(s.stop_unit(unit)); }},
    {"restart_unit", [](auto& s, auto& unit) { return PrintToString(s.restart_unit(unit)); }},
    {"reload_unit", [](auto& s, auto& unit) { return PrintToString(s.reload_unit(unit)); }},
    {"change_target", [](auto& s, auto& target) { return PrintToString(s.change_target(target)); }},
    {"start_isolate_target", [](auto& s, auto& target) { return PrintToString(s.start_isolate_target(target)); }},
    {"start_stop_unit",
     [](auto& s, auto& action) {
       return PrintToString(s.start_stop_unit("a", static_cast<Systemd::UnitAction>(std::stoi(action)), "fail"));
     }},
    {"get_unit_activestate", [](auto& s, auto& unit) { return s.to_str(s.get_unit_activestate(unit)); }},
    {"get_unit_installstate", [](auto& s, auto& unit) { return s.to_str(s.get_unit_installstate(unit)); }},
    {"list_unit_dependencies",
     [](auto& s, auto& unit) { return PrintToString(s.list_unit_dependencies(unit, "Wants")); }}};

struct SystemdCalls : testing::Test {
  ~SystemdCalls() override {
    managed = {};
    EXPECT_TRUE(soon([this] { return open_descriptors() == descriptors; })) << "the library keeps a connection";
  }

  void do_as_the_table_says(const std::string& line) {
    std::smatch row;
    ASSERT_TRUE(std::regex_match(line, row, std::regex(R"((\w+) ?(.*?) \| (says )?(.*?) \| (.*))"))) << line;
    const std::string argument = row[2], word = row[4];
    const Answer& answer = answers.at(row[3].matched ? "well" : word);
    managed = answer.unit;
    if (row[3].matched) managed.state = word.c_str();
    nameless = answer.is_nameless;
    ::setenv("SYSTEMD_BUS_TIMEOUT", answer.timeout, 1);
    BusPeer::is_reachable(answer.is_reachable);
    peer.answer = answer.answer;
    const std::string found = trace(calls.at(row[1]), argument);
    const std::string expected =
        sees_free ? row[5].str() : std::regex_replace(row[5].str(), std::regex("-free, "), "");
    EXPECT_EQ(::fnmatch(expected.c_str(), found.c_str(), 0), 0) << line << "\n" << found;
  }

  template <typename Call>
  std::string trace(const Call& call, const std::string& argument) {
    std::string all, result = "bad_alloc";
    done.clear();
    notes = &done;
    try {
      result = call(systemd, argument);
    } catch (const std::bad_alloc&) {
      notes = nullptr;
    }
    notes = nullptr;
    for (const std::string& one : done) all += one + ", ";
    return all + "=> " + result;
  }

  Transcript done;
  RecordedLog log{done, "ipc.systemd"};
  BusPeer peer;
  int descriptors = open_descriptors();
  Systemd systemd;
};

TEST_F(SystemdCalls, DoAsTheTableSays) {
  std::ifstream table(KELTIPC_SYSTEMD_CALLS);
  int rows = 0;
  for (std::string line; std::getline(table, line); ++rows) {
    if (!line.empty() && line[0] != '#') do_as_the_table_says(line);
  }
  EXPECT_GT(rows, 100);
}

TEST_F(SystemdCalls, TakePropertiesOfAnySize) {
  peer.answer = answer_well;
  managed = {"/unit/a", megabyte.c_str(), std::vector<const char*>(10'001, "c.service")};
  managed.wants.back() = nullptr;
  EXPECT_EQ(systemd.get_property_value("d.e", "i.j", "/p", "Some"), megabyte);
  EXPECT_EQ(systemd.get_property_value_array("d.e", "i.j", "/p", "Wants"),
            std::vector<std::string>(10'000, "c.service"));
  EXPECT_EQ(BusStrings(static_cast<char**>(std::calloc(1, sizeof(char*)))).next(), nullptr) << "one that is there";
}

TEST_F(SystemdCalls, NameStatesThatAreNone) {
  for (const int value : {-1, 42, 42, 7}) EXPECT_EQ(systemd.to_str(static_cast<Systemd::ActiveState>(value)), "");
  for (const int value : {-1, 42, 42, 9}) EXPECT_EQ(systemd.to_str(static_cast<Systemd::InstallState>(value)), "");
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
