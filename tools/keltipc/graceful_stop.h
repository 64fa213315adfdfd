#pragma once

#include <string>

// Ends the process by a stop signal, but not in the middle of a signal that is being sent: receivers would lose what
// others send after it. Then the stop signal ends the process when the signal has been sent, or after 5 s; a second
// one ends it at once.
namespace keltipc {

/// From here on a thread waits for the stop signals, and they interrupt no system call of the calling thread. Call it
/// once, before there are other threads.
void stop_gracefully();

/// Before the first frame of a signal, which messages call `name`. Does not return if a stop signal has come.
void begin_signal(const std::string& name);

/// Between signals again. Does not return if a stop signal has come.
void end_signal();

}  // namespace keltipc
