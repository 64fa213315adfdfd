#pragma once

#include <signal.h>
#include <sys/signalfd.h>

#include "descriptor.h"

namespace keltipc {

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

/// Readable once one of them has come. They must be blocked.
inline Descriptor open_stop_signals() {
  const sigset_t signals = stop_signals();
  return checked_descriptor("signalfd", ::signalfd(-1, &signals, SFD_CLOEXEC));
}

}  // namespace keltipc
