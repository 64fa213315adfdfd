#pragma once

#include <signal.h>
#include <unistd.h>

#include <chrono>

#include "signal_handler.h"

namespace keltipc {

/// A stop signal that comes within this time after another is not a second request: timeout(1) sends its signal to
/// the process and then to its group, so it comes twice.
constexpr std::chrono::milliseconds same_request(50);

/// SIGINT, SIGTERM and, unless it is ignored as under nohup(1), SIGHUP.
inline sigset_t stop_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  struct sigaction hang_up {};
  if (::sigaction(SIGHUP, nullptr, &hang_up) == 0 && hang_up.sa_handler != SIG_IGN) sigaddset(&signals, SIGHUP);
  return signals;
}

/// From here on `handler` is called for each of them.
inline void handle_stop_signals(void (*handler)(int)) {
  const sigset_t signals = stop_signals();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    if (::sigismember(&signals, signal) == 1) handle_signal(signal, handler, signals);
  }
}

/// Ends the process by `signal`, as if it had never been caught: a shell ends its loop after SIGINT only if the
/// command died of it. Call it after the clean-up: no destructor runs, and no stream is flushed.
[[noreturn]] inline void end_by_signal(int signal) {
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  ::signal(signal, SIG_DFL);
  ::kill(::getpid(), signal);
  ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  ::_exit(128 + signal);  // The first process of a container does not die of its own signal.
}

}  // namespace keltipc
