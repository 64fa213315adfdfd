#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <optional>
#include <thread>

#include "descriptor.h"
#include "device_node.h"
#include "ending.h"
#include "line_output.h"

namespace keltipc {

/// SIGINT and SIGTERM, blocked from here on in this thread and those that it starts: poll(2) in the reader's loop
/// must not be interrupted. A `Watch` waits for them.
class BlockedSignals {
 public:
  BlockedSignals();
  ~BlockedSignals();
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before{};
};

struct Watched {
  const DeviceNode& node;
  LineOutput& output;
  std::optional<std::chrono::milliseconds> longest_quiet;
  std::function<void()> stop;  ///< asks the loop to end
};

/// Watches over a reader's loop from a thread of its own, and ends it: for a signal, a device that is gone, a quiet
/// time too long, a standard output that nobody reads.
///
/// The loop sees `stop` only when the port has been quiet for 300 ms, which a busy or a hung-up port never is. One
/// that has not ended a second after it was asked to is left as it is, and this thread ends the process.
class Watch {
 public:
  Watch(const BlockedSignals& blocked, Watched watched_things);
  ~Watch();  ///< the loop has ended
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// The loop has ended: the reason for which this watch asked it to, if it did.
  std::optional<Ending> finish();

 private:
  enum class Event { loop_ended, signal, none };

  void run();
  Event wait(std::chrono::milliseconds time);
  std::chrono::milliseconds time_to_next_look() const;
  std::optional<Ending> look() const;
  std::optional<Ending> ending_for_signal();
  void end_loop();

  Watched watched;
  Descriptor signal_fd;
  Descriptor loop_ended;
  std::optional<Ending> ending;
  std::thread thread;
};

/// Says how it ended, after a signal how many lines were written, and gives the exit status.
int report(const Ending& ending, const LineOutput& output);

}  // namespace keltipc
