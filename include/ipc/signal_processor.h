#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "ipc/export.h"
#include "ipc/ipc_signal.h"
#include "ipc/signal_frame.h"

namespace ecu::vorn::logging {
struct LogModule;
}

namespace ecu::vorn::ipc {

/// Puts frames together into signals, in order of arrival. `QueuePortReader` uses it; use it yourself if frames reach
/// you in another way, for example in a test.
///
/// A frame with the frame start identifier opens a sampling frame: it discards an incomplete signal, and its first 8
/// payload bytes stamp the signals that follow. Before the first one, all frames are discarded.
/// Lost, repeated and reordered frames are not detected: only bytes are counted (docs/losses.md).
/// For one thread at a time. Logs to the module "ipc.signalprocessor". Throws only std::bad_alloc.
template <std::size_t N, typename Frame = signal_t_dyn<N>>
class KELTIPC_EXPORT SignalProcessor {
  static_assert(is_frame_payload_size(N), "SignalProcessor exists for 8, 24 and 4088 payload bytes a frame");

 public:
  /// The values appear in the log.
  enum State : std::int32_t {
    STATE_IDLE = 0,         ///< no start frame seen yet
    STATE_FRAME_START = 1,  ///< only within `process`
    STATE_RECEIVING = 2,    ///< collecting a signal, or waiting for its first frame
    STATE_COMPLETE = 3,     ///< a signal can be taken; unchanged by `take`, until the next frame
  };

  /// `start_id`: the identifier, 28 bits, of the frames that open a sampling frame.
  explicit SignalProcessor(std::uint32_t start_id);
  ~SignalProcessor();
  SignalProcessor(const SignalProcessor&) = delete;
  SignalProcessor& operator=(const SignalProcessor&) = delete;

  /// Processes one frame. Check `get_state` afterwards, and `take` a complete signal: otherwise the next frame's
  /// bytes are appended to it. After a lost frame a signal can grow, and take memory, until the next start frame.
  void process(Frame&& frame);

  /// Returns the signal in STATE_COMPLETE, without copying its bytes. A second call before the next frame returns a
  /// signal that is empty but for its `sampling_frame`. In any other state logs a WARNING line and returns nothing.
  std::optional<IpcSignal> take();

  State get_state() const { return state; }

 private:
  KELTIPC_NO_EXPORT void start_sampling_frame(std::uint32_t id);
  KELTIPC_NO_EXPORT void append(const Frame& frame, std::uint32_t id, std::uint32_t status);

  IpcSignal signal;
  State state;
  std::uint32_t received;
  std::uint32_t expected;
  std::uint32_t frame_start_id;
  std::shared_ptr<logging::LogModule> logger;
};

extern template class SignalProcessor<8>;
extern template class SignalProcessor<24>;
extern template class SignalProcessor<4088>;

#if defined(__arm__)
static_assert(sizeof(SignalProcessor<8>) == 56, "part of the binary interface on 32-bit ARM");
#endif

}  // namespace ecu::vorn::ipc
