#pragma once

#include <string>

namespace keltipc {

/// Blocks the stop signals, so that poll(2) can wait for them, until the object goes or `take` is called. From then
/// on one ends the process at once. Make one object only.
class HeldStopSignals {
 public:
  HeldStopSignals();
  ~HeldStopSignals() { take(); }
  HeldStopSignals(const HeldStopSignals&) = delete;
  HeldStopSignals& operator=(const HeldStopSignals&) = delete;

  /// The stop signal that has come; 0 if none has.
  int take();
};

/// Writes all of `text`, and waits while nobody reads it. False if writing failed, or if a stop signal came, which is
/// then pending again.
bool write_unless_stopped(int fd, const std::string& text);

/// "keltipc-portsim: SENTENCE" on standard error, in one piece, so that a script that waits for the line finds it
/// whole.
void say(const std::string& sentence);

}  // namespace keltipc
