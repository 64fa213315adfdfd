#include "target_command.h"

#include <unistd.h>

#include <iostream>

#include "common_options.h"
#include "exit_status.h"
#include "escape.h"
#include "input_error.h"
#include "units.h"

namespace keltipc {
namespace {

/// `act` gives the exit status, where nothing failed.
template <typename Act>
int act_on(const TargetOptions& options, const Act& act) {
  Units units;
  if (!units.exists(Units::target_unit(options.target))) {
    say("there is no target " + quote(Units::target_unit(options.target)));
    return exit_no_such_unit;
  }
  const int status = act(units);
  return units.failed() ? int{exit_failed} : status;
}

/// The library answers "no" and "stopped" where it could not ask, too: that is no answer.
void print_answer_of(Units& units, const TargetOptions& options, const char* field, const char* word) {
  print_answer(options.json, "target", options.target, field, units.failed() ? "error" : word);
}

/// Isolating a target stops everything else: nobody is to do it by a slip.
bool is_meant(const TargetOptions& options) {
  if (options.yes) return true;
  if (::isatty(STDIN_FILENO) != 1) {
    throw InputError(options.target,
                     "isolating stops every unit that the target does not need; say --yes to mean it");
  }
  std::cerr << "Switch to " << quote(Units::target_unit(options.target))
            << "? Every unit that it does not need is stopped. [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace

int print_target_active(const TargetOptions& options) {
  return act_on(options, [&](Units& units) {
    const bool active = units.is_target_active(options.target);
    print_answer_of(units, options, "state", active ? "active" : "inactive");
    return active ? exit_done : exit_not_active;
  });
}

int isolate_target(const TargetOptions& options) {
  return act_on(options, [&](Units& units) {
    if (units.failed()) return exit_failed;
    if (!is_meant(options)) {
      say("nothing was changed");
      return exit_failed;
    }
    return units.change_target(options.target) ? exit_done : exit_failed;
  });
}

int print_target_services(const TargetOptions& options) {
  return act_on(options, [&](Units& units) {
    for (const std::string& unit : units.list_target_services(options.target)) {
      if (!options.all && !Units::is_service(unit)) continue;
      print_answer(options.json, "target", options.target, "wants", options.json ? unit : escape_word(unit));
    }
    return exit_done;
  });
}

int start_target_services(const TargetOptions& options) {
  return act_on(options, [&](Units& units) {
    units.start_target_services(options.target);
    return exit_done;
  });
}

int stop_target_services(const TargetOptions& options) {
  return act_on(options, [&](Units& units) {
    units.stop_target_services(options.target);
    return exit_done;
  });
}

int print_target_stopped(const TargetOptions& options) {
  return act_on(options, [&](Units& units) {
    const bool stopped = units.are_target_services_stopped(options.target);
    print_answer_of(units, options, "services", stopped ? "stopped" : "running");
    return stopped ? exit_done : exit_not_active;
  });
}

}  // namespace keltipc
