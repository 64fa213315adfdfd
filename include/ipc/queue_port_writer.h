#pragma once

#include <cstddef>
#include <string>

#include "ipc/export.h"
#include "ipc/ipc_signal.h"
#include "ipc/signal_frame.h"

namespace ecu::vorn::ipc {

/// The sending end of a queuing port with frames of N payload bytes: N is 8, 24 or 4088, as the port was set up.
///
/// Every call runs on the caller's thread. One writer belongs to one thread at a time: two that share it must take
/// turns, or the frames of two signals mix on the port. Writers on different ports know nothing of each other.
/// Logs to the module "ipc.queuewriter". Throws nothing of its own.
template <std::size_t N, typename Frame = signal_t_dyn<N>>
class KELTIPC_EXPORT QueuePortWriter {
  static_assert(is_frame_payload_size(N), "QueuePortWriter exists for 8, 24 and 4088 payload bytes a frame");

 public:
  QueuePortWriter();
  virtual ~QueuePortWriter();  ///< closes the port
  QueuePortWriter(const QueuePortWriter&) = delete;
  QueuePortWriter& operator=(const QueuePortWriter&) = delete;

  /// Opens the character device for writing (O_WRONLY | O_SYNC, see open(2): programs started by this one inherit
  /// it), and closes the one open before. Waits for it to appear: up to 120 attempts, half a second apart, so blocks
  /// for up to 60 s. False after that; then no port is open, and the path of the last one that was stays remembered.
  bool open(const std::string& device);

  /// Cuts the signal into frames and writes each with one write(2); a signal without data gives no frame.
  ///
  /// Blocks for as long as the device blocks the writes. A port whose node has gone, or that was never opened,
  /// is opened again first, from the path of the last successful `open`, which may take 60 s; false where that
  /// fails, and nothing has been written. True means handed to the device: a failed or short write is not
  /// reported, and nothing tells whether anybody received the signal.
  /// Up to 65535 bytes: longer ones go out, but the other side cannot put them together (docs/frame-format.md).
  bool transmit_data(const IpcSignal& signal);

 private:
  KELTIPC_NO_EXPORT bool reopen();
  KELTIPC_NO_EXPORT void write_frames(const IpcSignal& signal, std::size_t chunks);

  std::string path;
  int fd;
};

extern template class QueuePortWriter<8>;
extern template class QueuePortWriter<24>;
extern template class QueuePortWriter<4088>;

#if defined(__arm__)
static_assert(sizeof(QueuePortWriter<8>) == 32, "part of the binary interface on 32-bit ARM");
#endif

}  // namespace ecu::vorn::ipc
