#pragma once

#include <cstddef>
#include <string>

#include "ipc/export.h"
#include "ipc/ipc_signal.h"
#include "ipc/signal_frame.h"

namespace ecu::vorn::ipc {

/// The sending end of a queuing port with frames of N payload bytes. The port determines N: 8, 24 or 4088.
///
/// Only one thread at a time may send to a port, with one writer or with several, or the frames of two signals mix on
/// it. Writers on different ports are independent. Logs to the module "ipc.queuewriter". Throws nothing of its own.
template <std::size_t N, typename Frame = signal_t_dyn<N>>
class KELTIPC_EXPORT QueuePortWriter {
  static_assert(is_frame_payload_size(N), "QueuePortWriter exists for 8, 24 and 4088 payload bytes a frame");

 public:
  QueuePortWriter();
  virtual ~QueuePortWriter();  ///< Closes the port.
  QueuePortWriter(const QueuePortWriter&) = delete;
  QueuePortWriter& operator=(const QueuePortWriter&) = delete;

  /// Closes the port that is open, if any, and opens the character device for writing. If that fails, retries every
  /// half second, up to 120 attempts, so it blocks for up to 60 s. Returns false after the last attempt. No port is
  /// open then, nor after an exception. A later `transmit_data` tries the path of the last successful `open`, not
  /// this one. The flags are O_WRONLY | O_SYNC, without O_CLOEXEC: a program started with exec inherits the
  /// descriptor.
  bool open(const std::string& device);

  /// Cuts the signal into frames and writes each with one write(2). A signal without data gives no frame.
  ///
  /// Blocks as long as the device blocks the writes. If the port's node is gone, or no port is open, first reopens
  /// the path of the last successful `open`, which can take 60 s; if that fails, returns false and has written
  /// nothing. A writer that was never opened has no path, so this always takes 60 s and fails. True means handed to
  /// the device: failed or short writes are not reported, and nothing tells whether the signal was received. The
  /// limit is 65535 bytes: a longer signal is sent, but arrives damaged (docs/frame-format.md).
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
