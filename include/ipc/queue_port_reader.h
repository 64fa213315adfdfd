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

/// The receiving end of a queuing port with frames of N payload bytes: N is 8, 24 or 4088, as the port was set up.
///
/// Give it a consumer, `open` the port, and call `receive_data` on a thread of your choice. `stop` may be called
/// from any thread; everything else, destruction included, only while no `receive_data` runs.
/// Logs to the module "ipc.queuereader". Throws nothing of its own.
template <std::size_t N, typename Frame = signal_t_dyn<N>>
class KELTIPC_EXPORT QueuePortReader : public IDataSource<IpcSignal> {
  static_assert(is_frame_payload_size(N), "QueuePortReader exists for 8, 24 and 4088 payload bytes a frame");

 public:
  /// The consumer must not be null when `receive_data` is called.
  explicit QueuePortReader(std::unique_ptr<IDataConsumer<IpcSignal>> signal_consumer);
  /// `start_id`: as `set_frame_start_id` takes it.
  QueuePortReader(std::unique_ptr<IDataConsumer<IpcSignal>> signal_consumer, unsigned int start_id);
  ~QueuePortReader() override;  ///< closes the port and destroys the consumer; does not stop a running loop
  QueuePortReader(const QueuePortReader&) = delete;
  QueuePortReader& operator=(const QueuePortReader&) = delete;

  void set_consumer(std::unique_ptr<IDataConsumer<IpcSignal>> new_consumer) override;

  /// The identifier, of 28 bits, of the frames that open a sampling frame (0 unless set). Counts from the next
  /// `receive_data` on.
  void set_frame_start_id(unsigned int id);

  /// Opens the character device read-only (O_RDONLY alone: programs started by this one inherit it), and closes the
  /// one open before. Waits for it to appear: up to 120 attempts, half a second apart, so blocks for up to 60 s.
  /// False after that; then no port is open.
  bool open(const std::string& device);

  /// Receives until stopped: poll(2) in slices of 300 ms, one read(2) a frame, one `consume` a complete signal.
  ///
  /// Ends at the first quiet 300 ms after `stop` (the consumer's `on_finish` is called), and at once where no
  /// port is open or poll fails, EINTR included (the log says so; `on_finish` is not called). A port that is
  /// never quiet, one that hung up included, keeps it running. What is half received is lost at its end.
  void receive_data() override;

  /// Asks the loop to end; returns at once, in a signal handler too. Without a running loop the request waits for the
  /// next one.
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
