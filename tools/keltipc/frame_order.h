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
  bool is_within_signal() const;

  std::size_t payload_size;
  std::optional<SignalPart> last;  ///< of the frame before
};

}  // namespace keltipc
