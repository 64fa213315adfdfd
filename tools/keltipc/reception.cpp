#include "reception.h"

#include <cstring>
#include <memory>

#include "escape.h"
#include "hex.h"
#include "ipc/signal_processor.h"
#include "port_setup.h"
#include "signal_text.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::IpcSignal;

constexpr std::size_t header_size = 8;

template <std::size_t N>
Reception::Processor make_processor(std::uint32_t start_id) {
  const auto processor = std::make_shared<ecu::vorn::ipc::SignalProcessor<N>>(start_id);
  return [processor](const char* bytes) -> std::optional<IpcSignal> {
    ecu::vorn::ipc::signal_t_dyn<N> frame;
    std::memcpy(&frame, bytes, sizeof frame);
    processor->process(std::move(frame));
    if (processor->get_state() != processor->STATE_COMPLETE) return std::nullopt;
    return processor->take();
  };
}

Reception::Processor make_processor(std::size_t frame_bytes, std::uint32_t start_id) {
  return with_payload_size(frame_bytes, [&](auto n) { return make_processor<n>(start_id); });
}

std::string counted(std::uint64_t number, const char* one, const char* more) {
  return std::to_string(number) + " " + (number == 1 ? one : more);
}

}  // namespace

Reception::Reception(std::size_t frame_bytes, std::uint32_t frame_start_id)
    : frame_size(frame_bytes), start_id(frame_start_id), process(make_processor(frame_bytes, frame_start_id)) {}

void Reception::restart() {
  give_up_signal();
  process = make_processor(frame_size, start_id);
  has_started = false;
  in_doubt = false;
}

std::optional<IpcSignal> Reception::take(const char* bytes, std::size_t size) {
  if (size < frame_size) {
    current = {};
    current.is_short = true;
    current.payload.assign(bytes, bytes + size);
    current.mark = note_short(size);
    return std::nullopt;
  }
  parse(bytes);
  ++count.frames;
  current.mark = check();
  std::optional<IpcSignal> signal = process(bytes);
  if (signal) {
    ++count.signals;
    count.bytes += signal->data.size();
    if (in_doubt) ++count.doubtful;
  } else if (in_doubt && current.mark.empty() && has_come_whole()) {
    ++count.swallowed;
  }
  return signal;
}

void Reception::parse(const char* bytes) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  std::memcpy(&current.chunk, bytes + 4, sizeof current.chunk);
  std::memcpy(&current.total_size, bytes + 6, sizeof current.total_size);
  current.is_short = false;
  current.id = word & id_limit;
  current.status = static_cast<std::uint8_t>(word >> status_shift);
  current.payload.assign(bytes + header_size, bytes + frame_size);
}

std::string Reception::note_short(std::size_t size) {
  ++count.short_messages;
  const std::string given = std::to_string(size);
  short_message = "read gave " + given + " of " + std::to_string(frame_size) + " bytes";
  if (size == 16 || size == 32) short_message += ": --frame " + given + "?";
  return "short message: " + short_message;
}

std::string Reception::check() {
  if (current.id == start_id) {
    std::uint64_t stamp = 0;
    std::memcpy(&stamp, current.payload.data(), sizeof stamp);
    return check_start(stamp);
  }
  if (!has_started) {
    ++count.before_start;
    return "before the first start frame";
  }
  std::string mark = check_place();
  if (!mark.empty()) in_doubt = true;
  return mark;
}

std::string Reception::check_start(std::uint64_t stamp) {
  ++count.starts;
  std::string mark = "start of sampling frame " + to_hex(stamp);
  if (is_within_signal()) mark += ", within signal " + to_hex(last->id);
  give_up_signal();
  has_started = true;
  in_doubt = false;
  return mark;
}

bool Reception::is_within_signal() const {
  if (!last) return false;
  const std::size_t bytes_so_far = (last->chunk + std::size_t{1}) * (frame_size - header_size);
  return bytes_so_far < last->total_size;
}

bool Reception::has_come_whole() const { return last && last->is_whole_so_far && !is_within_signal(); }

