#pragma once

#include <string>
#include <string_view>

#include "escape.h"
#include "ipc/systemd.h"

namespace keltipc {

constexpr const char* not_found = "not-found";

/// Systemd with what the tool adds: states in the manager's own words, and a count of failures.
class UnitManager : public ecu::vorn::ipc::Systemd {
 public:
  /// From here on the library's ERROR and CRITICAL lines are counted, and go to standard error in the tool's own
  /// words. A line that repeats the one before it is printed once.
  UnitManager();
  /// Tells a user who lacked the permission for something where to read about it.
  ~UnitManager() override;
  UnitManager(const UnitManager&) = delete;
  UnitManager& operator=(const UnitManager&) = delete;

  /// The unit's object on the bus; empty if the manager cannot be asked.
  std::string path(const std::string& unit);

  /// A string property of the unit with that object.
  std::string property(const std::string& unit_path, const std::string& name);

  /// The manager's word: "loaded", "masked", ..., `not_found`; empty if the manager cannot be asked.
  std::string load_state(const std::string& unit);

  /// How the service's last start ended: "success", "timeout", "exit-code", ...; empty if the manager cannot be
  /// asked.
  std::string service_result(const std::string& unit);

  /// Whether the request that has just failed was refused because there is no such unit.
  bool was_refused_as_missing(const std::string& unit);

  /// How many ERROR and CRITICAL lines there have been.
  unsigned int error_count() const { return errors; }

 private:
  unsigned int errors = 0;
  bool lacked_permission = false;
  std::string last_line;
};

/// has_suffix("radio.service", ".service")
bool has_suffix(std::string_view unit, std::string_view suffix);

/// "radio" -> "radio.service"; "radio.socket" as it is
std::string service_unit(const std::string& name);

/// "multi-user" -> "multi-user.target"; "multi-user.target" as it is
std::string target_unit(const std::string& name);

/// What is wrong with the full name of a unit; empty if the manager can load a unit of that name.
std::string unit_name_fault(const std::string& unit);

/// The value of the last field on a line, or with `json` the whole object: {"unit":"a.service","state":"active"}
void print_answer(bool json, JsonFields answer);

}  // namespace keltipc
