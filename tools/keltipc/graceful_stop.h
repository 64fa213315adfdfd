#pragma once

#include <memory>
#include <string>

namespace keltipc {

/// Ends the process by a stop signal, but not in the middle of a signal that is being sent: receivers would lose what
/// others send after it. Then the stop signal ends the process when the signal has been sent, or after 5 s; a second
/// one ends it at once.
class GracefulStop {
 public:
  /// From here on a thread waits for the stop signals, and they interrupt no system call of the calling thread. Only
  /// one object may exist, made before there are other threads.
  GracefulStop();

  /// Before the first frame of a signal, which messages call `name`. Does not return if a stop signal has come.
  void begin(const std::string& name);

  /// Between signals again. Does not return if a stop signal has come.
  void end();

 private:
  struct State;

  static void wait_for_stop(State& state);

  std::shared_ptr<State> state;  ///< The thread still uses it while the process ends.
};

}  // namespace keltipc
