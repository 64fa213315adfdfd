#include <unistd.h>

#include <iostream>

#include "commands.h"
#include "escape.h"
#include "exit_status.h"
#include "input_error.h"
#include "say.h"
#include "unit_manager.h"

namespace keltipc {
namespace {

constexpr const char* queued = "queued";
constexpr const char* refused = "refused";

/// Prints the jobs that the library queues for a target's services.
class ServiceManager : public UnitManager {
 public:
  explicit ServiceManager(const TargetOptions& given) : options(given) {}

  bool start_unit(const std::string& unit) override { return print_job(unit, UnitManager::start_unit(unit)); }
  bool stop_unit(const std::string& unit) override { return print_job(unit, UnitManager::stop_unit(unit)); }

 private:
  bool print_job(const std::string& unit, bool is_queued) const {
    const char* const job = is_queued ? queued : refused;
    if (options.json) print_answer(true, {{"target", options.target}, {"unit", unit}, {"job", job}});
    return is_queued;
  }

  const TargetOptions& options;
};

/// exit_done for a target that exists.
int look_up(UnitManager& manager, const TargetOptions& options) {
  const std::string unit = target_unit(options.target);
  const bool exists = manager.exists(unit);
  if (manager.error_count() != 0) return exit_failed;
  if (exists) return exit_done;
  say("there is no target " + quote(unit));
  return exit_no_such_unit;
}

/// The library answers "no" and "stopped" also if it could not ask: that is not an answer.
template <typename Ask>
int print_yes_or_no(const TargetOptions& options, const char* field, const char* yes, const char* no,
                    const Ask& ask) {
  UnitManager manager;
  const int found = look_up(manager, options);
  if (found == exit_no_such_unit) return found;
  const bool answer = found == exit_done && ask(manager);
  const bool failed = manager.error_count() != 0;
  print_answer(options.json, {{"target", options.target}, {field, failed ? "error" : answer ? yes : no}});
  return failed ? exit_failed : answer ? exit_done : exit_not_active;
}

template <typename Act>
int act_on_services(const TargetOptions& options, const Act& act) {
  ServiceManager manager(options);
  if (const int missing = look_up(manager, options)) return missing;
  act(manager);
  return manager.error_count() == 0 ? exit_done : exit_failed;
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
  return print_yes_or_no(options, "state", "active", "inactive",
                         [&](UnitManager& manager) { return manager.is_target_active(options.target); });
}

int isolate_target(const TargetOptions& options) {
  UnitManager manager;
  if (const int missing = look_up(manager, options)) return missing;
  if (!is_confirmed(options)) {
    say("nothing was changed");
    return exit_failed;
  }
  const bool is_queued = manager.change_target(options.target);
  if (options.json) print_answer(true, {{"target", options.target}, {"job", is_queued ? queued : refused}});
  return is_queued ? exit_done : exit_failed;
}

int print_target_services(const TargetOptions& options) {
  UnitManager manager;
  if (const int missing = look_up(manager, options)) return missing;
  for (const std::string& unit : manager.list_target_services(options.target)) {
    if (!options.all && !has_suffix(unit, ".service")) continue;
    print_answer(options.json, {{"target", options.target}, {"wants", unit}});
  }
  return manager.error_count() == 0 ? exit_done : exit_failed;
}

int start_target_services(const TargetOptions& options) {
  return act_on_services(options, [&](ServiceManager& manager) { manager.start_target_services(options.target); });
}

int stop_target_services(const TargetOptions& options) {
  return act_on_services(options, [&](ServiceManager& manager) { manager.stop_target_services(options.target); });
}

int print_target_stopped(const TargetOptions& options) {
  return print_yes_or_no(options, "services", "stopped", "running",
                         [&](UnitManager& manager) { return manager.are_target_services_stopped(options.target); });
}

}  // namespace keltipc
