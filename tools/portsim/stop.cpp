#include "stop.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "stop_signals.h"

namespace keltipc {
namespace {

volatile sig_atomic_t writes_to = -1;
volatile sig_atomic_t came = 0;

/// A signal may come just before write(2) begins to wait. Without blocking, write returns in that case too.
void stop_writing(int signal) {
  const int saved = errno;
  came = signal;
  ::fcntl(writes_to, F_SETFL, ::fcntl(writes_to, F_GETFL) | O_NONBLOCK);
  errno = saved;
}

}  // namespace

HeldStopSignals::HeldStopSignals() {
  const sigset_t signals = stop_signals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  handle_stop_signals(stop_writing);
}

int HeldStopSignals::take() {
  const sigset_t signals = stop_signals();
  const timespec at_once{0, 0};
  const int signal = ::sigtimedwait(&signals, nullptr, &at_once);
  handle_stop_signals(SIG_DFL);
  ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  return signal > 0 ? signal : 0;
}

bool write_unless_stopped(int fd, const std::string& text) {
  const int flags = ::fcntl(fd, F_GETFL);
  const sigset_t signals = stop_signals();
  sigset_t usual;
  std::string_view rest = text;
  writes_to = fd;
  ::pthread_sigmask(SIG_UNBLOCK, &signals, &usual);
  for (ssize_t written = 0; came == 0 && !rest.empty() && (written = ::write(fd, rest.data(), rest.size())) > 0;) {
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
  const int error = errno;
  ::pthread_sigmask(SIG_SETMASK, &usual, nullptr);
  if (came != 0) {
    ::fcntl(fd, F_SETFL, flags);
    ::kill(::getpid(), came);
    came = 0;
  }
  errno = error;
  return rest.empty();
}

void say(const std::string& sentence) { write_unless_stopped(STDERR_FILENO, "keltipc-portsim: " + sentence + "\n"); }

}  // namespace keltipc
