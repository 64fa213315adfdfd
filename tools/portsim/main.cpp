#include <fcntl.h>
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>

#include "descriptor.h"
#include "exit_status.h"
#include "message_queue.h"
#include "port.h"
#include "stop_signals.h"
#include "usage.h"
#include "whole_number.h"

namespace {

using namespace keltipc;

struct Options {
  PortOptions port;
  std::string backend = "auto";
  std::size_t depth = 1024;
  WhenFull when_full = WhenFull::block;
  std::size_t trace = 0;
};

void describe(CLI::App& app, Options& options) {
  app.add_option("PATH", options.port.path, "Where the port is made; nothing may be there yet")->required();
  app.add_option("--frame", options.port.frame_size, "Bytes of a message: 16, 32 or 4096")
      ->default_val(16)
      ->check(frame_size())
      ->type_name("BYTES");
  app.add_option("--backend", options.backend,
                 "cuse: a character device of its own, needs root and /dev/cuse;\n"
                 "pty: a pseudo-terminal, frames of 16 and 32 bytes;\n"
                 "auto: cuse where /dev/cuse can be opened, else pty")
      ->default_val("auto")
      ->check(CLI::IsMember({"auto", "cuse", "pty"}));
  app.add_option("--depth", options.depth, "Messages that it keeps until they are read")
      ->default_val(1024)
      ->transform(whole_number(1, 1'000'000))
      ->type_name("COUNT");
  app.add_option_function<std::string>(
         "--when-full",
         [&options](const std::string& word) {
           options.when_full = word == "drop" ? WhenFull::drop : WhenFull::block;
         },
         "block: writers wait; drop: new messages are lost")
      ->default_str("block")
      ->check(CLI::IsMember({"block", "drop"}));
  app.add_option("--trace", options.trace, "Print the first COUNT messages in hexadecimal")
      ->transform(whole_number(0))
      ->type_name("COUNT");
  add_help(app, "keltipc-portsim " KELTIPC_VERSION);
}

bool chooses_cuse(const Options& options) {
  if (options.backend != "auto") return options.backend == "cuse";
  if (Descriptor(::open("/dev/cuse", O_RDWR | O_CLOEXEC))) return true;
  std::cerr << "keltipc-portsim: /dev/cuse cannot be opened (" << std::strerror(errno)
            << "): a pseudo-terminal stands in for the device" << std::endl;
  return false;
}

void run(const Options& options) {
  struct stat there {};
  if (::lstat(options.port.path.c_str(), &there) == 0) {
    throw std::runtime_error("'" + options.port.path + "' exists already");
  }
  const sigset_t signals = stop_signals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  // Whoever reads what is printed may go; the port stays.
  ::signal(SIGPIPE, SIG_IGN);
  MessageQueue queue(options.depth, options.when_full, options.trace, std::cout);
  const auto ready = [&](const char* kind) {
    std::cerr << "keltipc-portsim: " << options.port.path << " is a loop-back port with messages of "
              << options.port.frame_size << " bytes (" << kind << ")" << std::endl;
  };
  (chooses_cuse(options) ? run_cuse_port : run_pty_port)(options.port, queue, ready);
  std::cerr << "keltipc-portsim: " << queue.counts() << std::endl;
}

int run_tool(int argc, char** argv) {
  CLI::App app(
      "Makes a loop-back queuing port: what one process writes, another reads, one message at a time.\n"
      "Keeps it until SIGINT, SIGTERM or SIGHUP, then removes it and says how many messages passed.",
      "keltipc-portsim");
  Options options;
  describe(app, options);
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
  try {
    return run_tool(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "keltipc-portsim: " << error.what() << std::endl;
    return exit_failed;
  }
}
