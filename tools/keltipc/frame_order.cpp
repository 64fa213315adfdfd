#include "frame_order.h"

#include "hex.h"

namespace keltipc {
namespace {

std::string check_next_chunk(unsigned int chunk, unsigned int before) {
  if (chunk == before + 1) return {};
  return (chunk == before ? "repeat: " : chunk < before ? "step back: " : "gap: ") + chunk_text(chunk, before);
}

}  // namespace

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
  const SignalPart before = last.value_or(SignalPart{});
  const bool may_continue = is_within || (last && frame.chunk != 0 && frame.chunk == before.chunk);
  last = frame.part();
  if (may_continue && frame.has_signal_of(before)) return check_next_chunk(frame.chunk, before.chunk);
  if (!is_within) return frame.chunk == 0 ? "" : "gap: begins with chunk " + std::to_string(frame.chunk);
  if (frame.id != before.id) return "within signal " + to_hex(before.id);
  return "total size " + std::to_string(frame.total_size) + " after " + std::to_string(before.total_size);
}

}  // namespace keltipc
