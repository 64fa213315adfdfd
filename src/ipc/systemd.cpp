#include "ipc/systemd.h"

#include <array>
#include <cstring>
#include <map>
#include <optional>
#include <utility>

#include "bus.h"
#include "connection_defaults.h"
#include "log_line.h"

// The bus: sd_bus_default_system(3) keeps one connection for each thread as long as there is a reference to it. Each
// member takes a reference and drops it before it returns.
//  - If the application holds no reference, each call connects, asks and disconnects. Nothing outlives the call, the
//    next call finds a restarted bus, and a thread that ends leaves nothing behind.
//  - If the application holds one, calls share its connection. They drop only their own reference, and never flush or
//    close the connection, because it is the application's.
// No connection passes from one thread to another, so threads can share an object of this class.
namespace ecu::vorn::ipc {
namespace {

const std::string target_suffix = ".target";
const std::string service_suffix = ".service";
const Logger logger = logging::module("ipc.systemd");

bool has_suffix(const std::string& name, const std::string& suffix) {
  return name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

/// "multi-user" -> "multi-user.target"; "rescue.target" -> "rescue.target"
std::string target_unit(const std::string& target) {
  return has_suffix(target, target_suffix) ? target : target + target_suffix;
}

bool is_running(Systemd::ActiveState state) {
  return state == Systemd::ACTIVE_STATE_ACTIVE || state == Systemd::ACTIVE_STATE_ACTIVATING ||
         state == Systemd::ACTIVE_STATE_DEACTIVATING || state == Systemd::ACTIVE_STATE_RELOADING;
}

/// Null for a value outside the enumeration.
const char* manager_method(Systemd::UnitAction action) {
  switch (action) {
    case Systemd::UNIT_ACTION_STOP:
      return "StopUnit";
    case Systemd::UNIT_ACTION_START:
      return "StartUnit";
    case Systemd::UNIT_ACTION_RESTART:
      return "RestartUnit";
    case Systemd::UNIT_ACTION_RELOAD:
      return "ReloadUnit";
  }
  return nullptr;
}

template <typename State, std::size_t Count>
using Words = std::array<std::pair<const char*, State>, Count>;

/// Without a word, and for an unknown one, the error state: 0 in both enumerations.
template <typename State, std::size_t Count>
State state_of(const std::optional<std::string>& word, const Words<State, Count>& words) {
  for (const auto& [known, state] : words) {
    if (word == known) return state;
  }
  return State{};
}

/// sd-bus may give null for a string, even if it reports success.
std::string text_of(const char* string) { return string == nullptr ? "" : string; }

void log_unread_property(const std::string& property, const sd_bus_error& error) {
  log_line<Error>(logger, "Retrieving property of '", property, "' failed: ", error.name, ": ", error.message);
}

}  // namespace

// No member reads `service_interface` and `target_interface`. They stay, because without them the class would change
// its size.
Systemd::Systemd()
    : service_name("org.freedesktop.systemd1"),
      manager_interface("org.freedesktop.systemd1.Manager"),
      unit_interface("org.freedesktop.systemd1.Unit"),
      service_interface("org.freedesktop.systemd1.Service"),
      target_interface("org.freedesktop.systemd1.Target"),
      manager_path("/org/freedesktop/systemd1") {}

Systemd::~Systemd() = default;

bool Systemd::start_isolate_target(const std::string& target) {
  const bool issued = start_stop_unit(target_unit(target), UNIT_ACTION_START, "isolate");
  if (issued) log_line<Notice>(logger, "Changed to target '", target, "'");
  return issued;
}

bool Systemd::change_target(const std::string& target) { return start_isolate_target(target); }

void Systemd::stop_target_services(const std::string& target) {
  for (const std::string& unit : list_target_services(target)) {
    if (has_suffix(unit, service_suffix)) stop_unit(unit);
  }
}

void Systemd::start_target_services(const std::string& target) {
  for (const std::string& unit : list_target_services(target)) {
    if (has_suffix(unit, service_suffix)) start_unit(unit);
  }
}

bool Systemd::is_target_active(const std::string& target) {
  const ActiveState state = get_unit_activestate(target_unit(target));
  // Deliberate: a reloading target does not count as active.
  return state == ACTIVE_STATE_ACTIVE || state == ACTIVE_STATE_ACTIVATING;
}

std::vector<std::string> Systemd::list_unit_dependencies(const std::string& unit, const std::string& property) {
  const std::string path = get_object_instance(service_name, manager_interface, manager_path, unit);
  if (path.empty()) return {};
  return get_property_value_array(service_name, unit_interface, path, property);
}

std::vector<std::string> Systemd::list_target_services(const std::string& target) {
  // Deliberate: not filtered. Members that act on services filter the list themselves.
  return list_unit_dependencies(target_unit(target), "Wants");
}

bool Systemd::are_target_services_stopped(const std::string& target) {
  unsigned int running = 0;
  // Deliberate: asks for every service, and one whose state cannot be read counts as stopped.
  for (const std::string& unit : list_target_services(target)) {
    if (has_suffix(unit, service_suffix) && is_running(get_unit_activestate(unit))) ++running;
  }
  return running == 0;
}

Systemd::ActiveState Systemd::get_unit_activestate(const std::string& unit) {
  static constexpr Words<ActiveState, 6> words = {{
      {"active", ACTIVE_STATE_ACTIVE},
      {"inactive", ACTIVE_STATE_INACTIVE},
      {"activating", ACTIVE_STATE_ACTIVATING},
      {"deactivating", ACTIVE_STATE_DEACTIVATING},
      {"reloading", ACTIVE_STATE_RELOADING},
      {"failed", ACTIVE_STATE_FAILED},
  }};
  return state_of(state_word(unit, "ActiveState"), words);
}

Systemd::InstallState Systemd::get_unit_installstate(const std::string& unit) {
  static constexpr Words<InstallState, 9> words = {{
      // Deliberate: a property that could not be read is "disabled" too, because it is empty like that of a unit
      // without a unit file.
      {"", INSTALL_STATE_DISABLED},
      {"enabled", INSTALL_STATE_ENABLED},
      {"enabled-runtime", INSTALL_STATE_ENABLED_RUNTIME},
      {"disabled", INSTALL_STATE_DISABLED},
      {"linked", INSTALL_STATE_LINKED},
      {"linked-runtime", INSTALL_STATE_LINKED_RUNTIME},
      {"masked", INSTALL_STATE_MASKED},
      {"masked-runtime", INSTALL_STATE_MASKED_RUNTIME},
      {"static", INSTALL_STATE_STATIC},
  }};
  return state_of(state_word(unit, "UnitFileState"), words);
}

std::optional<std::string> Systemd::state_word(const std::string& unit, const std::string& property) {
  if (unit.empty()) return std::nullopt;
  const std::string path = get_object_instance(service_name, manager_interface, manager_path, unit);
  if (path.empty()) return std::nullopt;
  return get_property_value(service_name, unit_interface, path, property);
}

bool Systemd::start_unit(const std::string& unit) { return start_stop_unit(unit, UNIT_ACTION_START, "replace"); }

bool Systemd::stop_unit(const std::string& unit) { return start_stop_unit(unit, UNIT_ACTION_STOP, "replace"); }

bool Systemd::restart_unit(const std::string& unit) { return start_stop_unit(unit, UNIT_ACTION_RESTART, "replace"); }

bool Systemd::reload_unit(const std::string& unit) { return start_stop_unit(unit, UNIT_ACTION_RELOAD, "replace"); }

bool Systemd::start_stop_unit(const std::string& unit, UnitAction action, const std::string& mode) {
  const char* const method = manager_method(action);
  if (unit.empty() || method == nullptr) return false;
  BusRequest<sd_bus_message*> request(logger);
  if (request.r < 0) return false;
  if (sd_bus_call_method(request.bus, service_name.c_str(), manager_path.c_str(), manager_interface.c_str(), method,
                         &request.error, &request.answer, "ss", unit.c_str(), mode.c_str()) < 0) {
    log_line<Error>(logger, "Call to ", method, " '", unit, "' failed: ", request.error.name, ": ",
                    request.error.message);
    return false;
  }
  const char* job = nullptr;
  const int r = sd_bus_message_read(request.answer, "o", &job);
  if (r < 0) {
    log_line<Error>(logger, "DBus response message from ", method, " '", unit,
                    "' could not be parsed: ", std::strerror(-r));
  } else {
    log_line<Info>(logger, method, " '", unit, "' issued successfully");
  }
  // Deliberate: true even if the job's path is unreadable, because the request did reach the manager.
  return true;
}

std::string Systemd::to_str(ActiveState state) {
  static std::map<ActiveState, const std::string> names = {
      {ACTIVE_STATE_ERROR, "Systemd::ACTIVE_STATE_ERROR"},
      {ACTIVE_STATE_ACTIVE, "Systemd::ACTIVE_STATE_ACTIVE"},
      {ACTIVE_STATE_INACTIVE, "Systemd::ACTIVE_STATE_INACTIVE"},
      {ACTIVE_STATE_ACTIVATING, "Systemd::ACTIVE_STATE_ACTIVATING"},
      {ACTIVE_STATE_DEACTIVATING, "Systemd::ACTIVE_STATE_DEACTIVATING"},
      {ACTIVE_STATE_FAILED, "Systemd::ACTIVE_STATE_FAILED"},
      {ACTIVE_STATE_RELOADING, "Systemd::ACTIVE_STATE_RELOADING"},
  };
  return names[state];  // Deliberate: adds an unknown value with an empty name.
}

std::string Systemd::to_str(InstallState state) {
  static std::map<InstallState, const std::string> names = {
      {INSTALL_STATE_ERROR, "Systemd::INSTALL_STATE_ERROR"},
      {INSTALL_STATE_ENABLED, "Systemd::INSTALL_STATE_ENABLED"},
      {INSTALL_STATE_ENABLED_RUNTIME, "Systemd::INSTALL_STATE_ENABLED_RUNTIME"},
      {INSTALL_STATE_LINKED, "Systemd::INSTALL_STATE_LINKED"},
      {INSTALL_STATE_LINKED_RUNTIME, "Systemd::INSTALL_STATE_LINKED_RUNTIME"},
      {INSTALL_STATE_MASKED, "Systemd::INSTALL_STATE_MASKED"},
      {INSTALL_STATE_MASKED_RUNTIME, "Systemd::INSTALL_STATE_MASKED_RUNTIME"},
      {INSTALL_STATE_STATIC, "Systemd::INSTALL_STATE_STATIC"},
      {INSTALL_STATE_DISABLED, "Systemd::INSTALL_STATE_DISABLED"},
  };
  return names[state];  // Deliberate: adds an unknown value with an empty name.
}

std::string Systemd::get_object_instance(const std::string& service, const std::string& interface,
                                         const std::string& path, const std::string& unit) {
  BusRequest<sd_bus_message*> request(logger);
  if (request.r < 0) return {};
  if (sd_bus_call_method(request.bus, service.c_str(), path.c_str(), interface.c_str(), "LoadUnit", &request.error,
                         &request.answer, "s", unit.c_str()) < 0) {
    log_line<Error>(logger, "Retrieving instance of '", unit, "' via 'LoadUnit' failed: ", request.error.name, ": ",
                    request.error.message);
    return {};
  }
  const char* object_path = nullptr;
  const int r = sd_bus_message_read(request.answer, "o", &object_path);
  if (r < 0) {
    // Deliberate: the line says GetUnit although LoadUnit was called.
    log_line<Error>(logger, "DBus response message from GetUnit '", unit,
                    "' could not be parsed: ", std::strerror(-r));
    return {};
  }
  return text_of(object_path);
}

std::string Systemd::get_property_value(const std::string& service, const std::string& interface,
                                        const std::string& path, const std::string& property) {
  BusRequest<char*> request(logger);
  if (request.r < 0) return {};
  if (sd_bus_get_property_string(request.bus, service.c_str(), path.c_str(), interface.c_str(), property.c_str(),
                                 &request.error, &request.answer) < 0) {
    log_unread_property(property, request.error);
    return {};
  }
  return text_of(request.answer);
}

std::vector<std::string> Systemd::get_property_value_array(const std::string& service, const std::string& interface,
                                                           const std::string& path, const std::string& property) {
  BusRequest<BusStrings> request(logger);
  if (request.r < 0) return {};
  BusStrings& strings = request.answer;
  if (sd_bus_get_property_strv(request.bus, service.c_str(), path.c_str(), interface.c_str(), property.c_str(),
                               &request.error, &strings.array) < 0) {
    log_unread_property(property, request.error);
    return {};
  }
  std::vector<std::string> result;
  for (; strings.front() != nullptr; strings.pop()) result.emplace_back(strings.front());
  return result;
}

}  // namespace ecu::vorn::ipc
