#include <fcntl.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <exception>
#include <iostream>
#include <new>

#include "descriptor.h"
#include "escape.h"
#include "exit_status.h"
#include "link.h"
#include "message_queue.h"
#include "out_of_memory.h"
#include "port.h"
#include "stop_signals.h"
#include "usage.h"
#include "whole_number.h"

namespace {

using namespace keltipc;

struct Options {
  SimulatedPort port{"", 16, 0};
  std::string backend = "auto";
  QueueSettings queue;
};

/// "640" -> "416": octal, as chmod(1) takes it
std::string check_mode(std::string& text) {
  mode_t mode = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, mode, 8);
  if (error != std::errc{} || stop != end || mode == 0 || mode > 0777) return quote(text) + " is not an octal mode";
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
  app.add_option("--depth", options.queue.depth, "How many messages it holds")
      ->transform(whole_number(1, 1'000'000))
      ->type_name("COUNT")
      ->capture_default_str();
  app.add_option_function<std::string>(
         "--when-full",
         [&options](const std::string& word) {
           options.queue.when_full = word == "drop" ? WhenFull::drop : WhenFull::block;
         },
         "block: writers wait; drop: new messages are lost")
      ->check(CLI::IsMember({"block", "drop"}))
      ->option_text("ACTION=block");
  app.add_option("--trace", options.queue.trace, "Print the first COUNT messages in hexadecimal")
      ->transform(whole_number(0))
      ->type_name("COUNT");
}

void add_misbehaviour(CLI::App& app, QueueSettings& queue) {
  const char* const group = "To test an application";
  app.add_option("--lose", queue.lose_every, "Lose the last of every N messages written")
      ->transform(whole_number(1))
      ->type_name("N")
      ->group(group);
  app.add_option("--hang-up-after", queue.hang_up_after, "Hang up and exit when N messages were read")
      ->transform(whole_number(1))
      ->type_name("N")
      ->group(group);
  app.add_option("--delay", queue.delay_ms, "Deliver each message that much later")
      ->transform(whole_number(1, 1'000'000))
      ->type_name("MS")
      ->group(group);
}

bool chooses_cuse(const Options& options) {
  if (options.backend != "auto") return options.backend == "cuse";
  if (Descriptor(::open("/dev/cuse", O_RDWR | O_CLOEXEC))) return true;
  std::cerr << "keltipc-portsim: /dev/cuse cannot be opened (" << std::strerror(errno)
            << "): a pseudo-terminal stands in for the device" << std::endl;
  return false;
}

void run(const Options& options) {
  make_room(options.port.path);
  const sigset_t signals = stop_signals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  // The port stays when the reader of its --trace goes.
  ::signal(SIGPIPE, SIG_IGN);
  MessageQueue queue(options.queue, std::cout);
  const auto ready = [&](const char* kind) {
    // In one piece, so that a script that waits for this line finds it whole.
    std::cerr << "keltipc-portsim: " + escape_word(options.port.path) + " is a loop-back port with messages of " +
                     std::to_string(options.port.frame_size) + " bytes (" + kind + ")\n";
  };
  (chooses_cuse(options) ? run_cuse_port : run_pty_port)(options.port, queue, ready);
  if (queue.has_hung_up()) std::cerr << "keltipc-portsim: hung up" << std::endl;
  std::cerr << "keltipc-portsim: " << queue.counts() << std::endl;
}

int run_tool(int argc, char** argv) {
  CLI::App app(
      "Makes a loop-back queuing port: what one process writes, another reads, one\n"
      "message at a time. Keeps it until SIGINT, SIGTERM or SIGHUP, then removes it and\n"
      "prints how many messages passed. A port has one reader: a second one would take\n"
      "messages away from the first.",
      "keltipc-portsim");
  Options options;
  app.add_option("PATH", options.port.path, "Where the port is made; nothing may be there yet")
      ->required()
      ->option_text(" ");
  add_port_options(app, options);
  add_misbehaviour(app, options.queue);
  add_help(app, "keltipc-portsim " KELTIPC_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return report(app, error);
  }
  run(options);
  return exit_done;
}

}  // namespace

int main(int argc, char** argv) {
  std::set_new_handler([] { end_without_memory("keltipc-portsim: out of memory\n"); });
  try {
    return run_tool(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "keltipc-portsim: " << error.what() << std::endl;
    return exit_failed;
  }
}
