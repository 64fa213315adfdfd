#pragma once

#include <string_view>

namespace keltipc {

/// From here on the first SIGINT, SIGTERM or, unless it is ignored as under nohup(1), SIGHUP does not end the
/// process: it is noted, and system calls that wait are interrupted. From then on writing to STDOUT_FILENO fails, and
/// poll(2) reports a hang-up of it. A second signal ends the process at once. SIGPIPE is ignored. Call it once.
void note_stop_signals();

/// The signal that was noted; 0 while there is none.
int stop_signal();

/// A descriptor of which poll(2) reports a hang-up from the stop signal on, and nothing before.
int stop_descriptor();

/// Writes all of `text` to standard output, and waits while nobody reads it; after a stop signal, writes what fits
/// there without waiting. Returns 0, or the error number: EINTR for what does not fit after a stop signal.
int write_output(std::string_view text);

}  // namespace keltipc
