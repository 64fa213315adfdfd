#pragma once

#include <signal.h>
#include <sys/signalfd.h>

#include "descriptor.h"

namespace keltipc {

/// SIGINT and SIGTERM are waited for, not handled, so that whoever made the port removes it.
inline sigset_t stop_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  return signals;
}

/// Readable once one of the two has come. They must be blocked.
inline Descriptor open_stop_signals() {
  const sigset_t signals = stop_signals();
  return given_by("signalfd", ::signalfd(-1, &signals, SFD_CLOEXEC));
}

}  // namespace keltipc
