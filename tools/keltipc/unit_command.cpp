#include "commands.h"
#include "exit_status.h"
#include "unit_jobs.h"
#include "unit_manager.h"

namespace keltipc {
namespace {

constexpr const char* unreadable = "error";

/// The property's word; "disabled" for an empty one, as the library has it.
std::string read_state(UnitManager& manager, const std::string& unit, const std::string& property) {
  const unsigned int errors = manager.error_count();
  const std::string path = manager.path(unit);
  if (path.empty()) return unreadable;
  const std::string word = manager.property(path, property);
  // The manager gives these for units that do not exist, too.
  const bool may_be_missing = word.empty() || word == "inactive";
  const std::string load_state = may_be_missing ? manager.property(path, "LoadState") : "";
  if (manager.error_count() != errors) return unreadable;
  if (load_state == not_found) return not_found;
  return word.empty() ? "disabled" : word;
}

/// `status_of` gives the exit status for the word of a unit that exists.
int print_states(const UnitOptions& options, const std::string& property, int (*status_of)(const std::string&)) {
  UnitManager manager;
  int status = exit_done;
  for (const std::string& unit : options.units) {
    const std::string state = read_state(manager, unit, property);
    print_answer(options.json, {{"unit", unit}, {"state", state}});
    const int unit_status = state == unreadable  ? exit_failed
                            : state == not_found ? exit_no_such_unit
                                                 : status_of(state);
    status = worse(status, unit_status);
  }
  return status;
}

}  // namespace

int print_active_states(const UnitOptions& options) {
  return print_states(options, "ActiveState", [](const std::string& state) -> int {
    return state == "active" || state == "reloading" ? exit_done : exit_not_active;
  });
}

int print_install_states(const UnitOptions& options) {
  return print_states(options, "UnitFileState", [](const std::string&) -> int { return exit_done; });
}

int control_units(const UnitOptions& options, const UnitAction& action) {
  return run_jobs(options, action, [&options](UnitManager&, std::vector<std::string>& units) {
    units = options.units;
    return exit_done;
  });
}

}  // namespace keltipc
