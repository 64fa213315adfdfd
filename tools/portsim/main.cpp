#include <fcntl.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <optional>
#include <random>

#include "descriptor.h"
#include "escape.h"
#include "exit_status.h"
#include "link.h"
#include "message_queue.h"
#include "port.h"
#include "say.h"
#include "start_up.h"
#include "stop_request.h"
#include "usage.h"
#include "whole_number.h"

namespace {

using namespace keltipc;

struct Options {
  SimulatedPort port{"", 16, 0};
  std::string backend = "auto";
  std::string when_full = "block";
  QueueSettings queue;
  std::optional<std::uint32_t> seed;
};

/// "640" -> "416": octal, as chmod(1) takes it
std::string check_mode(std::string& text) {
  mode_t mode = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, mode, 8);
  if (error != std::errc{} || stop != end || mode == 0 || mode > 0777)
    return quote(text) + " is not an octal mode from 1 to 777";
  text = std::to_string(mode);
  return {};
}

void add_port_options(CLI::App& app, Options& options) {
  app.add_option("--frame", options.port.frame_size, "Bytes of a message: 16, 32 or 4096")
      ->check(frame_size())
      ->type_name("BYTES")
      ->capture_default_str();
  app.add_option("--backend", options.backend,
                 "cuse: a real device; needs root and /dev/cuse;\n"
                 "pty: a pseudo-terminal; not for 4096 bytes;\n"
                 "auto: cuse if /dev/cuse can be opened, else pty")
      ->check(CLI::IsMember({"auto", "cuse", "pty"}))
      ->option_text("KIND=auto");
  app.add_option("--mode", options.port.mode, "Permissions of the device node, such as 666")
      ->transform(CLI::Validator(check_mode, ""))
      ->type_name("OCTAL");
  add_number(app, "--depth", "COUNT", options.queue.depth, whole_number(1, 1'000'000), "How many messages it holds")
      ->capture_default_str();
  app.add_option("--when-full", options.when_full, "block: writers wait; drop: new messages are lost")
      ->check(CLI::IsMember({"block", "drop"}))
      ->option_text("ACTION=block");
  add_number(app, "--trace", "COUNT", options.queue.trace, whole_number(0),
             "Print the first COUNT messages in hexadecimal");
}

std::string check_fault_rate(const std::string& text) {
  if (parse_fault_rate(text)) return {};
  return quote(text) + " is not a count or a percentage, such as 100 or 0.5%";
}

void add_fault(CLI::App& app, const char* name, FaultRate& rate, const char* help) {
  app.add_option_function<std::string>(
         name, [&rate](const std::string& text) { rate = *parse_fault_rate(text); }, help)
      ->check(CLI::Validator(check_fault_rate, ""))
      ->type_name("N|P%");
}

void add_misbehaviour(CLI::App& app, Options& options) {
  app.option_defaults()->group("To test an application");
  FaultSettings& faults = options.queue.faults;
  add_fault(app, "--lose", faults.lose, "Lose every N-th message, or P% at random");
  add_fault(app, "--corrupt", faults.corrupt, "Invert one bit of every N-th, or of P%");
  add_fault(app, "--duplicate", faults.duplicate, "Deliver every N-th twice, or P%");
  add_fault(app, "--swap", faults.swap, "Deliver every N-th after the next one, or P%");
  add_number(app, "--seed", "NUMBER", options.seed, whole_number(0), "Repeat the random faults of an earlier run");
  add_number(app, "--hang-up-after", "N", options.queue.hang_up_after, whole_number(1),
             "Hang up and exit when N messages were read");
  add_number(app, "--delay", "MS", options.queue.delay_ms, whole_number(1, 1'000'000),
             "Deliver each message that much later");
}

bool chooses_cuse(const Options& options) {
  if (options.backend != "auto") return options.backend == "cuse";
  if (Descriptor(::open("/dev/cuse", O_RDWR | O_CLOEXEC))) return true;
  say(std::string("/dev/cuse cannot be opened (") + std::strerror(errno) +
      "): a pseudo-terminal stands in for the device");
  return false;
}

/// Gives the stop signal that ended the port, or 0.
int run(Options options) {
  make_room(options.port.path);
  note_stop_signals();
  const bool needs_seed = options.queue.faults.are_random() && !options.seed;
  options.queue.faults.seed = needs_seed ? std::random_device{}() : options.seed.value_or(0);
  options.queue.drops = options.when_full == "drop";
  MessageQueue queue(options.queue);
  const auto ready = [&](const char* kind) {
    say(escape_word(options.port.path) + " is a loop-back port with messages of " +
        std::to_string(options.port.frame_size) + " bytes (" + kind + ")");
    if (needs_seed) say("the faults are those of --seed " + std::to_string(options.queue.faults.seed));
  };
  (chooses_cuse(options) ? run_cuse_port : run_pty_port)(options.port, queue, ready);
  if (queue.has_hung_up()) say("hung up");
  say(queue.counts());
  return stop_signal();
}

int run_tool(int argc, char** argv) {
  CLI::App app(
      "Makes a loop-back queuing port: what one process writes, another reads, one\n"
      "message at a time. Keeps it until SIGINT, SIGTERM or SIGHUP, then removes it and\n"
      "prints how many messages passed.",
      "keltipc-portsim");
  Options options;
  app.add_option("PATH", options.port.path, "Where the port is made; nothing may be there yet")
      ->required()
      ->option_text(" ");
  add_port_options(app, options);
  add_misbehaviour(app, options);
  add_help(app, "keltipc-portsim " KELTIPC_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return report(app, error);
  }
  // A shell loop ends with Ctrl+C only if the command dies of it. To be stopped by a service manager is success.
  return run(options) == SIGINT ? 128 + SIGINT : exit_done;
}

}  // namespace

int main(int argc, char** argv) { return run_main(run_tool, argc, argv); }
