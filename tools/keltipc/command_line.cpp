#include "command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

#include "dump_command.h"
#include "escape.h"
#include "help.h"
#include "input_error.h"
#include "send_command.h"
#include "target_command.h"
#include "unit_command.h"
#include "unit_name.h"
#include "usage.h"
#include "whole_number.h"

// All that CLI11 is told, and nothing else: it costs a compiler more than the rest of the tool.
namespace keltipc {
namespace {

/// Set by the subcommand that is chosen.
using Run = std::function<int()>;

/// A check for what must not be empty.
auto not_empty(const char* complaint) {
  return [complaint](const std::string& text) { return text.empty() ? complaint : ""; };
}

void add_port_options(CLI::App& command, PortOptions& options) {
  command.add_option("--frame", options.frame, "Size of the port's frames: 16, 32 or 4096 bytes")
      ->check(frame_size())
      ->type_name("BYTES")
      ->capture_default_str();
  command.add_option("--wait", options.wait, "Wait that long for the device to appear; then status 124")
      ->transform(whole_number(0, 1'000'000))
      ->type_name("SECONDS")
      ->capture_default_str();
  command
      .add_option("--log-level", options.log_level,
                  "The library's own lines on standard error, up to that level:\n"
                  "2 critical, 3 errors, 4 warnings, 5 notices, 6 information, 7 all")
      ->transform(whole_number(0, 7))
      ->type_name("0..7")
      ->capture_default_str();
}

void declare_send(CLI::App& command, SendOptions& options) {
  command.add_option("DEVICE", options.device, "The port's device")->required()->type_name("");
  const auto signals = command.add_option("SIGNAL", options.signals, "ID#HEX, ID#@FILE or -")->type_name("");
  const auto replay = command.add_option("--replay", options.replay, "Send a log again; - is standard input")
                          ->type_name("FILE")
                          ->check(not_empty("no file is named"))
                          ->excludes(signals);
  command.add_flag("--no-timing", options.no_timing, "Replay without the pauses of the log")->needs(replay);
  command
      .add_option("--frame-start", options.frame_start,
                  "Open a sampling frame first: both hexadecimal, up to 28 and 64 bits.\nWith --replay ID alone")
      ->type_name("ID=STAMP")
      ->check(not_empty("no identifier is given"));
  command.add_option("--gap", options.gap, "The least time between two signals")
      ->transform(whole_number(0, 1'000'000'000))
      ->type_name("MS");
  add_port_options(command, options.port);
  command.footer(send_help);
}

std::string check_time_form(const std::string& text) {
  return text == "a" || text == "d" || text == "z" ? "" : quote(text) + " is none of a, d, z";
}

void declare_dump(CLI::App& command, DumpOptions& options) {
  command.add_option("DEVICE", options.source, "The port's device, and filters: DEVICE[,ID:MASK][,ID~MASK]...")
      ->required()
      ->type_name("");
  const auto time = command
                        .add_option("-t", options.time,
                                    "Print times in UTC (a), since the last line (d) or since the start (z).\n"
                                    "a where standard output is a terminal")
                        ->check(CLI::Validator(check_time_form, ""))
                        ->type_name("a|d|z");
  command.add_flag("--json", options.json, "Print JSON, an object a line")->excludes(time);
  command.add_option("-n", options.count, "End after that many lines")
      ->transform(whole_number(1))
      ->type_name("COUNT");
  command.add_option("--idle", options.idle, "End when no line was printed for that long")
      ->transform(whole_number(1, 1'000'000'000))
      ->type_name("MS");
  command.add_option("--frame-start", options.frame_start, "What opens sampling frames: hexadecimal, up to 28 bits")
      ->type_name("ID")
      ->capture_default_str();
  add_port_options(command, options.port);
  command.footer(dump_help);
}

/// A subcommand that is `declare`d with options of its own and runs with them.
template <typename Options>
void add_command(CLI::App& app, Run& run, const char* name, const char* help, void (*declare)(CLI::App&, Options&),
                 int (*act)(const Options&)) {
  const auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand(name, help);
  declare(*command, *options);
  command->callback([=, &run] { run = [=] { return act(*options); }; });
}

std::string refuse_unit(const std::string& name, const std::string& unit) {
  const std::string fault = name.empty() ? "the name is empty" : unit_name_fault(unit);
  return fault.empty() ? fault : quote(name) + ": " + fault;
}

/// Completes the name, or refuses one that no unit can have.
std::string check_unit(std::string& name) {
  const std::string unit = service_unit(name);
  const std::string refusal = refuse_unit(name, unit);
  name = unit;
  return refusal;
}

/// The name stays as it was typed.
std::string check_target(std::string& name) { return refuse_unit(name, target_unit(name)); }

/// CLI11 ends a subcommand at "--" unless it still expects a positional argument: without this one, the "-.mount" of
/// "unit state a -- -.mount" would be an option. Added only for "--", because the usage line shows it.
void keep_arguments_behind_dashes(CLI::App& group, int argc, char** argv) {
  if (std::find(argv, argv + argc, std::string("--")) == argv + argc) return;
  for (CLI::App* const command : group.get_subcommands({})) command->add_option("more")->group("");
}

CLI::App* add_unit_command(CLI::App& group, const char* name, const char* help, UnitOptions& options) {
  CLI::App* const command = group.add_subcommand(name, help);
  command->add_option("UNIT", options.units, "\"radio\" means radio.service")
      ->required()
      ->transform(CLI::Validator(check_unit, ""))
      ->type_name("");
  return command;
}

void add_wait(CLI::App& command, UnitOptions& options, const std::string& until) {
  CLI::Option* const wait = command.add_flag("--wait", options.wait, "Wait until each unit is " + until);
  command.add_option("--timeout", options.timeout, "Wait no longer than that; then status 124")
      ->transform(whole_number(0, 1'000'000))
      ->type_name("SECONDS")
      ->capture_default_str()
      ->needs(wait);
}

void add_json(CLI::App& command, bool& json) {
  command.add_flag("--json", json, "Print JSON, one object a line")->group("Output");
}

void add_unit(CLI::App& app, Run& run) {
  CLI::App* const group = app.add_subcommand("unit", "Query and control systemd units");
  group->require_subcommand(1);
  group->footer(unit_help);
  const auto options = std::make_shared<UnitOptions>();

  const auto add_query = [&](const char* name, const char* help, int (*query)(const UnitOptions&)) {
    CLI::App* const command = add_unit_command(*group, name, help, *options);
    add_json(*command, options->json);
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

void add_target(CLI::App& app, Run& run) {
  CLI::App* const group = app.add_subcommand("target", "Query and switch targets, control their services");
  group->require_subcommand(1);
  group->footer(target_help);
  const auto options = std::make_shared<TargetOptions>();

  const auto add = [&](const char* name, const char* help, int (*act)(const TargetOptions&)) {
    CLI::App* const command = group->add_subcommand(name, help);
    command->add_option("TARGET", options->target, "\"work\" means work.target")
        ->required()
        ->check(CLI::Validator(check_target, ""))
        ->type_name("");
    command->callback([=, &run] { run = [=] { return act(*options); }; });
    return command;
  };
  add("active", "Print whether it is active or activating", print_target_active);
  add("isolate", "Start it and stop all that it does not need", isolate_target)
      ->add_flag("--yes", options->yes, "Do not ask");
  add("services", "List the services that it wants", print_target_services)
      ->add_flag("--all", options->all, "List all that it wants, targets and sockets too");
  add("start-services", "Start each service that it wants", start_target_services);
  add("stop-services", "Stop each service that it wants", stop_target_services);
  add("stopped", "Print whether all these services are stopped", print_target_stopped);
  for (CLI::App* const command : group->get_subcommands({})) add_json(*command, options->json);
}

/// `act`, whose complaints about its input end like those about the command line.
Run with_hint(const Run& act, const std::string& hint) {
  return [=] {
    try {
      return act();
    } catch (const InputError& error) {
      throw InputError(error.what() + hint);
    }
  };
}

}  // namespace

std::function<int()> parse_command_line(int argc, char** argv) {
  CLI::App app("Send and watch signals on queuing ports, and control systemd units.", "keltipc");
  app.require_subcommand(1);

  Run run;
  add_command(app, run, "send", "Send signals to a queuing port", declare_send, send_signals);
  add_command(app, run, "dump", "Print the signals that a queuing port receives", declare_dump, dump_signals);
  add_unit(app, run);
  add_target(app, run);
  keep_arguments_behind_dashes(*app.get_subcommand("unit"), argc, argv);
  add_help(app, "keltipc " KELTIPC_VERSION);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return [status = report(app, error)] { return status; };
  }
  return with_hint(run, help_hint(chosen_command(app)));
}

}  // namespace keltipc
