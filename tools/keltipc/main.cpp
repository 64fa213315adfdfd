#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include "commands.h"
#include "exit_status.h"
#include "text/input_error.h"

namespace {

/// CLI11 has exit codes of its own; this tool's users expect 0 and 2.
int report(const CLI::App& app, const CLI::ParseError& error) {
  const bool asked_for = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success);
  app.exit(error, std::cout, std::cerr);
  return asked_for ? keltipc::exit_done : keltipc::exit_usage;
}

/// Where a standard stream was closed, the next device opened would get its number, and messages meant for people
/// would go to the device. Opened the wrong way round, so that using the stream still fails.
void occupy_closed_streams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (::fcntl(fd, F_GETFD) == -1) ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

int run_tool(int argc, char** argv) {
  CLI::App app("Send and watch signals on queuing ports, and control systemd units.", "keltipc");
  app.set_version_flag("--version", "keltipc " KELTIPC_VERSION);
  app.require_subcommand(1);

  keltipc::Run run;
  keltipc::add_send_command(app, run);
  keltipc::add_dump_command(app, run);
  keltipc::add_unit_command(app, run);
  keltipc::add_target_command(app, run);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return report(app, error);
  }
  return run();
}

int refuse(const std::exception& error, keltipc::ExitStatus status) {
  std::cerr << "keltipc: " << error.what() << '\n';
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  occupy_closed_streams();
  try {
    return run_tool(argc, argv);
  } catch (const keltipc::InputError& error) {
    return refuse(error, keltipc::exit_usage);
  } catch (const std::exception& error) {
    return refuse(error, keltipc::exit_failed);
  }
}
