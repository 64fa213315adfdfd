#include "stop_request.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

#include "clock.h"
#include "stop_signals.h"

namespace keltipc {
namespace {

volatile std::sig_atomic_t noted = 0;
std::chrono::microseconds noted_at;
int output = -1;
int hung_up = -1;

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
  errno = saved;
}

int open_hung_up_pipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  ::close(ends[1]);
  return ends[0];
}

}  // namespace

void note_stop_signals() {
  hung_up = open_hung_up_pipe();
  output = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  handle_stop_signals(note);
}

int stop_signal() { return noted; }

int output_after_stop() { return output; }

}  // namespace keltipc