/// Each signal counts once, whatever else is wrong with it.
void Reception::give_up_signal() {
  if (is_within_signal() && last->is_whole_so_far) ++count.incomplete;
  last.reset();
}

void Reception::begin_signal() {
  give_up_signal();
  last = {current.id, current.total_size, current.chunk, current.chunk == 0};
}

/// The order on the wire, by chunk index. What the processor makes of a signal with a fault is another matter: it
/// counts bytes, and takes those of the next signal for what is missing.
std::string Reception::check_place() {
  if (!is_within_signal()) return check_first_chunk();
  if (current.id == last->id && current.total_size == last->total_size) return check_next_chunk();
  ++count.mixed;
  std::string mark = current.id != last->id ? "within signal " + to_hex(last->id)
                                            : "total size " + std::to_string(current.total_size) + " after " +
                                                  std::to_string(last->total_size);
  begin_signal();
  return mark;
}

std::string Reception::check_first_chunk() {
  const bool is_repeat = last && current.chunk != 0 && current.chunk == last->chunk && current.id == last->id &&
                         current.total_size == last->total_size;
  if (is_repeat) return check_next_chunk();
  begin_signal();
  if (current.chunk == 0) return {};
  ++count.gaps;
  ++count.incomplete;
  return "gap: begins with chunk " + std::to_string(current.chunk);
}

std::string Reception::check_next_chunk() {
  const std::string chunk = "chunk " + std::to_string(current.chunk);
  const std::string after = " after " + std::to_string(last->chunk);
  if (current.chunk == last->chunk) {
    ++count.repeats;
    return "repeat: " + chunk + " again";
  }
  if (current.chunk < last->chunk) {
    ++count.steps_back;
    begin_signal();
    return "step back: " + chunk + after;
  }
  const bool is_gap = current.chunk != last->chunk + 1;
  if (is_gap) {
    ++count.gaps;
    if (last->is_whole_so_far) ++count.incomplete;
    last->is_whole_so_far = false;
  }
  last->chunk = current.chunk;
  return is_gap ? "gap: " + chunk + after : "";
}

std::vector<std::string> Reception::summary(const std::string& device) const {
  std::vector<std::string> sentences;
  std::string came = counted(count.signals, "signal", "signals");
  if (count.frames == 0) {
    came += ": no frame came from " + quote(device);
  } else if (count.starts == 0) {
    came += " from " + counted(count.frames, "frame", "frames") + ": no start frame (identifier " + to_hex(start_id) +
            ") came; see --frame-start and --frame";
  } else {
    came += " (" + counted(count.bytes, "byte", "bytes") + ") from " + counted(count.frames, "frame", "frames") +
            " in " + counted(count.starts, "sampling frame", "sampling frames");
    // Frames of another size keep their order: where some are missing, that is the likelier reason.
    const bool has_fault = count.incomplete + count.repeats != 0 && count.gaps == 0;
    if (has_fault && count.signals == count.doubtful) came += "; see --frame";
  }
  sentences.push_back(came);
  if (const std::string wrong = faults(); !wrong.empty()) sentences.push_back("lost or wrong: " + wrong);
  return sentences;
}

std::string Reception::faults() const {
  std::string text;
  const auto add = [&text](std::uint64_t number, const char* one, const char* more) {
    if (number != 0) text += (text.empty() ? "" : ", ") + counted(number, one, more);
  };
  if (count.starts != 0) {
    add(count.before_start, "frame before the first start frame", "frames before the first start frame");
  }
  add(count.incomplete, "incomplete signal", "incomplete signals");
  add(count.gaps, "gap", "gaps");
  add(count.repeats, "repeat", "repeats");
  add(count.steps_back, "step back", "steps back");
  add(count.mixed, "frame within another signal", "frames within another signal");
  add(count.short_messages, "short message", "short messages");
  if (count.short_messages != 0) text += " (" + short_message + ")";
  add(count.swallowed, "whole signal taken for missing bytes", "whole signals taken for missing bytes");
  add(count.doubtful, "doubtful signal (after a fault, before the next start frame)",
      "doubtful signals (after a fault, before the next start frame)");
  return text;
}

}  // namespace keltipc
