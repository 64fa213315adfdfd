#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <functional>
#include <memory>
#include <new>

#include "commands.h"
#include "escape.h"
#include "exit_status.h"
#include "help.h"
#include "input_error.h"
#include "say.h"
#include "start_up.h"
#include "stop_signals.h"
#include "unit_manager.h"
#include "usage.h"
#include "whole_number.h"

// What CLI11 is told, and the program around it: CLI11 costs a compiler more than the rest of the tool.
namespace keltipc {
namespace {

/// Set by the subcommand that is chosen.
using Run = std::function<int()>;

/// A check for what must not be empty.
auto not_empty(const char* complaint) {
  return [complaint](const std::string& text) { return text.empty() ? complaint : ""; };
}

/// A number from `least` to a million, with its default in the help.
void add_number(CLI::App& command, const char* name, const char* unit, unsigned int& value, unsigned int least,
                const char* help) {
  command.add_option(name, value, help)
      ->transform(whole_number(least, 1'000'000))
      ->type_name(unit)
      ->capture_default_str();
}

void add_port_options(CLI::App& command, PortOptions& options) {
  command.add_option("--frame", options.frame, "Size of the port's frames: 16, 32 or 4096 bytes")
      ->check(frame_size())
      ->type_name("BYTES")
      ->capture_default_str();
  add_number(command, "--wait", "SECONDS", options.wait, 0,
             "Retry that long if the device cannot be opened;\nafter that, status 124");
}

void add_log_level(CLI::App& command, PortOptions& options) {
  command
      .add_option("--log-level", options.log_level,
                  "Show the library's log lines up to this level:\n2 critical, 3 errors, 4 warnings, 5 notices,\n"
                  "6 information, 7 all")
      ->transform(whole_number(0, 7))
      ->type_name("0..7")
      ->capture_default_str();
}

CLI::Option* add_replay_options(CLI::App& command, SendOptions& options, CLI::Option* signals) {
  const auto replay =
      command.add_option("--replay", options.replay, "Send a log of 'keltipc dump'; - is standard input")
          ->option_text("FILE")
          ->check(not_empty("no file is named"))
          ->excludes(signals)
          ->group("Replay");
  const auto speed = command.add_option("--speed", options.speed, "2 halves the pauses of the log, 0.5 doubles them")
                         ->option_text("FACTOR")
                         ->check(number(0.001, 1000))
                         ->needs(replay)
                         ->group("Replay");
  const auto max_pause = command.add_option("--max-pause", options.max_pause, "No pause is longer than that")
                             ->option_text("SECONDS")
                             ->check(number(0, 1e6))
                             ->needs(replay)
                             ->group("Replay");
  command.add_flag("--no-timing", options.no_timing, "Leave out the pauses of the log")
      ->option_text(" ")
      ->needs(replay)
      ->excludes(speed, max_pause)
      ->group("Replay");
  return replay;
}

void declare_send(CLI::App& command, SendOptions& options) {
  command.add_option("DEVICE", options.device, "The port's device")->required()->option_text(" ");
  const auto signals =
      command.add_option("SIGNAL", options.signals, "ID#HEX, ID#@FILE, or - for standard input")->option_text("...");
  command
      .add_option("--frame-start", options.frame_start,
                  "Send a start frame first, such as 0=1: hexadecimal\nnumbers of up to 28 and 64 bits. With "
                  "--replay: ID\nonly")
      ->type_name("ID=STAMP")
      ->check(not_empty("no identifier is given"));
  add_port_options(command, options.port);
  add_log_level(command, options.port);
  const auto gap = command.add_option("--gap", options.gap, "Wait at least that long between two signals")
                       ->transform(whole_number(0, 1'000'000'000))
                       ->type_name("MS")
                       ->group("Pace");
  const auto interval =
      command
          .add_option("--interval", options.interval,
                      "Send a SIGNAL every MS, counted from start to\nstart; skip turns that are missed")
          ->transform(whole_number(1, 1'000'000'000))
          ->type_name("MS")
          ->excludes(gap)
          ->group("Pace");
  command.add_option("--repeat", options.repeat, "Send all signals COUNT times")
      ->transform(whole_number(1))
      ->type_name("COUNT")
      ->group("Pace");
  add_replay_options(command, options, signals)->excludes(interval);
  command.footer(send_help);
}

std::string check_time_form(const std::string& text) {
  return text == "a" || text == "d" || text == "z" ? "" : quote(text) + " is not a, d or z";
}

/// What `dump` and `watch` have in common: the port.
void add_receive_options(CLI::App& command, ReceiveOptions& options) {
  command.option_defaults()->group("The port");
  command
      .add_option("--frame-start", options.frame_start,
                  "Identifier of the start frames, which open\nsampling frames: hexadecimal, up to 28 bits")
      ->type_name("ID")
      ->capture_default_str();
  add_port_options(command, options.port);
  add_log_level(command, options.port);
}

CLI::Option* add_source(CLI::App& command, ReceiveOptions& options) {
  return command
      .add_option("DEVICE", options.source,
                  "The port's device. Filters may follow, see below:\nDEVICE[,ID:MASK][,ID~MASK]...")
      ->required()
      ->option_text(" ");
}

void declare_watch(CLI::App& command, ReceiveOptions& options) {
  // The library's lines would break the table, whose head tells of faults.
  options.port.log_level = 0;
  add_source(command, options);
  add_receive_options(command, options);
  command.footer(watch_help);
}

void add_form_options(CLI::App& command, DumpOptions& options) {
  command.option_defaults()->group("What is printed");
  const auto json = command.add_flag("--json", options.json, "JSON, one object a line")->option_text(" ");
  const auto time =
      command
          .add_option("-t", options.time,
                      "Times in UTC (a), since the last line (d) or since\nthe start (z). On a terminal: a")
          ->check(CLI::Validator(check_time_form, ""))
          ->option_text("a|d|z")
          ->excludes(json);
  command.add_flag("--log", options.log, "Log lines with whole payloads, on a terminal too")
      ->option_text(" ")
      ->excludes(time, json);
  command.add_flag("--frames", options.frames,
                   "Print each frame instead of each signal. A mark\nsays if a frame starts a sampling frame, or "
                   "if\nsomething is wrong with it");
  command.add_flag("--stats", options.stats, "At the end, a table of the identifiers, on\nstandard error");
}

void add_tee(CLI::App& command, DumpOptions& options) {
  command.add_option("--tee", options.tee, "Pass each message on to PORT, byte for byte")
      ->type_name("PORT")
      ->check(not_empty("no port is named"))
      ->group("The port");
}

void add_end_options(CLI::App& command, DumpOptions& options) {
  command.option_defaults()->group("When it ends");
  command.add_option("-n", options.count, "End after COUNT lines")->transform(whole_number(1))->type_name("COUNT");
  command.add_option("--idle", options.idle, "End when no line was printed for that long")
      ->transform(whole_number(1, 1'000'000'000))
      ->type_name("MS");
  command.add_flag("--follow", options.follow, "When the port goes, wait until it comes back");
  command.add_flag("--strict", options.strict,
                   "Status 1 if a signal was lost or came wrong, or a\nmessage had a wrong size");
}

/// A log instead of a port: without the options for ports.
void add_read_options(CLI::App& command, DumpOptions& options, CLI::Option* device) {
  command.option_defaults()->group("A log");
  const auto read = command
                        .add_option("-r,--read", options.read,
                                    "Print what dump has recorded in LOG, log lines or\nJSON; - is standard input. "
                                    "Filters may follow")
                        ->option_text("LOG")
                        ->check(not_empty("no log is named"))
                        ->excludes(device);
  for (const char* name :
       {"--frame", "--frame-start", "--wait", "--log-level", "--frames", "--idle", "--follow", "--tee"}) {
    read->excludes(command.get_option(name));
  }
  command
      .add_option("--since", options.since, "Only from that time on: @SECONDS, or UTC such as\n2024-12-27T03:34:56Z")
      ->type_name("TIME")
      ->check(not_empty("no time is given"))
      ->needs(read);
  command.add_option("--until", options.until, "Only before that time")
      ->type_name("TIME")
      ->check(not_empty("no time is given"))
      ->needs(read);
}

void declare_dump(CLI::App& command, DumpOptions& options) {
  const auto device = add_source(command, options)->required(false);
  add_receive_options(command, options);
  add_tee(command, options);
  add_form_options(command, options);
  add_end_options(command, options);
  add_read_options(command, options, device);
  command.footer(dump_help);
}

void declare_check(CLI::App& command, CheckOptions& options) {
  command.add_option("DEVICE", options.device, "The port's device")
      ->required()
      ->check(not_empty("no device is named"))
      ->option_text(" ");
  command.add_flag("--receive", options.receive, "Read messages, which the application does not get");
  command.add_option("--send", options.send, "Write three signals of one frame each")->type_name("ID");
  command.add_flag("--loop-back", options.loop_back, "Both, on a port whose messages come back");
  command.add_flag("--removal", options.removal, "Then ask to remove the port, and look what is left");
  add_port_options(command, options.port);
  add_number(command, "--idle", "MS", options.idle, 1, "Wait that long for a message, else status 124");
  add_number(command, "--depth-limit", "COUNT", options.depth_limit, 1,
             "Write at most COUNT messages to fill the port");
  command.add_flag("--json", options.json, "Print JSON, one object a row");
  command.footer(check_help);
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

void add_wait(CLI::App& command, JobOptions& options) {
  CLI::Option* const wait = command.add_flag(
      "--wait", options.wait, "Wait until the jobs have ended, as systemctl does;\nwithout it they are only queued");
  command.add_option("--timeout", options.timeout, "How long --wait waits; after that, status 124")
      ->transform(whole_number(0, 1'000'000))
      ->type_name("SECONDS")
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

  const auto add_query = [&](const char* name, const char* help, int (*query)(const UnitOptions&)) {
    CLI::App* const command = add_unit_command(*group, name, help, *options);
    add_json(*command, options->json);
    command->callback([=, &run] { run = [=] { return query(*options); }; });
  };
  add_query("state", "Print active, inactive, activating, failed, ...", print_active_states);
  add_query("install-state", "Print enabled, disabled, static, masked, ...", print_install_states);

  const auto add_action = [&](const char* name, const char* help, const UnitAction& action) {
    CLI::App* const command = add_unit_command(*group, name, help, *options);
    add_wait(*command, *options);
    command->callback([=, &run] { run = [=] { return control_units(*options, action); }; });
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

/// Runs what the command line asks for. A complaint about an argument ends like one about an option.
int run_tool(int argc, char** argv) {
  CLI::App app("Send and watch signals on queuing ports, and control systemd units.", "keltipc");
  app.require_subcommand(1);

  Run run;
  add_command(
      app, run, "send",
      "Send signals to a queuing port. Begin with a start\nframe: receivers drop everything before the first.",
      declare_send, send_signals);
  add_command(app, run, "dump", "Print the signals that a queuing port receives.\nOnly one process may read a port.",
              declare_dump, dump_signals);
  add_command(app, run, "watch",
              "Show a table of the signals that a port receives.\nOnly one process may read a port.", declare_watch,
              watch_signals);
  add_command(app, run, "check",
              "Say whether a port does what the library needs.\nTakes one of --receive, --send and --loop-back.",
              declare_check, check_port);
  add_unit(app, run);
  add_target(app, run);
  app.footer(tool_help);
  keep_arguments_behind_dashes(app.get_subcommand("unit")->get_subcommands({}), argc, argv);
  keep_arguments_behind_dashes({app.get_subcommand("send")}, argc, argv);
  add_help(app, "keltipc " KELTIPC_VERSION);

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

int main(int argc, char** argv) {
  std::set_new_handler([] { keltipc::end_without_memory("keltipc: out of memory\n"); });
  keltipc::occupy_closed_streams();
  try {
    const int status = keltipc::run_tool(argc, argv);
    if (status > 128) keltipc::end_by_signal(status - 128);
    return status;
  } catch (const std::exception& error) {
    keltipc::say(error.what());
    return keltipc::exit_failed;
  }
}
