#include "ipc/systemd.h"

#include <array>
#include <cstring>
#include <map>
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

/// Those members of Systemd that a query needs.
struct Names {
  const std::string& service;
  const std::string& manager_interface;
  const std::string& manager_path;
  const std::string& unit_interface;
};

/// Calls LoadUnit, reads the property and looks its value up in `words`.
template <typename State, std::size_t Count>
State query_state(Systemd& systemd, const Names& names, const std::string& unit, const char* property,
                  const Words<State, Count>& words, State error) {
  if (unit.empty()) return error;
  const std::string path =
      systemd.get_object_instance(names.service, names.manager_interface, names.manager_path, unit);
  if (path.empty()) return error;
  const std::string word = systemd.get_property_value(names.service, names.unit_interface, path, property);
  for (const auto& [known, state] : words) {
    if (word == known) return state;
  }
  return error;
}

/// Logs the reason if there is no connection.
bool is_connected(const Bus& bus) {
  if (bus.r >= 0) return true;
  log_line<Critical>(logger, "Unable to retrieve connection to DBus system bus: ", std::strerror(-bus.r));
  return false;
}

void log_unread_property(const std::string& property, const BusError& failure) {
  log_line<Error>(logger, "Retrieving property of '", property, "' failed: ", failure.error.name, ": ",
                  failure.error.message);
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
  // Deliberate: a reloading target does not count as active, because its units are not settled yet.
  return state == ACTIVE_STATE_ACTIVE || state == ACTIVE_STATE_ACTIVATING;
}

std::vector<std::string> Systemd::list_unit_dependencies(const std::string& unit, const std::string& property) {
  const std::string path = get_object_instance(service_name, manager_interface, manager_path, unit);
  if (path.empty()) return {};
  return get_property_value_array(service_name, unit_interface, path, property);
}

std::vector<std::string> Systemd::list_target_services(const std::string& target) {
  // Deliberate: not filtered, because callers may want sockets, timers and targets too. Members that act on services
  // filter the list themselves.
  return list_unit_dependencies(target_unit(target), "Wants");
}

bool Systemd::are_target_services_stopped(const std::string& target) {
  unsigned int running = 0;
  // Deliberate: asks for every service, because each failure must be logged. A service whose state cannot be read
  // counts as stopped, because waiting for it might never end.
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
  return query_state(*this, {service_name, manager_interface, manager_path, unit_interface}, unit, "ActiveState",
                     words, ACTIVE_STATE_ERROR);
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
  return query_state(*this, {service_name, manager_interface, manager_path, unit_interface}, unit, "UnitFileState",
                     words, INSTALL_STATE_ERROR);
}

bool Systemd::start_unit(const std::string& unit) { return start_stop_unit(unit, UNIT_ACTION_START, "replace"); }

bool Systemd::stop_unit(const std::string& unit) { return start_stop_unit(unit, UNIT_ACTION_STOP, "replace"); }

bool Systemd::restart_unit(const std::string& unit) { return start_stop_unit(unit, UNIT_ACTION_RESTART, "replace"); }

bool Systemd::reload_unit(const std::string& unit) { return start_stop_unit(unit, UNIT_ACTION_RELOAD, "replace"); }

bool Systemd::start_stop_unit(const std::string& unit, UnitAction action, const std::string& mode) {
  const char* const method = manager_method(action);
  if (unit.empty() || method == nullptr) return false;
  const Bus bus;
  if (!is_connected(bus)) return false;

  Reply reply;
  BusError failure;
  if (sd_bus_call_method(bus.bus, service_name.c_str(), manager_path.c_str(), manager_interface.c_str(), method,
                         &failure.error, &reply.message, "ss", unit.c_str(), mode.c_str()) < 0) {
    log_line<Error>(logger, "Call to ", method, " '", unit, "' failed: ", failure.error.name, ": ",
                    failure.error.message);
    return false;
  }
  const char* job = nullptr;
  const int r = sd_bus_message_read(reply.message, "o", &job);
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
  return names[state];  // Deliberate: adds an unknown value with an empty name, because nothing may be thrown.
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
  return names[state];  // Deliberate: adds an unknown value with an empty name, because nothing may be thrown.
}

std::string Systemd::get_object_instance(const std::string& service, const std::string& interface,
                                         const std::string& path, const std::string& unit) {
  const Bus bus;
  if (!is_connected(bus)) return {};

  Reply reply;
  BusError failure;
  if (sd_bus_call_method(bus.bus, service.c_str(), path.c_str(), interface.c_str(), "LoadUnit", &failure.error,
                         &reply.message, "s", unit.c_str()) < 0) {
    log_line<Error>(logger, "Retrieving instance of '", unit, "' via 'LoadUnit' failed: ", failure.error.name, ": ",
                    failure.error.message);
    return {};
  }
  const char* object_path = nullptr;
  const int r = sd_bus_message_read(reply.message, "o", &object_path);
  if (r < 0) {
    // Deliberate: the line says GetUnit although LoadUnit was called, because texts of log lines do not change.
    log_line<Error>(logger, "DBus response message from GetUnit '", unit,
                    "' could not be parsed: ", std::strerror(-r));
    return {};
  }
  return object_path;
}

std::string Systemd::get_property_value(const std::string& service, const std::string& interface,
                                        const std::string& path, const std::string& property) {
  const Bus bus;
  if (!is_connected(bus)) return {};

  BusString value;
  BusError failure;
  if (sd_bus_get_property_string(bus.bus, service.c_str(), path.c_str(), interface.c_str(), property.c_str(),
                                 &failure.error, &value.string) < 0) {
    log_unread_property(property, failure);
    return {};
  }
  return value.string;
}

std::vector<std::string> Systemd::get_property_value_array(const std::string& service, const std::string& interface,
                                                           const std::string& path, const std::string& property) {
  std::vector<std::string> result;
  const Bus bus;
  if (!is_connected(bus)) return result;

  BusError failure;
  char** array = nullptr;
  if (sd_bus_get_property_strv(bus.bus, service.c_str(), path.c_str(), interface.c_str(), property.c_str(),
                               &failure.error, &array) < 0) {
    log_unread_property(property, failure);
    return result;
  }
  BusStrings strings(array);
  while (const char* const string = strings.next()) result.emplace_back(string);
  return result;
}

}  // namespace ecu::vorn::ipc
