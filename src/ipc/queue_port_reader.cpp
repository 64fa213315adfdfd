#include "ipc/queue_port_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <utility>

#include "connection_defaults.h"
#include "ipc/signal_processor.h"
#include "log_line.h"
#include "wait_for_device.h"

namespace ecu::vorn::ipc {
namespace {

const Logger logger = logging::module("ipc.queuereader");

constexpr int poll_slice_ms = 300;

}  // namespace

template <std::size_t N, typename Frame>
QueuePortReader<N, Frame>::QueuePortReader(std::unique_ptr<IDataConsumer<IpcSignal>> signal_consumer)
    : QueuePortReader(std::move(signal_consumer), 0) {}

template <std::size_t N, typename Frame>
QueuePortReader<N, Frame>::QueuePortReader(std::unique_ptr<IDataConsumer<IpcSignal>> signal_consumer,
                                           unsigned int start_id)
    : consumer(std::move(signal_consumer)), frame_start_id(start_id), fd(-1), stop_requested(false) {}

template <std::size_t N, typename Frame>
QueuePortReader<N, Frame>::~QueuePortReader() {
  close_port(fd);
}

template <std::size_t N, typename Frame>
void QueuePortReader<N, Frame>::set_consumer(std::unique_ptr<IDataConsumer<IpcSignal>> new_consumer) {
  consumer = std::move(new_consumer);
}

template <std::size_t N, typename Frame>
void QueuePortReader<N, Frame>::set_frame_start_id(unsigned int id) {
  frame_start_id = id;
}

template <std::size_t N, typename Frame>
void QueuePortReader<N, Frame>::stop() {
  stop_requested.store(true, std::memory_order_relaxed);
}

template <std::size_t N, typename Frame>
bool QueuePortReader<N, Frame>::open(const std::string& device) try {
  log_line<Debug>(logger, "Open RX queue '", device, "'");
  if (fd >= 0) {
    // Deliberate: unlike the writer's line, this one names no file, because the reader stores no path.
    log_line<Info>(logger, "associated file already opened, closing it ", "first.");
    close_port(fd);
  }
  const unsigned int failures = wait_for_device(device, O_RDONLY, fd);
  if (fd < 0) {
    log_line<Error>(logger, "Unable to open RX queue '", device, "' after ", failures, " attempts!");
    return false;
  }
  log_line<Info>(logger, "RX queue '", device, "' opened (retries: ", failures, ")");
  return true;
} catch (...) {
  close_port(fd);
  throw;
}

template <std::size_t N, typename Frame>
void QueuePortReader<N, Frame>::receive_data() {
  log_line<Debug>(logger,
                  "Start receiving data (stop: ", stop_requested.load(std::memory_order_relaxed) ? "TRUE" : "FALSE",
                  " frame_start_id: ", Hex{frame_start_id}, ") ");
  if (fd < 0) {
    log_line<Error>(logger, "The rx queue is not open, unable to read IPC data.");
    return;
  }
  SignalProcessor<N, Frame> processor(frame_start_id);
  pollfd port{fd, POLLIN, 0};
  Frame frame{};  // Zeroed: a failed first read must not pass on uninitialised memory.
  bool announce_timeout = true;
  while (true) {
    const int ready = ::poll(&port, 1, poll_slice_ms);
    if (ready < 0) {
      log_line<Error>(logger, "Error while reading the queue");
      return;
    }
    if (ready > 0) {
      receive_frame(processor, frame);
      announce_timeout = true;
      continue;
    }
    if (!goes_on_after_timeout(announce_timeout)) return;
    announce_timeout = false;
  }
}

/// Deliberate: ignores `revents` and the result of `read`. After a failed or short read the processor gets bytes of
/// the previous frame.
template <std::size_t N, typename Frame>
inline void QueuePortReader<N, Frame>::receive_frame(SignalProcessor<N, Frame>& processor, Frame& frame) {
  [[maybe_unused]] const ssize_t unchecked = ::read(fd, &frame, sizeof frame);
  processor.process(std::move(frame));
  if (processor.get_state() != SignalProcessor<N, Frame>::STATE_COMPLETE) {
    log_line<Debug>(logger, "No signal available yet!");
    return;
  }
  hand_over(processor);
}

template <std::size_t N, typename Frame>
inline void QueuePortReader<N, Frame>::hand_over(SignalProcessor<N, Frame>& processor) {
  auto taken = processor.take();
  // Cannot happen, because a complete processor has a signal. Checked all the same; no test can reach the branch.
  if (!taken) {
    log_line<Error>(logger, "Signal was supposed to be available but could not be taken!");  // GCOVR_EXCL_LINE
    return;                                                                                  // GCOVR_EXCL_LINE
  }
  log_line<Debug>(logger, "Consume signal: ", taken->signal_id);
  consumer->consume(std::move(*taken));
}

/// Deliberate: the stop request is checked only here. So frames that wait in the port are delivered first, and a port
/// that is never quiet for 300 ms keeps the loop going.
template <std::size_t N, typename Frame>
bool QueuePortReader<N, Frame>::goes_on_after_timeout(bool announce) {
  if (announce) {
    log_line<Debug>(logger, "Timeout while reading, will retry ", "until stopped ...! ");
    consumer->on_timeout();
  }
  if (!stop_requested.load(std::memory_order_relaxed)) return true;
  stop_requested.store(false, std::memory_order_relaxed);
  log_line<Info>(logger, "Stop reading set, finish/end reader!");
  consumer->on_finish();
  return false;
}

template class QueuePortReader<8>;
template class QueuePortReader<24>;
template class QueuePortReader<4088>;

}  // namespace ecu::vorn::ipc
