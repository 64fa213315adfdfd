#include "unit_manager.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "logging/logging.h"
#include "say.h"

namespace keltipc {
namespace {

namespace logging = ecu::vorn::logging;

constexpr int error_level = 3;
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

}  // namespace

UnitManager::UnitManager() {
  logging::set_log_level(error_level);
  logging::set_sink([this](int level, const std::string& module, const std::string& text) {
    if (text != last_line) logging::stderr_sink(level, module, text);
    last_line = text;
    if (level <= error_level) ++errors;
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

bool UnitManager::exists(const std::string& unit) {
  const std::string unit_path = path(unit);
  return unit_path.empty() || property(unit_path, "LoadState") != "not-found";
}

bool UnitManager::was_refused_as_missing(const std::string& unit) {
  // The same error also stands for a unit whose file could not be loaded.
  return reports("systemd1.NoSuchUnit", last_line) && !exists(unit);
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

void print_answer(bool json, const nlohmann::ordered_json& answer) {
  std::cout << (json ? answer.dump() : answer.back().get<std::string>()) << std::endl;
  if (!std::cout) throw std::runtime_error("cannot write to standard output");
}

}  // namespace keltipc
