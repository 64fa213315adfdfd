#include <memory>

#include "commands.h"
#include "declare_commands.h"
#include "escape.h"
#include "help.h"
#include "whole_number.h"

namespace keltipc {
namespace {

/// A check for what must not be empty.
auto not_empty(const char* complaint) {
  return [complaint](const std::string& text) { return text.empty() ? complaint : ""; };
}

constexpr unsigned int million = 1'000'000;
constexpr unsigned int billion = 1'000'000'000;

CLI::Option* add_device(CLI::App& command, std::string& device, const char* help) {
  return command.add_option("DEVICE", device, help)
      ->required()
      ->check(not_empty("no device is named"))
      ->option_text(" ");
}

/// A number from `least` to a million, with its default in the help.
void add_limit(CLI::App& command, const char* name, const char* unit, unsigned int& value, unsigned int least,
               const char* help) {
  add_number(command, name, unit, value, whole_number(least, million), help)->capture_default_str();
}

void add_port_options(CLI::App& command, PortOptions& options) {
  command.add_option("--frame", options.frame, "Size of the port's frames: 16, 32 or 4096 bytes")
      ->check(frame_size())
      ->type_name("BYTES")
      ->capture_default_str();
  add_limit(command, "--wait", "SECONDS", options.wait, 0,
            "Retry that long if the device cannot be opened;\nafter that, status 124");
}

void add_log_level(CLI::App& command, PortOptions& options) {
  add_number(command, "--log-level", "0..7", options.log_level, whole_number(0, 7),
             "Show the library's log lines up to this level:\n2 critical, 3 errors, 4 warnings, 5 notices,\n"
             "6 information, 7 all")
      ->capture_default_str();
}

/// Returns --replay.
CLI::Option* add_replay_options(CLI::App& command, SendOptions& options, CLI::Option* signals) {
  command.option_defaults()->group("Replay");
  const auto replay =
      command.add_option("--replay", options.replay, "Send a log of 'keltipc dump'; - is standard input")
          ->option_text("FILE")
          ->check(not_empty("no file is named"))
          ->excludes(signals);
  const auto speed = command.add_option("--speed", options.speed, "2 halves the pauses of the log, 0.5 doubles them")
                         ->option_text("FACTOR")
                         ->check(number(0.001, 1000))
                         ->needs(replay);
  const auto max_pause = command.add_option("--max-pause", options.max_pause, "No pause is longer than that")
                             ->option_text("SECONDS")
                             ->check(number(0, 1e6))
                             ->needs(replay);
  command.add_flag("--no-timing", options.no_timing, "Leave out the pauses of the log")
      ->option_text(" ")
      ->needs(replay)
      ->excludes(speed, max_pause);
  return replay;
}

/// Returns --interval.
CLI::Option* add_pace(CLI::App& command, SendOptions& options) {
  command.option_defaults()->group("Pace");
  const auto gap = add_number(command, "--gap", "MS", options.gap, whole_number(0, billion),
                              "Wait at least that long between two signals");
  const auto interval =
      add_number(command, "--interval", "MS", options.interval, whole_number(1, billion),
                 "Send a SIGNAL every MS, counted from start to\nstart; skip turns that are missed");
  add_number(command, "--repeat", "COUNT", options.repeat, whole_number(1), "Send all signals COUNT times");
  return interval->excludes(gap);
}

void declare_send(CLI::App& command, SendOptions& options) {
  add_device(command, options.device, "The port's device");
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
  const auto interval = add_pace(command, options);
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
  return add_device(command, options.source,
                    "The port's device. Filters may follow, see below:\nDEVICE[,ID:MASK][,ID~MASK]...");
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

void add_end_options(CLI::App& command, DumpOptions& options) {
  command.option_defaults()->group("When it ends");
  add_number(command, "-n", "COUNT", options.count, whole_number(1), "End after COUNT lines");
  add_number(command, "--idle", "MS", options.idle, whole_number(1, billion),
             "End when no line was printed for that long");
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
  command.add_option("--tee", options.tee, "Pass each message on to PORT, byte for byte")
      ->type_name("PORT")
      ->check(not_empty("no port is named"));
  add_form_options(command, options);
  add_end_options(command, options);
  add_read_options(command, options, device);
  command.footer(dump_help);
}

void declare_check(CLI::App& command, CheckOptions& options) {
  add_device(command, options.device, "The port's device");
  command.add_flag("--receive", options.receive, "Read messages, which the application does not get");
  command.add_option("--send", options.send, "Write three signals of one frame each")->type_name("ID");
  command.add_flag("--loop-back", options.loop_back, "Both, on a port whose messages come back");
  command.add_flag("--removal", options.removal, "Then ask to remove the port, and look what is left");
  add_port_options(command, options.port);
  add_limit(command, "--idle", "MS", options.idle, 1, "Wait that long for a message, else status 124");
  add_limit(command, "--depth-limit", "COUNT", options.depth_limit, 1, "Fill the port with at most COUNT messages");
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

}  // namespace

void add_port_commands(CLI::App& app, Run& run) {
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
}

}  // namespace keltipc
