#include "output.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "exit_status.h"
#include "stop_request.h"

namespace keltipc {
namespace {

/// A pipe that poll(2) reports as writable takes PIPE_BUF bytes.
void write_without_waiting(std::string_view text) {
  pollfd output{output_after_stop(), POLLOUT, 0};
  while (!text.empty() && ::poll(&output, 1, 0) == 1 && output.revents == POLLOUT) {
    const ssize_t done = ::write(output.fd, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (done <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(done));
  }
}

}  // namespace

void print_line(const std::string& line) {
  std::cout << line << std::endl;
  if (!std::cout) throw std::runtime_error("cannot write to standard output");
}

std::optional<Outcome> outcome_of_stop_signal() {
  const int signal = stop_signal();
  if (signal == 0) return std::nullopt;
  return Outcome{128 + signal, {}};
}

std::optional<Outcome> write_out(std::string_view text) {
  while (!text.empty()) {
    if (auto stopped = outcome_of_stop_signal()) {
      write_without_waiting(text);
      return stopped;
    }
    const ssize_t done = ::write(STDOUT_FILENO, text.data(), text.size());
    if (done >= 0) {
      text.remove_prefix(static_cast<std::size_t>(done));
    } else if (errno == EPIPE) {
      return Outcome{exit_done, {}, true};
    } else if (errno == EAGAIN) {
      // Another process that shares the descriptor made it non-blocking.
      pollfd output{STDOUT_FILENO, POLLOUT, 0};
      ::poll(&output, 1, -1);
    } else if (errno != EINTR && stop_signal() == 0) {
      return Outcome{exit_failed, std::string("standard output: ") + std::strerror(errno)};
    }
  }
  return std::nullopt;
}

}  // namespace keltipc
