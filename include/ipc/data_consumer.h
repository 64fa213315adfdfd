#pragma once

#include "ipc/export.h"

namespace ecu::vorn::ipc {

/// Receives the signals of a data source. Implemented by the application: only `consume` must be overridden.
///
/// The source that it was passed to owns it. Every call runs on the thread that runs `receive_data`, one at a time,
/// and nothing is received meanwhile. An exception from a call ends `receive_data` and reaches its caller.
template <typename Signal>
class KELTIPC_EXPORT IDataConsumer {
 public:
  virtual ~IDataConsumer() = default;

  /// Called once for each complete signal. The consumer may move from it; it is destroyed after the call.
  virtual void consume(Signal&& signal) = 0;

  /// Called when the loop ends because of `stop`. Not called if it ends for another reason.
  virtual void on_finish() {}

  /// Called when the port has been quiet for 300 ms, once in each quiet period.
  virtual void on_timeout() {}
};

}  // namespace ecu::vorn::ipc
