#include "stop_request.h"

#include <time.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "stop_signals.h"

namespace keltipc {
namespace {

volatile std::sig_atomic_t noted = 0;
timer_t repeat;

/// A signal can arrive after the last look at `noted` and before the write(2) that then blocks. Blocking the signals
/// does not close that gap: poll(2) has a form that unblocks them while it waits, write(2) has none. So the first
/// signal starts a timer, whose SIGALRM interrupts any waiting system call every 10 ms, until the process has ended.
void note(int signal) {
  const int saved = errno;
  if (signal != SIGALRM) noted = signal;
  constexpr timespec interval{0, 10'000'000};
  const itimerspec every{interval, interval};
  ::timer_settime(repeat, 0, &every, nullptr);
  errno = saved;
}

}  // namespace

void note_stop_signals() {
  sigevent by_alarm{};
  by_alarm.sigev_notify = SIGEV_SIGNAL;
  by_alarm.sigev_signo = SIGALRM;
  if (::timer_create(CLOCK_MONOTONIC, &by_alarm, &repeat) != 0) {
    throw std::system_error(errno, std::generic_category(), "timer_create");
  }
  struct sigaction action {};  // Deliberate: without SA_RESTART, because a blocked write(2) must return.
  action.sa_handler = note;
  ::sigaction(SIGALRM, &action, nullptr);
  const sigset_t signals = stop_signals();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (::sigismember(&signals, signal) == 1) ::sigaction(signal, &action, nullptr);
  }
}

int stop_signal() { return noted; }

}  // namespace keltipc
