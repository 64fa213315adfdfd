#include "unit_command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "escape.h"
#include "help.h"
#include "target_command.h"
#include "unit_command.h"
#include "unit_manager.h"
#include "whole_number.h"

namespace keltipc {
namespace {

constexpr std::size_t longest_name = 255;
constexpr std::string_view name_characters = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ:-_.\\@";
constexpr std::string_view suffixes[] = {".service", ".socket", ".target", ".device", ".mount", ".automount",
                                         ".swap",    ".timer",  ".path",   ".slice",  ".scope"};

bool has_unit_suffix(std::string_view name) {
  return std::any_of(std::begin(suffixes), std::end(suffixes),
                     [name](std::string_view suffix) { return has_suffix(name, suffix); });
}

/// "radio" -> "radio.service"; "radio.socket" as it is
std::string service_unit(const std::string& name) { return has_unit_suffix(name) ? name : name + ".service"; }

/// What is wrong with the full name of a unit; empty if the manager can load a unit of that name.
std::string unit_name_fault(const std::string& unit) {
  const std::string stem = unit.substr(0, unit.rfind('.'));
  if (unit.size() > longest_name) return "a unit's name has up to 255 characters";
  if (stem.empty() || stem.front() == '@' || stem.find_first_not_of(name_characters) != std::string::npos) {
    return "not a unit's name, which has letters, digits and :-_.\\@ alone (see systemd-escape(1))";
  }
  if (stem.find('@') == stem.size() - 1) {
    return "a template: name an instance, such as '" + stem + "1" + unit.substr(stem.size()) + "'";
  }
  return {};
}

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

CLI::App* add_unit_command(CLI::App& group, const char* name, const char* help, UnitOptions& options) {
  CLI::App* const command = group.add_subcommand(name, help);
  command->add_option("UNIT", options.units, "\"radio\" means radio.service")
      ->required()
      ->transform(CLI::Validator(check_unit, ""))
      ->option_text("...");
  return command;
}

void add_wait(CLI::App& command, UnitOptions& options, const std::string& until) {
  CLI::Option* const wait = command.add_flag("--wait", options.wait, "Wait until each unit is " + until);
  command.add_option("--timeout", options.timeout, "How long --wait waits; after that, status 124")
      ->transform(whole_number(0, 1'000'000))
      ->type_name("SECONDS")
      ->option_text("SECONDS=" + std::to_string(options.timeout))
      ->needs(wait);
}

void add_json(CLI::App& command, bool& json) {
  command.add_flag("--json", json, "Print JSON, one object a line")->group("Output");
}

}  // namespace

void add_unit(CLI::App& app, std::function<int()>& run) {
  CLI::App* const group = app.add_subcommand(
      "unit", "Query and control systemd units. Without --wait,\nstart and stop mean queued, not done.");
  group->require_subcommand(1);
  group->footer(unit_help);
  const auto options = std::make_shared<UnitOptions>();

  const auto add_query = [&](const char* name, const char* help, int (*query)(const UnitOptions&)) {
    CLI::App* const command = add_unit_command(*group, name, help, *options);
    add_json(*command, options->json);
    command->footer(unit_query_help);
    command->callback([=, &run] { run = [=] { return query(*options); }; });
  };
  add_query("state", "Print active, inactive, activating, failed, ...", print_active_states);
  add_query("install-state", "Print enabled, disabled, static, masked, ...", print_install_states);

  const auto add_action = [&](const char* name, const char* help, const UnitAction& action) {
    CLI::App* const command = add_unit_command(*group, name, help, *options);
    add_wait(*command, *options, action.participle);
    add_json(*command, options->json);
    command->callback([=, &run] { run = [=] { return control_units(*options, action); }; });
  };
  using ecu::vorn::ipc::Systemd;
  add_action("start", "Start units", {&Systemd::start_unit, "started"});
  add_action("stop", "Stop units", {&Systemd::stop_unit, "stopped"});
  add_action("restart", "Stop units if they run, and start them", {&Systemd::restart_unit, "restarted"});
  add_action("reload", "Make units read their configuration again", {&Systemd::reload_unit, "reloaded"});
}

void add_target(CLI::App& app, std::function<int()>& run) {
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
  add("services", "List the services that it wants", print_target_services)
      ->add_flag("--all", options->all, "List all that it wants, targets and sockets too");
  add("start-services", "Start each service that it wants", start_target_services);
  add("stop-services", "Stop each service that it wants", stop_target_services);
  add("stopped", "Print whether all these services are stopped", print_target_stopped);
  for (CLI::App* const command : group->get_subcommands({})) add_json(*command, options->json);
}

}  // namespace keltipc
