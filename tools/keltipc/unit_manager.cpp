#include "unit_manager.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "logging/logging.h"
#include "output.h"
#include "port_setup.h"
#include "say.h"

namespace keltipc {
namespace {

namespace logging = ecu::vorn::logging;

const std::string manager = "org.freedesktop.systemd1";

constexpr std::size_t longest_name = 255;
constexpr std::string_view name_characters = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ:-_.\\@";
constexpr std::string_view suffixes[] = {".service", ".socket", ".target", ".device", ".mount", ".automount",
                                         ".swap",    ".timer",  ".path",   ".slice",  ".scope"};

/// Whether the line reports that D-Bus error:
/// "Call to StopUnit 'a.service' failed: org.freedesktop.DBus.Error.AccessDenied: Permission denied"
bool reports(const std::string& error, const std::string& line) {
  return line.find("' failed: org.freedesktop." + error + ":") != std::string::npos;
}

/// How lines of the library begin, and what the tool says instead.
constexpr std::pair<std::string_view, const char*> rewordings[] = {
    {"Unable to retrieve connection to DBus system bus", "cannot connect to the system bus"},
    {"Call to StartUnit", "cannot start"},
    {"Call to StopUnit", "cannot stop"},
    {"Call to RestartUnit", "cannot restart"},
    {"Call to ReloadUnit", "cannot reload"},
    {"Retrieving instance of", "cannot query"},
    {"Retrieving property of", "cannot read the property"},
};

/// "Call to StopUnit 'a.service' failed: org.freedesktop.DBus.Error.AccessDenied: Permission denied"
///   -> "cannot stop 'a.service': Permission denied"
std::string reworded(std::string line) {
  constexpr std::string_view failed = " failed: ";
  const std::size_t error = line.find(failed);
  if (error != std::string::npos) {
    const std::size_t unit_end = line.find('\'', line.find('\'') + 1) + 1;
    const std::size_t error_end = line.find(": ", error + failed.size());
    line.erase(unit_end, (error_end == std::string::npos ? error + failed.size() - 2 : error_end) - unit_end);
  }
  for (const auto& [beginning, instead] : rewordings) {
    if (line.rfind(beginning, 0) == 0) line.replace(0, beginning.size(), instead);
  }
  if (line.back() == '.') line.pop_back();
  return line;
}

}  // namespace

UnitManager::UnitManager() {
  logging::set_log_level(error_level);
  logging::set_sink([this](int level, const std::string& /*module*/, const std::string& text) {
    if (level > error_level) return;
    if (text != last_line) say(reworded(text));
    last_line = text;
    ++errors;
    lacked_permission = lacked_permission || reports("DBus.Error.InteractiveAuthorizationRequired", text) ||
                        reports("DBus.Error.AccessDenied", text);
  });
}

UnitManager::~UnitManager() {
  logging::set_sink({});
  if (lacked_permission) say("this user lacks the permission; PERMISSIONS in keltipc(1) shows how to grant it");
}

std::string UnitManager::path(const std::string& unit) {
  return get_object_instance(manager, manager + ".Manager", "/org/freedesktop/systemd1", unit);
}

std::string UnitManager::property(const std::string& unit_path, const std::string& name) {
  return get_property_value(manager, manager + ".Unit", unit_path, name);
}

std::string UnitManager::service_result(const std::string& unit) {
  return get_property_value(manager, manager + ".Service", path(unit), "Result");
}

std::string UnitManager::load_state(const std::string& unit) {
  const std::string unit_path = path(unit);
  return unit_path.empty() ? "" : property(unit_path, "LoadState");
}

bool UnitManager::was_refused_as_missing(const std::string& unit) {
  // The same error also stands for a unit whose file could not be loaded.
  return reports("systemd1.NoSuchUnit", last_line) && load_state(unit) == not_found;
}

bool has_suffix(std::string_view unit, std::string_view suffix) {
  return unit.size() >= suffix.size() && unit.substr(unit.size() - suffix.size()) == suffix;
}

std::string service_unit(const std::string& name) {
  const bool is_whole = std::any_of(std::begin(suffixes), std::end(suffixes),
                                    [&name](std::string_view suffix) { return has_suffix(name, suffix); });
  return is_whole ? name : name + ".service";
}

std::string target_unit(const std::string& name) { return has_suffix(name, ".target") ? name : name + ".target"; }

std::string unit_name_fault(const std::string& unit) {
  const std::string stem = unit.substr(0, unit.rfind('.'));
  if (unit.size() > longest_name) return "too long: a unit name has at most 255 characters";
  if (stem.empty() || stem.front() == '@' || stem.find_first_not_of(name_characters) != std::string::npos) {
    return "not a unit name: only letters, digits and :-_.\\@ are allowed (see systemd-escape(1))";
  }
  if (stem.find('@') == stem.size() - 1) {
    return "a template: name an instance, such as '" + stem + "1" + unit.substr(stem.size()) + "'";
  }
  return {};
}

void print_answer(bool json, JsonFields answer) {
  print_line(json ? json_object(answer) : std::prev(answer.end())->second);
}

}  // namespace keltipc
