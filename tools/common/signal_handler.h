#pragma once

#include <signal.h>

namespace keltipc {

/// From here on `handler` is called for this signal, while `blocked` are held back. Deliberate: without SA_RESTART,
/// because a system call that waits must return.
inline void handle_signal(int signal, void (*handler)(int), const sigset_t& blocked = {}) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_mask = blocked;
  ::sigaction(signal, &action, nullptr);
}

}  // namespace keltipc
