#include <fcntl.h>
#include <sdbus-c++/sdbus-c++.h>
#include <spawn.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ipc/systemd.h"
#include "logging/logging.h"
#include "turn_about.h"

/// Needs the units of examples/units on the system bus's manager.
namespace {

using ecu::vorn::ipc::Systemd;

const std::string service_name = "org.freedesktop.systemd1";
const std::string manager_interface = "org.freedesktop.systemd1.Manager";
const std::string manager_path = "/org/freedesktop/systemd1";
const std::string unit_interface = "org.freedesktop.systemd1.Unit";

const std::string unit = "player.service";
const std::string unit_path = "/org/freedesktop/systemd1/unit/player_2eservice";
const std::string target = "media.target";
const std::string target_path = "/org/freedesktop/systemd1/unit/media_2etarget";

[[noreturn]] void give_up(const std::string& what) {
  std::cerr << "systemd_bench: " << what << '\n';
  std::exit(1);
}

void expect(bool done, const char* what) {
  if (!done) give_up(std::string(what) + " failed");
}

/// Baseline: the same sd-bus calls in C.
struct SdBus {
  static std::string load(const std::string& name) {
    sd_bus* bus = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message* reply = nullptr;
    const char* path = nullptr;
    expect(sd_bus_default_system(&bus) >= 0, "sd_bus_default_system");
    expect(sd_bus_call_method(bus, service_name.c_str(), manager_path.c_str(), manager_interface.c_str(), "LoadUnit",
                              &error, &reply, "s", name.c_str()) >= 0,
           "LoadUnit");
    expect(sd_bus_message_read(reply, "o", &path) >= 0, "sd_bus_message_read");
    std::string result = path;
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    sd_bus_unref(bus);
    return result;
  }

  static std::string property(const std::string& path, const char* name) {
    sd_bus* bus = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    char* value = nullptr;
    expect(sd_bus_default_system(&bus) >= 0, "sd_bus_default_system");
    expect(sd_bus_get_property_string(bus, service_name.c_str(), path.c_str(), unit_interface.c_str(), name, &error,
                                      &value) >= 0,
           name);
    std::string result = value;
    sd_bus_error_free(&error);
    std::free(value);
    sd_bus_unref(bus);
    return result;
  }

  static std::vector<std::string> properties(const std::string& path, const char* name) {
    sd_bus* bus = nullptr;
    sd_bus_error error = SD_BUS_ERROR_NULL;
    char** values = nullptr;
    expect(sd_bus_default_system(&bus) >= 0, "sd_bus_default_system");
    expect(sd_bus_get_property_strv(bus, service_name.c_str(), path.c_str(), unit_interface.c_str(), name, &error,
                                    &values) >= 0,
           name);
    std::vector<std::string> result;
    for (char** value = values; value != nullptr && *value != nullptr; ++value) {
      result.emplace_back(*value);
      std::free(*value);
    }
    std::free(values);
    sd_bus_error_free(&error);
    sd_bus_unref(bus);
    return result;
  }
};

/// Baseline: sdbus-c++ with a connection for each call, like the library, and without the event loop's thread.
struct SdBusCpp {
  static std::string load(const std::string& name) {
    const auto connection = sdbus::createSystemBusConnection();
    const auto proxy = sdbus::createProxy(*connection, service_name, manager_path);
    sdbus::ObjectPath path;
    proxy->callMethod("LoadUnit").onInterface(manager_interface).withArguments(name).storeResultsTo(path);
    return path;
  }

