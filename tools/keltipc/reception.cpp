#include "reception.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

#include "counted.h"
#include "escape.h"
#include "hex.h"
#include "ipc/signal_processor.h"
#include "port_setup.h"
#include "say.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::IpcSignal;

/// The library's processor with a bound on what it holds. After a lost frame it can hold more bytes than any frame
/// asks for. Nothing can be completed then before the next start frame (or before 4 GiB have come, when the count
/// overflows), so further frames are not added.
template <std::size_t N>
class BoundedProcessor {
 public:
  explicit BoundedProcessor(std::uint32_t id) : start_id(id), processor(id) {}

  std::optional<IpcSignal> take(const char* bytes) {
    ecu::vorn::ipc::signal_t_dyn<N> frame;
    std::memcpy(&frame, bytes, sizeof frame);
    const bool is_start = (frame.signal_id & id_limit) == start_id;
    if (is_start) held = 0;
    if (held > std::numeric_limits<std::uint16_t>::max()) return std::nullopt;
    const std::uint32_t missing = frame.total_size - held;
    processor.process(std::move(frame));
    if (!is_start && processor.get_state() != processor.STATE_IDLE) held += std::min(missing, std::uint32_t{N});
    if (processor.get_state() != processor.STATE_COMPLETE) return std::nullopt;
    held = 0;
    return processor.take();
  }

 private:
  std::uint32_t start_id;
  ecu::vorn::ipc::SignalProcessor<N> processor;
  std::uint32_t held = 0;
};

Reception::Processor make_processor(std::size_t frame_bytes, std::uint32_t start_id) {
  return with_payload_size(frame_bytes, [start_id](auto n) -> Reception::Processor {
    auto processor = std::make_shared<BoundedProcessor<n>>(start_id);
    return [processor](const char* bytes) { return processor->take(bytes); };
  });
}

}  // namespace

Reception::Reception(std::size_t frame_bytes, std::uint32_t frame_start_id, std::vector<Filter> signal_filters)
    : frame_size(frame_bytes),
      start_id(frame_start_id),
      filters(std::move(signal_filters)),
      process(make_processor(frame_bytes, frame_start_id)),
      order(frame_bytes),
      losses(frame_bytes) {}

void Reception::end() { losses.cut_off("cut off"); }

void Reception::restart() {
  end();
  losses.forget();
  order = FrameOrder(frame_size);
  before.clear();
  process = make_processor(frame_size, start_id);
  has_started = false;
  is_early = false;
}

std::optional<IpcSignal> Reception::take(const char* bytes, std::size_t size) {
  const bool is_copy = std::equal(before.begin(), before.end(), bytes, bytes + size);
  before.assign(bytes, bytes + size);
  if (size < frame_size) {
    note_wrong_size(bytes, size);
    return std::nullopt;
  }
  parse_frame(current, bytes, size);
  ++count.frames;
  std::optional<IpcSignal> signal = process(bytes);
  if (current.id == start_id) {
    note_start();
  } else if (!has_started) {
    note_early();
  } else {
    note_data(is_copy, signal.has_value());
  }
  if (!signal || !passes_filters(signal->signal_id, signal->status)) return std::nullopt;
  ++count.signals;
  count.bytes += signal->data.size();
  return signal;
}

void Reception::note_wrong_size(const char* bytes, std::size_t size) {
  ++count.wrong_size;
  const std::string given = std::to_string(size);
  wrong_size = "read gave " + given + " of " + std::to_string(frame_size) + " bytes";
  if (size == 16 || size == 32) wrong_size += ": --frame " + given + "?";
  losses.note("message of a wrong size: " + wrong_size);
  current = {};
  current.is_short = true;
  current.payload.assign(bytes, bytes + size);
  current.mark = "short message: " + wrong_size;
}

void Reception::note_start() {
  ++count.starts;
  has_started = true;
  losses.cut_off("incomplete");
  current.mark = order.check_start(current);
}

void Reception::note_early() {
  current.mark = "before the first start frame";
  if (!passes_filters(current.id, current.status)) return;
  ++count.early;
  if (!std::exchange(is_early, true)) losses.note("frames before the first start frame");
}

void Reception::note_data(bool is_copy, bool completes) {
  current.mark = order.check(current);
  if (current.mark.empty()) ++count.in_place;
  if (!passes_filters(current.id, current.status)) return losses.add_filtered(completes);
  if (!current.mark.empty() && !is_copy) ++count.misplaced;
  losses.add(current, is_copy, completes);
}

std::string Reception::report(const std::string& device) const {
  std::string came = counted(count.signals, "signal", "signals");
  const std::string frames = " from " + counted(count.frames, "frame", "frames");
  if (count.frames == 0) {
    came += ": no frame came from " + quote(device);
  } else if (count.starts == 0) {
    came += frames + ": no start frame (identifier " + to_hex(start_id) + ") came; see --frame-start and --frame";
  } else {
    came += " (" + counted(count.bytes, "byte", "bytes") + ")" + frames + " in " +
            counted(count.starts, "sampling frame", "sampling frames");
  }
  const bool has_data = count.frames + count.wrong_size != count.starts;
  if (has_data && count.in_place == 0 && (count.starts != 0 || count.frames == 0)) came += "; see --frame";
  const std::string wrong = faults();
  return error_line(came) + (wrong.empty() ? "" : error_line("lost or wrong: " + wrong));
}

std::string Reception::faults() const {
  const LossDetector::Counts& loss = losses.counts();
  std::string detail;
  const auto add = [&detail](std::uint64_t number, const char* one, const char* more) {
    if (number != 0) detail += (detail.empty() ? "; " : ", ") + counted(number, one, more);
  };
  const std::uint64_t wrong = count.signals - std::min(count.signals, loss.whole);
  add(wrong, "signal put together wrong", "signals put together wrong");
  add(count.misplaced, "frame out of place", "frames out of place");
  add(loss.repetitions, "repetition", "repetitions");
  if (count.starts != 0)
    add(count.early, "frame before the first start frame", "frames before the first start frame");
  add(count.wrong_size, "message of a wrong size", "messages of a wrong size");
  if (count.wrong_size != 0) detail += " (" + wrong_size + ")";
  if (loss.lost == 0 && detail.empty()) return {};
  return counted(loss.lost, "signal", "signals") + detail;
}

}  // namespace keltipc
