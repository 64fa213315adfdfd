#include "sink.h"

#include <cxxabi.h>

#include <cerrno>
#include <utility>

#include "locks.h"
#include "logging/logging.h"

namespace ecu::vorn::logging {
namespace {

/// Null means `stderr_sink`. Never destroyed: other libraries may log while the process exits.
std::shared_ptr<const Sink>& sink_in_force() {
  static auto* const instance = new std::shared_ptr<const Sink>;
  return *instance;
}

/// Marks the calling thread as running the sink while it lives.
class SinkRun {
 public:
  SinkRun() { runs_sink() = true; }
  ~SinkRun() { runs_sink() = false; }
  SinkRun(const SinkRun&) = delete;
  SinkRun& operator=(const SinkRun&) = delete;
};

void deliver(int level, const std::string& module, const std::string& text) {
  if (runs_sink()) return stderr_sink(level, module, text);
  // A sink may replace itself: this copy keeps it until its call returns, and is destroyed after the unlock.
  std::shared_ptr<const Sink> sink;
  const std::lock_guard<std::mutex> lock(output_mutex());
  sink = sink_in_force();
  const SinkRun run;
  sink != nullptr ? (*sink)(level, module, text) : stderr_sink(level, module, text);
}

}  // namespace

void set_sink(Sink sink) {
  auto next = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
  std::unique_lock<std::mutex> lock(output_mutex(), std::defer_lock);
  if (!runs_sink()) lock.lock();
  sink_in_force().swap(next);
}

void hand_to_sink(int level, const std::string& module, const std::string& text) {
  const int callers_errno = errno;
  try {
    deliver(level, module, text);
  } catch (const abi::__forced_unwind&) {
    throw;  // pthread_cancel(3) unwinds the thread with this exception, which must not be swallowed
  } catch (...) {
    // Deliberate: the line is lost, because a logging call must not throw when its output failed.
  }
  errno = callers_errno;
}

}  // namespace ecu::vorn::logging