  static sdbus::Variant get(const std::string& path, const char* name) {
    const auto connection = sdbus::createSystemBusConnection();
    const auto proxy = sdbus::createProxy(*connection, service_name, path);
    return proxy->getProperty(name).onInterface(unit_interface);
  }
  static std::string property(const std::string& path, const char* name) {
    return get(path, name).get<std::string>();
  }
  static std::vector<std::string> properties(const std::string& path, const char* name) {
    return get(path, name).get<std::vector<std::string>>();
  }
};

template <typename Bus>
bool are_services_stopped() {
  int running = 0;
  for (const std::string& name : Bus::properties(Bus::load(target), "Wants")) {
    if (Bus::property(Bus::load(name), "ActiveState") != "inactive") ++running;
  }
  return running == 0;
}

/// Every query, compared with the same query through `Bus`.
template <typename Bus>
void add_rival(const std::string& name, double goal, const std::shared_ptr<Systemd>& systemd) {
  const auto add = [&](const char* query, auto library, auto rival) {
    bench::compare(
        {std::string(query) + "/" + name, goal, 1, 1, 1, 100}, [=] { benchmark::DoNotOptimize(library()); },
        [=] { benchmark::DoNotOptimize(rival()); });
  };
  add(
      "get_unit_activestate", [=] { return systemd->get_unit_activestate(unit); },
      [] { return Bus::property(Bus::load(unit), "ActiveState"); });
  add(
      "get_unit_installstate", [=] { return systemd->get_unit_installstate(unit); },
      [] { return Bus::property(Bus::load(unit), "UnitFileState"); });
  add(
      "is_target_active", [=] { return systemd->is_target_active(target); },
      [] { return Bus::property(Bus::load(target), "ActiveState"); });
  add(
      "list_target_services", [=] { return systemd->list_target_services(target); },
      [] { return Bus::properties(Bus::load(target), "Wants"); });
  add(
      "are_target_services_stopped", [=] { return systemd->are_target_services_stopped(target); },
      [] { return are_services_stopped<Bus>(); });
}

/// Runs the program, discards its output and waits for its end.
void run_program(std::vector<std::string> words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  int status = 0;
  const bool ran = ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) == 0 &&
                   ::waitpid(child, &status, 0) == child && status == 0;
  ::posix_spawn_file_actions_destroy(&actions);
  if (!ran) give_up(words[0] + " failed");
}

/// Only the comparison of one request with one request has a goal. A query of a unit's state makes two requests, each
/// on a connection of its own, and systemctl run by root bypasses the bus, so those are not alike.
void add_programs(const std::shared_ptr<Systemd>& systemd) {
  const auto add = [&](const std::string& name, double goal, auto library, const std::vector<std::string>& words) {
    bench::compare(
        {name, goal, 10, 1, 1, 2}, [=] { benchmark::DoNotOptimize(library()); }, [=] { run_program(words); });
  };
  const auto busctl = [](const std::string& path, const char* property) {
    return std::vector<std::string>{"busctl", "--system",     "get-property", service_name,
                                    path,     unit_interface, property};
  };
  const auto activestate = [=] { return systemd->get_unit_activestate(unit); };
  add(
      "get_property_value/busctl get-property", 1.0 / 15,
      [=] { return systemd->get_property_value(service_name, unit_interface, unit_path, "ActiveState"); },
      busctl(unit_path, "ActiveState"));
  add("get_unit_activestate/busctl get-property", 0, activestate, busctl(unit_path, "ActiveState"));
  add("get_unit_activestate/systemctl is-active", 0, activestate, {"systemctl", "is-active", unit});
  add(
      "list_target_services/busctl get-property", 0, [=] { return systemd->list_target_services(target); },
      busctl(target_path, "Wants"));
}

/// The gain from holding a reference to the thread's default bus, so that calls share one connection.
void add_held_reference(const std::shared_ptr<Systemd>& systemd) {
  constexpr int queries = 3;
  const auto ask = [=] {
    for (int i = 0; i < queries; ++i) benchmark::DoNotOptimize(systemd->get_unit_activestate(unit));
  };
  const auto ask_holding = [=] {
    sd_bus* bus = nullptr;
    expect(sd_bus_default_system(&bus) >= 0, "sd_bus_default_system");
    ask();
    sd_bus_unref(bus);
  };
  bench::compare({"get_unit_activestate, bus reference held/not held", 0, 1, queries, queries, 50}, ask_holding, ask);
}

/// Starts the target, so that the manager keeps its units loaded: loading their files is not the library's time.
void start_target(Systemd& systemd) {
  using namespace std::chrono_literals;
  if (!systemd.start_unit(target)) give_up("cannot start " + target);
  for (int i = 0; i < 100; ++i) {
    if (systemd.is_target_active(target) && systemd.get_unit_activestate(unit) == Systemd::ACTIVE_STATE_ACTIVE)
      return;
    std::this_thread::sleep_for(20ms);
  }
  give_up(target + " does not become active");
}

}  // namespace

int main(int argc, char** argv) {
  ecu::vorn::logging::set_log_level(5);
  const auto systemd = std::make_shared<Systemd>();
  start_target(*systemd);
  add_rival<SdBus>("sd-bus in C", 1.03, systemd);
  add_rival<SdBusCpp>("sdbus-c++", 1, systemd);
  add_programs(systemd);
  add_held_reference(systemd);
  return bench::run(argc, argv);
}
