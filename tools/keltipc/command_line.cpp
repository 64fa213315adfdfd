#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>

#include "commands.h"
#include "declare_commands.h"
#include "escape.h"
#include "exit_status.h"
#include "help.h"
#include "input_error.h"
#include "say.h"
#include "start_up.h"
#include "unit_manager.h"
#include "usage.h"
#include "whole_number.h"

namespace keltipc {
namespace {

std::string refuse_unit(const std::string& name, const std::string& unit) {
  const std::string fault = name.empty() ? "the name is empty" : unit_name_fault(unit);
  return fault.empty() ? fault : quote(name) + ": " + fault;
}

/// Completes the name, or refuses one that no unit can have.
std::string check_unit(std::string& name) {
  const std::string unit = service_unit(name);
  std::string refusal = refuse_unit(name, unit);
  name = unit;
  return refusal;
}

/// The name stays as it was typed.
std::string check_target(std::string& name) { return refuse_unit(name, target_unit(name)); }

void add_wait(CLI::App& command, JobOptions& options) {
  CLI::Option* const wait = command.add_flag(
      "--wait", options.wait, "Wait until the jobs have ended, as systemctl does;\nwithout it they are only queued");
  command.add_option("--timeout", options.timeout, "How long --wait waits; after that, status 124")
      ->transform(whole_number(0, 1'000'000))
      ->option_text("SECONDS=" + std::to_string(options.timeout))
      ->needs(wait);
}

void add_json(CLI::App& command, bool& json) {
  command.add_flag("--json", json, "Print JSON, one object a line")->group("Output");
}

void add_unit(CLI::App& app, Run& run) {
  CLI::App* const group = app.add_subcommand(
      "unit", "Query and control systemd units. Without --wait,\nstart and stop mean queued, not done.");
  group->require_subcommand(1);
  group->footer(unit_help);
  const auto options = std::make_shared<UnitOptions>();

  const auto add = [&](const char* name, const char* help, auto act) {
    CLI::App* const command = group->add_subcommand(name, help);
    command->add_option("UNIT", options->units, "\"radio\" means radio.service")
        ->required()
        ->transform(CLI::Validator(check_unit, ""))
        ->option_text("...");
    command->callback([=, &run] { run = [=] { return act(*options); }; });
    return command;
  };
  add_json(*add("state", "Print active, inactive, activating, failed, ...", print_active_states), options->json);
  add_json(*add("install-state", "Print enabled, disabled, static, masked, ...", print_install_states),
           options->json);

  const auto add_action = [&](const char* name, const char* help, const UnitAction& action) {
    const auto act = [action](const UnitOptions& chosen) { return control_units(chosen, action); };
    add_wait(*add(name, help, act), *options);
  };
  using ecu::vorn::ipc::Systemd;
  add_action("start", "Start units", {&Systemd::start_unit, "started"});
  add_action("stop", "Stop units", {&Systemd::stop_unit, "stopped"});
  add_action("restart", "Stop units if they run, and start them", {&Systemd::restart_unit, "restarted"});
  add_action("reload", "Make units read their configuration again", {&Systemd::reload_unit, "reloaded"});
}

void add_target(CLI::App& app, Run& run) {
  CLI::App* const group = app.add_subcommand("target", "Query and isolate targets, control their services");
  group->require_subcommand(1);
  group->footer(target_help);
  const auto options = std::make_shared<TargetOptions>();

  const auto add = [&](const char* name, const char* help, int (*act)(const TargetOptions&)) {
    CLI::App* const command = group->add_subcommand(name, help);
    command->add_option("TARGET", options->target, "\"work\" means work.target")
        ->required()
        ->check(CLI::Validator(check_target, ""))
        ->option_text(" ");
    command->callback([=, &run] { run = [=] { return act(*options); }; });
    return command;
  };
  add("active", "Print whether it is active or activating", print_target_active);
  add("isolate", "Start it, and stop all units that it does not\nneed; asks first", isolate_target)
      ->add_flag("--yes", options->yes, "Do not ask");
  CLI::App* const services = add("services", "List the services that it wants", print_target_services);
  services->add_flag("--all", options->all, "List all that it wants, targets and sockets too");
  add_json(*services, options->json);
  add_wait(*add("start-services", "Start each service that it wants", start_target_services), *options);
  add_wait(*add("stop-services", "Stop each service that it wants", stop_target_services), *options);
  add("stopped", "Print whether all these services are stopped", print_target_stopped);
}

/// CLI11 ends a subcommand at "--" unless it still expects a positional argument: without this one, the "-.mount" of
/// "unit state a -- -.mount" would be an option. Added only for "--", because the usage line shows it.
void keep_arguments_behind_dashes(const std::vector<CLI::App*>& commands, int argc, char** argv) {
  if (std::find(argv, argv + argc, std::string("--")) == argv + argc) return;
  for (CLI::App* const command : commands) command->add_option("more")->group("");
}

void declare(CLI::App& app, Run& run) {
  app.require_subcommand(1);
  add_port_commands(app, run);
  add_unit(app, run);
  add_target(app, run);
  app.footer(tool_help);
  add_help(app, "keltipc " KELTIPC_VERSION);
}

/// Runs what the command line asks for. A complaint about an argument ends like one about an option.
int run_tool(int argc, char** argv) {
  CLI::App app("Send and watch signals on queuing ports, and control systemd units.", "keltipc");
  Run run;
  declare(app, run);
  keep_arguments_behind_dashes(app.get_subcommand("unit")->get_subcommands({}), argc, argv);
  keep_arguments_behind_dashes({app.get_subcommand("send")}, argc, argv);
  try {
    app.parse(argc, argv);
    return run();
  } catch (const CLI::ParseError& error) {
    return report(app, error);
  } catch (const FileError& error) {
    say(error.what());
    return exit_usage;
  } catch (const InputError& error) {
    say(error.what() + help_hint(chosen_command(app)));
    return exit_usage;
  }
}

}  // namespace
}  // namespace keltipc

int main(int argc, char** argv) { return keltipc::run_main(keltipc::run_tool, argc, argv); }
