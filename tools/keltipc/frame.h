#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "signal_text.h"

namespace keltipc {

constexpr std::size_t header_size = 8;

/// Of which signal a frame is a part, and which part.
struct SignalPart {
  std::uint32_t id = 0;
  std::uint16_t total_size = 0;
  std::uint16_t chunk = 0;

  /// Whether both may be parts of the same signal.
  bool has_signal_of(const SignalPart& other) const { return id == other.id && total_size == other.total_size; }
};

/// "chunk 3 after 1", or "chunk 3 again"
inline std::string chunk_text(unsigned int chunk, unsigned int before) {
  return "chunk " + std::to_string(chunk) + (chunk == before ? " again" : " after " + std::to_string(before));
}

/// One message of a port.
struct Frame : SignalPart {
  const SignalPart& part() const { return *this; }

  bool is_short = false;  ///< less than a frame: all of it is in `payload`
  std::uint8_t status = 0;
  std::vector<char> payload;
  std::string mark;  ///< what is special or wrong about it; usually empty
};

/// Takes the fields from a whole frame. The mark is left empty.
inline void parse_frame(Frame& frame, const char* bytes, std::size_t size) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  std::memcpy(&frame.chunk, bytes + 4, sizeof frame.chunk);
  std::memcpy(&frame.total_size, bytes + 6, sizeof frame.total_size);
  frame.is_short = false;
  frame.id = word & id_limit;
  frame.status = static_cast<std::uint8_t>(word >> status_shift);
  frame.payload.assign(bytes + header_size, bytes + size);
  frame.mark.clear();
}

}  // namespace keltipc
