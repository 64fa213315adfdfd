#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include "command_line.h"
#include "exit_status.h"
#include "input_error.h"

namespace {

/// Where a standard stream was closed, the next device opened would get its number, and messages meant for people
/// would go to the device. Opened the wrong way round, so that using the stream still fails.
void occupy_closed_streams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (::fcntl(fd, F_GETFD) == -1) ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

int refuse(const std::exception& error, keltipc::ExitStatus status) {
  std::cerr << "keltipc: " << error.what() << '\n';
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  occupy_closed_streams();
  try {
    return keltipc::parse_command_line(argc, argv)();
  } catch (const keltipc::InputError& error) {
    return refuse(error, keltipc::exit_usage);
  } catch (const std::exception& error) {
    return refuse(error, keltipc::exit_failed);
  }
}
