#include "port_loop.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "escape.h"
#include "exit_status.h"
#include "ipc/utils.h"
#include "port_setup.h"
#include "say.h"
#include "stop_request.h"

namespace keltipc {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds between_looks(1000);
constexpr milliseconds between_attempts(100);
constexpr short hang_up = POLLHUP | POLLERR | POLLNVAL;

bool has_hung_up(int device) {
  pollfd port{device, 0, 0};
  return ::poll(&port, 1, 0) > 0 && (port.revents & hang_up) != 0;
}

/// Whether `path` still leads to the node that was opened: it may have been removed, or made again for another
/// device.
bool leads_to(const std::string& path, int device) {
  struct stat now {};
  struct stat opened {};
  return ::stat(path.c_str(), &now) == 0 && ::fstat(device, &opened) == 0 && now.st_dev == opened.st_dev &&
         now.st_ino == opened.st_ino && now.st_rdev == opened.st_rdev;
}

std::optional<Outcome> outcome_of_stop_signal() {
  const int signal = stop_signal();
  if (signal == 0) return std::nullopt;
  return Outcome{128 + signal, {}};
}

}  // namespace

std::optional<Outcome> write_out(std::string_view text) {
  while (!text.empty()) {
    if (auto stopped = outcome_of_stop_signal()) return stopped;
    const ssize_t done = ::write(STDOUT_FILENO, text.data(), text.size());
    if (done >= 0) {
      text.remove_prefix(static_cast<std::size_t>(done));
    } else if (errno == EPIPE) {
      return Outcome{exit_done, {}, true};
    } else if (errno == EAGAIN) {
      // Another process that shares the descriptor made it non-blocking.
      pollfd output{STDOUT_FILENO, POLLOUT, 0};
      ::poll(&output, 1, -1);
    } else if (errno != EINTR) {
      return Outcome{exit_failed, std::string("standard output: ") + std::strerror(errno)};
    }
  }
  return std::nullopt;
}

PortLoop::PortLoop(Port described, Descriptor opened, PortClient& its_client)
    : port(std::move(described)), device(std::move(opened)), client(its_client), message(port.frame_size) {}

Outcome PortLoop::run() {
  std::optional<Outcome> outcome;
  while (!outcome) {
    outcome = outcome_of_stop_signal();
    if (!outcome) outcome = turn();
  }
  return *outcome;
}

std::optional<Outcome> PortLoop::turn() {
  std::array<pollfd, 2> sources{{{device ? device->get() : -1, POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
  const int ready = ::poll(sources.data(), sources.size(), time_to_wait());
  if (ready < 0 && errno != EINTR) return Outcome{exit_failed, std::string("poll: ") + std::strerror(errno)};
  if (sources[1].revents != 0) return Outcome{exit_done, {}, true};
  if (sources[0].revents != 0) {
    if (auto outcome = read_message((sources[0].revents & hang_up) != 0)) return outcome;
  }
  if (PortClient::Clock::now() >= client.due()) {
    if (auto outcome = client.on_time()) return outcome;
  }
  // Only if the port is quiet, so that all that a device still holds is read after its node was removed.
  return ready == 0 ? look_at_node() : std::nullopt;
}

int PortLoop::time_to_wait() const {
  const auto to_due = std::chrono::ceil<milliseconds>(client.due() - PortClient::Clock::now());
  return static_cast<int>(std::clamp(to_due, milliseconds(0), device ? between_looks : between_attempts).count());
}

std::optional<Outcome> PortLoop::read_message(bool has_hung_up) {
  const ssize_t got = ::read(device->get(), message.data(), message.size());
  if (got > 0) return client.on_message(message.data(), static_cast<std::size_t>(got));
  if (got == 0) return lose("has hung up");
  // Another reader may have been faster.
  if ((errno == EAGAIN && !has_hung_up) || errno == EINTR) return std::nullopt;
  return lose(std::string("cannot be read any longer: ") + std::strerror(errno));
}

std::optional<Outcome> PortLoop::look_at_node() {
  if (!device) {
    reopen();
  } else if (!leads_to(port.device, device->get())) {
    return lose("is gone");
  }
  return std::nullopt;
}

std::optional<Outcome> PortLoop::lose(const std::string& reason) {
  client.on_loss();
  const std::string sentence = quote(port.device) + " " + reason;
  if (!port.follow) return Outcome{exit_failed, sentence};
  say(sentence + "; waiting for it to come back");
  device.reset();
  return std::nullopt;
}

void PortLoop::reopen() {
  // A regular file in its place, which a shell's ">" makes while the node is missing, is not the end of the wait.
  if (!ecu::vorn::ipc::utils::is_char_dev(port.device)) return;
  Descriptor opened = try_to_open_device(port.device, O_RDONLY);
  if (!opened || has_hung_up(opened.get())) return;
  say(quote(port.device) + " is back");
  device.emplace(std::move(opened));
}

}  // namespace keltipc
