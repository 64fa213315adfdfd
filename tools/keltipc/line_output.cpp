#include "line_output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <thread>

#include "ending.h"

namespace keltipc {
namespace {

/// Whoever gave us the descriptor may have made it non-blocking.
void wait_until_writable() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  ::poll(&output, 1, -1);
}

void write_whole(std::string_view text) {
  while (!text.empty()) {
    const ssize_t done = ::write(STDOUT_FILENO, text.data(), text.size());
    if (done >= 0) {
      text.remove_prefix(static_cast<std::size_t>(done));
    } else if (errno == EPIPE) {
      throw Ending(exit_done);
    } else if (errno == EAGAIN) {
      wait_until_writable();
    } else if (errno != EINTR) {
      throw Ending(exit_failed, std::string("standard output: ") + std::strerror(errno));
    }
  }
}

}  // namespace

void LineOutput::write(std::string line) {
  line += '\n';
  const std::lock_guard<std::mutex> lock(busy);
  write_whole(line);
  ++written;
  last = std::chrono::steady_clock::now();
}

bool LineOutput::is_closed() {
  pollfd output{STDOUT_FILENO, 0, 0};
  return ::poll(&output, 1, 0) > 0 && output.revents != 0;
}

std::chrono::milliseconds LineOutput::quiet_time() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - last.load());
}

void LineOutput::close_for_good() {
  constexpr std::chrono::milliseconds pause(10);
  for (int attempt = 0; attempt < 50; ++attempt) {
    if (busy.try_lock()) return;  // Never unlocked.
    std::this_thread::sleep_for(pause);
  }
}

}  // namespace keltipc
