#pragma once

#include <cstddef>
#include <cstdint>

#include "ipc/export.h"

namespace ecu::vorn::ipc {

/// True for the payload sizes of queuing ports: frames of 16, 32 and 4096 bytes, minus a header of 8.
constexpr bool is_frame_payload_size(std::size_t n) { return n == 8 || n == 24 || n == 4088; }

/// One frame, which is one message of a queuing port, as raw bytes in host byte order. docs/frame-format.md says how
/// signals are cut into frames, with an example.
template <std::size_t N>
struct KELTIPC_EXPORT signal_t_dyn {
  static_assert(is_frame_payload_size(N), "queuing ports carry 8, 24 or 4088 payload bytes a frame");

  std::uint32_t signal_id;    ///< bits 0..27 identifier, bits 28..31 status
  std::uint16_t chunk_index;  ///< from 0; not read by the receiver
  std::uint16_t total_size;   ///< number of bytes of the whole signal, the same in each of its frames
  char data[N];               ///< the chunk; bytes after the end of the signal have no meaning
};

static_assert(sizeof(signal_t_dyn<8>) == 16 && sizeof(signal_t_dyn<24>) == 32 && sizeof(signal_t_dyn<4088>) == 4096);
static_assert(offsetof(signal_t_dyn<8>, data) == 8, "the header has 8 bytes");

}  // namespace ecu::vorn::ipc
