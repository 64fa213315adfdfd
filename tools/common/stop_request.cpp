#include "stop_request.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

#include "clock.h"
#include "descriptor.h"
#include "stop_signals.h"

namespace keltipc {
namespace {

volatile std::sig_atomic_t noted = 0;
std::chrono::microseconds noted_at;
int output = -1;    ///< standard output, also after a stop signal
int hung_up = -1;   ///< the read end of a pipe whose write end is closed
int hangs_up = -1;  ///< an eventfd; a stop signal puts `hung_up` in its place

/// A signal can arrive after the last look at `noted` and before the write(2) that then blocks. Blocking the signals
/// does not close that gap: poll(2) has a form that unblocks them while it waits, write(2) has none. So the read end
/// of a pipe whose write end is closed takes the place of standard output: write(2) fails, and poll(2) does not wait.
void note(int signal) {
  if (noted != 0 && steady_now() - noted_at > same_request) end_by_signal(signal);
  if (noted != 0) return;
  const int saved = errno;
  noted_at = steady_now();
  noted = signal;
  ::dup2(hung_up, STDOUT_FILENO);
  ::dup2(hung_up, hangs_up);
  errno = saved;
}

int checked(int result, const char* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

int open_hung_up_pipe() {
  std::array<int, 2> ends{};
  checked(::pipe2(ends.data(), O_CLOEXEC), "pipe");
  ::close(ends[1]);
  return ends[0];
}

/// A pipe that poll(2) reports as writable takes PIPE_BUF bytes. Returns 0 for all of `text`, else EINTR.
int write_without_waiting(std::string_view text) {
  while (!text.empty() && poll_one(output, POLLOUT, 0) == POLLOUT) {
    const ssize_t done = ::write(output, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (done <= 0) break;
    text.remove_prefix(static_cast<std::size_t>(done));
  }
  return text.empty() ? 0 : EINTR;
}

}  // namespace

void note_stop_signals() {
  hung_up = open_hung_up_pipe();
  output = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  hangs_up = checked(::eventfd(0, EFD_CLOEXEC), "eventfd");
  std::signal(SIGPIPE, SIG_IGN);
  handle_stop_signals(note);
}

int stop_signal() { return noted; }

int stop_descriptor() { return hangs_up; }

int write_output(std::string_view text) {
  while (!text.empty()) {
    if (noted != 0) return write_without_waiting(text);
    const ssize_t done = ::write(STDOUT_FILENO, text.data(), text.size());
    if (done >= 0) {
      text.remove_prefix(static_cast<std::size_t>(done));
    } else if (errno == EAGAIN) {
      poll_one(STDOUT_FILENO, POLLOUT, -1);  // Another process that shares the descriptor made it non-blocking.
    } else if (errno != EINTR && noted == 0) {
      return errno;
    }
  }
  return 0;
}

}  // namespace keltipc
