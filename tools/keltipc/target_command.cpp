#include <unistd.h>

#include <iostream>
#include <memory>

#include "commands.h"
#include "common_options.h"
#include "exit_status.h"
#include "text/escape.h"
#include "text/input_error.h"
#include "units.h"

namespace keltipc {
namespace {

struct TargetOptions {
  std::string target;
  bool json = false;
  bool yes = false;
  bool all = false;
};

using Act = int (*)(Units&, const TargetOptions&);

int print_active(Units& units, const TargetOptions& options) {
  const bool active = units.is_target_active(options.target);
  print_answer(options.json, "target", options.target, "state", active ? "active" : "inactive");
  return active ? exit_done : exit_not_active;
}

int print_services(Units& units, const TargetOptions& options) {
  for (const std::string& unit : units.list_target_services(options.target)) {
    if (!options.all && !Units::is_service(unit)) continue;
    print_answer(options.json, "target", options.target, "wants", options.json ? unit : escape_word(unit));
  }
  return exit_done;
}

int start_services(Units& units, const TargetOptions& options) {
  units.start_target_services(options.target);
  return exit_done;
}

int stop_services(Units& units, const TargetOptions& options) {
  units.stop_target_services(options.target);
  return exit_done;
}

int print_stopped(Units& units, const TargetOptions& options) {
  const bool stopped = units.are_target_services_stopped(options.target);
  print_answer(options.json, "target", options.target, "services", stopped ? "stopped" : "running");
  return stopped ? exit_done : exit_not_active;
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

int isolate(Units& units, const TargetOptions& options) {
  if (!is_meant(options)) {
    say("nothing was changed");
    return exit_failed;
  }
  return units.change_target(options.target) ? exit_done : exit_failed;
}

int act_on(const TargetOptions& options, Act act) {
  Units units;
  if (!units.exists(Units::target_unit(options.target))) {
    say("there is no target " + quote(Units::target_unit(options.target)));
    return exit_no_such_unit;
  }
  const int status = act(units, options);
  return units.failed() ? int{exit_failed} : status;
}

}  // namespace

void add_target_command(CLI::App& app, Run& run) {
  CLI::App* const group =
      app.add_subcommand("target", "Query and switch systemd targets, and control their services");
  group->require_subcommand(1);
  group->footer(
      "A name without \".target\" at its end gets it appended.\n"
      "Status: 0 done, or yes; 1 failed; 2 usage; 3 not active (active), not stopped (stopped); 4 no such "
      "target.");
  auto options = std::make_shared<TargetOptions>();

  const auto add = [&](const char* name, const char* help, Act act) {
    CLI::App* const command = group->add_subcommand(name, help);
    command->add_option("TARGET", options->target, "The target's name")
        ->required()
        ->check([](const std::string& text) {
          return text.empty() ? std::string("a target's name is empty") : std::string();
        });
    command->add_flag("--json", options->json, "One JSON object a line");
    command->callback([=, &run] { run = [=] { return act_on(*options, act); }; });
    return command;
  };
  add("active", "Print whether the target is active (or about to be)", print_active);
  add("isolate", "Switch to the target: start it, and stop all that it does not need", isolate)
      ->add_flag("--yes", options->yes, "Do not ask");
  add("services", "List the services that the target wants", print_services)
      ->add_flag("--all", options->all, "List all that it wants: sockets, timers, other targets too");
  add("start-services", "Start each service that the target wants", start_services);
  add("stop-services", "Stop each service that the target wants", stop_services);
  add("stopped", "Print whether the target's services are all stopped", print_stopped);
}

}  // namespace keltipc
