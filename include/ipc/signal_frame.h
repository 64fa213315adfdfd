#pragma once

#include <cstddef>
#include <cstdint>

#include "ipc/export.h"

namespace ecu::vorn::ipc {

/// The payload sizes that queuing ports come in: frames of 16, 32 and 4096 bytes, less a header of 8.
constexpr bool is_frame_payload_size(std::size_t n) { return n == 8 || n == 24 || n == 4088; }

/// One message of a queuing port, as raw bytes in host byte order: no magic, version, checksum or padding.
/// docs/frame-format.md has the byte table, the cutting rule and a worked example.
template <std::size_t N>
struct KELTIPC_EXPORT signal_t_dyn {
  static_assert(is_frame_payload_size(N), "queuing ports carry 8, 24 or 4088 payload bytes a frame");

  std::uint32_t signal_id;    ///< bits 0..27 identifier, bits 28..31 status
  std::uint16_t chunk_index;  ///< from 0; receivers do not read it
  std::uint16_t total_size;   ///< bytes of the whole signal, the same in each of its frames
  char data[N];               ///< the chunk, from the first byte on; what follows the signal's end means nothing
};

static_assert(sizeof(signal_t_dyn<8>) == 16 && sizeof(signal_t_dyn<24>) == 32 && sizeof(signal_t_dyn<4088>) == 4096);
static_assert(offsetof(signal_t_dyn<8>, data) == 8, "the header has 8 bytes");

}  // namespace ecu::vorn::ipc
