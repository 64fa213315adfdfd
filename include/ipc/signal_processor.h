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

/// Puts frames together to signals, in the order in which they come. `QueuePortReader` does this for you; use it
/// yourself where frames reach you another way.
///
/// Frames with the frame start identifier open a sampling frame: they throw away what is half received, and their
/// first 8 payload bytes stamp the signals that follow. Before the first of them every frame is dropped.
/// Lost, repeated and reordered frames are not detected: bytes are counted, `chunk_index` is not read.
/// One thread at a time. Logs to the module "ipc.signalprocessor". Nothing fails but memory (std::bad_alloc).
template <std::size_t N, typename Frame = signal_t_dyn<N>>
class KELTIPC_EXPORT SignalProcessor {
  static_assert(is_frame_payload_size(N), "SignalProcessor exists for 8, 24 and 4088 payload bytes a frame");

 public:
  /// The numbers appear in the log.
  enum State : std::int32_t {
    STATE_IDLE = 0,         ///< no sampling frame seen yet
    STATE_FRAME_START = 1,  ///< within `process` only
    STATE_RECEIVING = 2,    ///< collecting, or waiting for a signal's first frame
    STATE_COMPLETE = 3,     ///< a signal can be taken; stays so until the next frame
  };

  /// `start_id`: the identifier, of 28 bits, of the frames that open a sampling frame.
  explicit SignalProcessor(std::uint32_t start_id);
  ~SignalProcessor();
  SignalProcessor(const SignalProcessor&) = delete;
  SignalProcessor& operator=(const SignalProcessor&) = delete;

  /// Takes one frame in.
  void process(Frame&& frame);

  /// Hands out the signal in STATE_COMPLETE, its bytes not copied; empty in any other state.
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
