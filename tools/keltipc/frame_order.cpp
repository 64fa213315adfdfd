#include "frame_order.h"

#include "hex.h"

namespace keltipc {

std::string FrameOrder::check_start(const Frame& frame) {
  std::uint64_t stamp = 0;
  std::memcpy(&stamp, frame.payload.data(), sizeof stamp);
  std::string mark = "start of sampling frame " + to_hex(stamp);
  if (is_within_signal()) mark += ", within signal " + to_hex(last->id);
  last.reset();
  return mark;
}

bool FrameOrder::is_within_signal() const {
  return last && (last->chunk + std::size_t{1}) * payload_size < last->total_size;
}

std::string FrameOrder::check(const Frame& frame) {
  const bool is_within = is_within_signal();
  const bool is_alike = last && frame.id == last->id && frame.total_size == last->total_size;
  if (is_alike && (is_within || (frame.chunk != 0 && frame.chunk == last->chunk))) return check_next_chunk(frame);
  const Sequence before = last.value_or(Sequence{});
  last = {frame.id, frame.total_size, frame.chunk};
  if (!is_within) return frame.chunk == 0 ? "" : "gap: begins with chunk " + std::to_string(frame.chunk);
  if (frame.id != before.id) return "within signal " + to_hex(before.id);
  return "total size " + std::to_string(frame.total_size) + " after " + std::to_string(before.total_size);
}

std::string FrameOrder::check_next_chunk(const Frame& frame) {
  const int before = last->chunk;
  last->chunk = frame.chunk;
  if (frame.chunk == before + 1) return {};
  const std::string chunk = "chunk " + std::to_string(frame.chunk);
  if (frame.chunk == before) return "repeat: " + chunk + " again";
  return (frame.chunk < before ? "step back: " : "gap: ") + chunk + " after " + std::to_string(before);
}

}  // namespace keltipc
