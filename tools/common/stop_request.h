#pragma once

namespace keltipc {

/// From here on SIGINT, SIGTERM and, unless it is ignored as under nohup(1), SIGHUP do not end the process: they are
/// noted, and they interrupt system calls that wait, write(2) included. Call it once.
void note_stop_signals();

/// The signal that was noted; 0 while there is none.
int stop_signal();

}  // namespace keltipc
