#include "graceful_stop.h"

#include <chrono>
#include <csignal>
#include <mutex>
#include <thread>

#include "say.h"
#include "stop_signals.h"

namespace keltipc {
namespace {

constexpr std::chrono::seconds longest_finish(5);

/// Not by sigtimedwait(2) alone, because the thread that waits must also see them while it writes to standard error.
void end_at_next(const sigset_t& signals) {
  std::this_thread::sleep_for(same_request);
  constexpr timespec none{};
  while (::sigtimedwait(&signals, nullptr, &none) > 0) continue;
  handle_stop_signals(end_by_signal);
  ::pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

/// What the thread and the one that sends share.
struct State {
  std::mutex mutex;
  std::string name;  ///< of the signal that is being sent; empty between signals
  int stop = 0;      ///< the stop signal that has come
};

State& state = *new State;  ///< Never deleted: the thread still uses it while the process ends.

void wait_for_stop() {
  const sigset_t signals = stop_signals();
  int signal = 0;
  while (::sigwait(&signals, &signal) != 0) continue;
  std::string name;
  {
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.stop = signal;
    name = state.name;
    if (name.empty()) end_by_signal(signal);
  }
  end_at_next(signals);
  say("finishing " + name + "; a second stop signal ends at once");
  std::this_thread::sleep_for(longest_finish - same_request);
  say("gave up in the middle of " + name);
  end_by_signal(signal);
}

}  // namespace

void stop_gracefully() {
  const sigset_t signals = stop_signals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread(wait_for_stop).detach();
}

void begin_signal(const std::string& name) {
  const std::lock_guard<std::mutex> lock(state.mutex);
  state.name = name;
}

void end_signal() {
  const std::lock_guard<std::mutex> lock(state.mutex);
  state.name.clear();
  if (state.stop != 0) end_by_signal(state.stop);
}

}  // namespace keltipc
