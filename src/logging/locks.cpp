#include "locks.h"

#include <pthread.h>

namespace ecu::vorn::logging {
namespace {

struct Locks {
  std::mutex output;
  std::mutex registry;
};

Locks& locks();

/// A sink may fork: then its thread holds the output lock already.
void take_for_fork() {
  if (!runs_sink()) locks().output.lock();
  locks().registry.lock();
}

void give_back_after_fork() {
  locks().registry.unlock();
  if (!runs_sink()) locks().output.unlock();
}

/// Never destroyed: other libraries may log while the process ends.
Locks& locks() {
  static Locks* const instance = [] {
    auto* const made = new Locks;
    ::pthread_atfork(take_for_fork, give_back_after_fork, give_back_after_fork);
    return made;
  }();
  return *instance;
}

}  // namespace

std::mutex& output_mutex() { return locks().output; }

std::mutex& registry_mutex() { return locks().registry; }

bool& runs_sink() {
  thread_local bool runs = false;
  return runs;
}

}  // namespace ecu::vorn::logging
