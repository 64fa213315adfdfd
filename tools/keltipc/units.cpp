#include "units.h"

#include <iostream>
#include <stdexcept>

#include "common_options.h"
#include "logging/logging.h"
#include "escape.h"

namespace keltipc {
namespace {

namespace logging = ecu::vorn::logging;

constexpr int error_level = 3;
const std::string manager = "org.freedesktop.systemd1";

/// Whether the line tells of that D-Bus error:
/// "Call to StopUnit 'a.service' failed: org.freedesktop.DBus.Error.AccessDenied: Permission denied"
bool tells_of(const std::string& error, const std::string& line) {
  return line.find("' failed: org.freedesktop." + error + ":") != std::string::npos;
}

bool is_refusal(const std::string& line) {
  return tells_of("DBus.Error.InteractiveAuthorizationRequired", line) || tells_of("DBus.Error.AccessDenied", line);
}

bool has_suffix(const std::string& name, const std::string& suffix) {
  return name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

/// "Systemd::INSTALL_STATE_ENABLED_RUNTIME" -> "enabled-runtime"
std::string plain_word(const std::string& enumerator, const std::string& prefix) {
  std::string word = enumerator.substr(prefix.size());
  for (char& letter : word) letter = letter == '_' ? '-' : static_cast<char>(letter - 'A' + 'a');
  return word;
}

}  // namespace

Units::Units() {
  logging::set_log_level(error_level);
  logging::set_sink([this](int level, const std::string& module, const std::string& text) {
    logging::stderr_sink(level, module, text);
    if (level <= error_level) ++errors;
    any_refusal = any_refusal || is_refusal(text);
    last_line = text;
  });
}

Units::~Units() { logging::set_sink({}); }

std::string Units::path(const std::string& unit) {
  return get_object_instance(manager, manager + ".Manager", "/org/freedesktop/systemd1", unit);
}

bool Units::exists(const std::string& unit) {
  const std::string found = path(unit);
  return found.empty() || get_property_value(manager, manager + ".Unit", found, "LoadState") != "not-found";
}

bool Units::took_for_missing(const std::string& unit) {
  // One that is not loaded is told of by the same error.
  return tells_of("systemd1.NoSuchUnit", last_line) && !exists(unit);
}

std::string Units::word(ActiveState state) { return plain_word(Systemd().to_str(state), "Systemd::ACTIVE_STATE_"); }

std::string Units::word(InstallState state) { return plain_word(Systemd().to_str(state), "Systemd::INSTALL_STATE_"); }

std::string Units::target_unit(const std::string& target) {
  const std::string suffix = ".target";
  return has_suffix(target, suffix) ? target : target + suffix;
}

bool Units::is_service(const std::string& unit) { return has_suffix(unit, ".service"); }

bool Units::failed() {
  if (any_refusal) say("this user may not do that: docs/unit-control.md shows the rule that allows it");
  any_refusal = false;
  return errors != 0;
}

void print_answer(bool json, const std::string& key, const std::string& name, const std::string& field,
                  const std::string& word) {
  if (json) {
    std::cout << "{\"" << key << "\":" << json_string(name) << ",\"" << field << "\":" << json_string(word) << "}"
              << std::endl;
  } else {
    std::cout << word << std::endl;
  }
  if (!std::cout) throw std::runtime_error("standard output cannot be written to");
}

}  // namespace keltipc
