#pragma once

#include <optional>
#include <string>

#include "frame.h"

namespace keltipc {

/// Compares each frame with the one before it, for the marks of `dump --frames`. What the processor makes of a fault
/// is another matter: it counts bytes, and takes those of the next signal for what is missing.
class FrameOrder {
 public:
  explicit FrameOrder(std::size_t frame_bytes) : payload_size(frame_bytes - header_size) {}

  /// The mark of a frame that is not a start frame; empty if it is in its place.
  std::string check(const Frame& frame);

  /// The mark of a start frame.
  std::string check_start(const Frame& frame);

 private:
  /// The signal of which the last frame was a part.
  struct Sequence {
    std::uint32_t id;
    std::uint16_t total_size;
    std::uint16_t chunk;
  };

  bool is_within_signal() const;
  std::string check_next_chunk(const Frame& frame);

  std::size_t payload_size;
  std::optional<Sequence> last;
};

}  // namespace keltipc
