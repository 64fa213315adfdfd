#pragma once

namespace keltipc {

/// From here on the first SIGINT, SIGTERM or, unless it is ignored as under nohup(1), SIGHUP does not end the
/// process: it is noted, and system calls that wait are interrupted. From then on writing to STDOUT_FILENO fails, and
/// poll(2) reports a hang-up of it. A second signal ends the process at once. Call it once.
void note_stop_signals();

/// The signal that was noted; 0 while there is none.
int stop_signal();

/// Standard output, also after a stop signal. Only write to it what it takes without waiting.
int output_after_stop();

}  // namespace keltipc
