#pragma once

#include "ipc/export.h"

namespace ecu::vorn::ipc {

/// The application's end of the receiving side. Override what you need; only `consume` is a must.
///
/// The source that it was handed to owns it. Every call comes on the thread that runs `receive_data`, one at a
/// time, and holds up the receiving for as long as it takes. What a call throws ends `receive_data` and reaches
/// its caller.
template <typename Signal>
class KELTIPC_EXPORT IDataConsumer {
 public:
  virtual ~IDataConsumer() = default;

  /// A complete signal has come. It is yours to move from; it is gone when the call returns.
  virtual void consume(Signal&& signal) = 0;

  /// The loop ends because a stop was asked for. Not called where it ends for another reason.
  virtual void on_finish() {}

  /// The port has been quiet for 300 ms: once when the loop starts quiet, and once after each frame.
  virtual void on_timeout() {}
};

}  // namespace ecu::vorn::ipc
