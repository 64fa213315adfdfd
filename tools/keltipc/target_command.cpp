#include <unistd.h>

#include <iostream>
#include <utility>

#include "commands.h"
#include "escape.h"
#include "exit_status.h"
#include "input_error.h"
#include "output.h"
#include "say.h"
#include "unit_jobs.h"
#include "unit_manager.h"

namespace keltipc {
namespace {

/// exit_done for a target that exists.
int look_up(UnitManager& manager, const TargetOptions& options) {
  const std::string unit = target_unit(options.target);
  const std::string state = manager.load_state(unit);
  if (state.empty()) return exit_failed;
  if (state != not_found) return exit_done;
  say("there is no target " + quote(unit));
  return exit_no_such_unit;
}

/// The library answers "no" and "stopped" also if it could not ask: that is not an answer.
template <typename Ask>
int print_yes_or_no(const TargetOptions& options, const char* yes, const char* no, const Ask& ask) {
  UnitManager manager;
  const int found = look_up(manager, options);
  if (found == exit_no_such_unit) return found;
  const bool answer = found == exit_done && ask(manager);
  const bool failed = manager.error_count() != 0;
  print_line(failed ? "error" : answer ? yes : no);
  return failed ? exit_failed : answer ? exit_done : exit_not_active;
}

/// What the target wants: services alone, unless `all` is set.
int list_wanted(UnitManager& manager, const TargetOptions& options, std::vector<std::string>& units) {
  if (const int missing = look_up(manager, options)) return missing;
  for (std::string& unit : manager.list_target_services(options.target)) {
    if (options.all || has_suffix(unit, ".service")) units.push_back(std::move(unit));
  }
  return manager.error_count() == 0 ? exit_done : exit_failed;
}

/// Passes over what the manager passes over when it starts a target. But a masked service may run, and can be
/// stopped.
int act_on_services(const TargetOptions& options, const UnitAction& action, bool may_be_masked) {
  return run_jobs(options, action, [&](UnitManager& manager, std::vector<std::string>& units) {
    std::vector<std::string> wanted;
    if (const int status = list_wanted(manager, options, wanted)) return status;
    for (const std::string& unit : wanted) {
      const std::string state = manager.load_state(unit);
      if (state.empty()) return int{exit_failed};
      if (state == not_found || (state == "masked" && !may_be_masked)) {
        say(quote(unit) + " is passed over: " + (state == not_found ? "there is no such unit" : "it is masked"));
      } else {
        units.push_back(unit);
      }
    }
    return int{exit_done};
  });
}

/// Isolating a target stops all other units, so ask first.
bool is_confirmed(const TargetOptions& options) {
  if (options.yes) return true;
  if (::isatty(STDIN_FILENO) != 1) {
    throw InputError(options.target,
                     "isolating stops every unit that the target does not need; use --yes to confirm");
  }
  std::cerr << "Switch to " << quote(target_unit(options.target))
            << "? Every unit that it does not need is stopped. [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace

int print_target_active(const TargetOptions& options) {
  return print_yes_or_no(options, "active", "inactive",
                         [&](UnitManager& manager) { return manager.is_target_active(options.target); });
}

int isolate_target(const TargetOptions& options) {
  UnitManager manager;
  if (const int missing = look_up(manager, options)) return missing;
  if (!is_confirmed(options)) {
    say("nothing was changed");
    return exit_failed;
  }
  return manager.change_target(options.target) ? exit_done : exit_failed;
}

int print_target_services(const TargetOptions& options) {
  UnitManager manager;
  std::vector<std::string> units;
  const int status = list_wanted(manager, options, units);
  for (const std::string& unit : units) print_answer(options.json, {{"target", options.target}, {"wants", unit}});
  return status;
}

int start_target_services(const TargetOptions& options) {
  return act_on_services(options, {&UnitManager::start_unit, "started"}, false);
}

int stop_target_services(const TargetOptions& options) {
  return act_on_services(options, {&UnitManager::stop_unit, "stopped"}, true);
}

int print_target_stopped(const TargetOptions& options) {
  return print_yes_or_no(options, "stopped", "running",
                         [&](UnitManager& manager) { return manager.are_target_services_stopped(options.target); });
}

}  // namespace keltipc
