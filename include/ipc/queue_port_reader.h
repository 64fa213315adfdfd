#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include "ipc/data_consumer.h"
#include "ipc/data_source.h"
#include "ipc/export.h"
#include "ipc/ipc_signal.h"
#include "ipc/signal_frame.h"

namespace ecu::vorn::ipc {

template <std::size_t N, typename Frame>
class SignalProcessor;

/// The receiving end of a queuing port with frames of N payload bytes. The port determines N: 8, 24 or 4088.
///
/// Construct it with a consumer, `open` the port, and call `receive_data` on a thread of your choice. A port must
/// have only one reader: a second one takes messages away, and both get damaged signals. `stop` may be called from
/// any thread; all other members, including the destructor, only while `receive_data` is not running. Logs to the
/// module "ipc.queuereader". Throws nothing of its own.
template <std::size_t N, typename Frame = signal_t_dyn<N>>
class KELTIPC_EXPORT QueuePortReader : public IDataSource<IpcSignal> {
  static_assert(is_frame_payload_size(N), "QueuePortReader exists for 8, 24 and 4088 payload bytes a frame");

 public:
  /// The consumer must not be null when `receive_data` is called.
  explicit QueuePortReader(std::unique_ptr<IDataConsumer<IpcSignal>> signal_consumer);
  /// `start_id`: see `set_frame_start_id`.
  QueuePortReader(std::unique_ptr<IDataConsumer<IpcSignal>> signal_consumer, unsigned int start_id);
  ~QueuePortReader() override;  ///< Closes the port and destroys the consumer. Does not stop a running loop.
  QueuePortReader(const QueuePortReader&) = delete;
  QueuePortReader& operator=(const QueuePortReader&) = delete;

  void set_consumer(std::unique_ptr<IDataConsumer<IpcSignal>> new_consumer) override;

  /// Sets the identifier of the frames that open a sampling frame (default: 0). One above 0x0FFFFFFF never matches,
  /// because received identifiers have 28 bits. Takes effect at the next `receive_data`.
  void set_frame_start_id(unsigned int id);

  /// Closes the port that is open, if any, and opens the character device read-only. If that fails, retries every
  /// half second, up to 120 attempts, so it blocks for up to 60 s. Returns false after the last attempt; no port is
  /// open then, nor after an exception of the logging library. The flags are O_RDONLY, without O_CLOEXEC: a program
  /// started with exec inherits the file descriptor.
  bool open(const std::string& device);

  /// Receives until stopped: one read(2) for each frame, one `consume` for each complete signal.
  ///
  /// After `stop` it returns as soon as no frame has come for 300 ms, and calls the consumer's `on_finish`. It never
  /// does on a port that delivers a frame at least every 300 ms, or that has hung up (docs/receiving.md says how to
  /// end it then). It returns at once, with an ERROR line and without `on_finish`, if no port is open or poll(2)
  /// fails; a signal handled on this thread makes poll(2) fail with EINTR. An incomplete signal is lost when it
  /// returns.
  ///
  /// After a short or failed read, bytes of the last frame are processed again. So after a hang-up the loop takes a
  /// whole CPU, and may call `consume` with the last signal again and again.
  void receive_data() override;

  /// Requests the loop to end, and returns at once. Does not end a running `open`. If no loop is running, the request
  /// applies to the next one. May be called from a signal handler; one that runs on the receiving thread interrupts
  /// poll(2), so the loop ends without `on_finish`, and the request applies to the next `receive_data`.
  void stop();

 private:
  KELTIPC_NO_EXPORT void receive_frame(SignalProcessor<N, Frame>& processor, Frame& frame);
  KELTIPC_NO_EXPORT void hand_over(SignalProcessor<N, Frame>& processor);
  KELTIPC_NO_EXPORT bool goes_on_after_timeout(bool announce);

  std::unique_ptr<IDataConsumer<IpcSignal>> consumer;
  unsigned int frame_start_id;
  int fd;
  std::atomic<bool> stop_requested;
};

extern template class QueuePortReader<8>;
extern template class QueuePortReader<24>;
extern template class QueuePortReader<4088>;

#if defined(__arm__)
static_assert(sizeof(QueuePortReader<8>) == 20, "part of the binary interface on 32-bit ARM");
#endif

}  // namespace ecu::vorn::ipc
