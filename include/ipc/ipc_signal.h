#pragma once

#include <cstdint>
#include <iosfwd>
#include <vector>

#include "ipc/export.h"

namespace ecu::vorn::ipc {

/// A signal: an identifier and up to 65535 bytes, sent and received through a queuing port.
///
/// A plain value: it can be copied, moved and initialised as an aggregate.
struct KELTIPC_EXPORT IpcSignal {
  /// Sending: all 32 bits are sent. Received: the low 28 bits.
  std::uint32_t signal_id = 0;
  /// Received: the top four bits of the first word of the signal's last frame, 0..15. Ignored when sending.
  std::uint8_t status = 0;
  /// Received: the stamp of the sampling frame to which the signal belongs. Ignored when sending.
  std::uint64_t sampling_frame = 0;
  std::vector<char> data;
};

/// Prints the signal on one line without a line end, in hexadecimal: "ID: STATUS, STAMP { BYTE BYTE }".
///
///     {0x5a,  1,  0x1f, {0x0a, 0xff}}  ->  5a: 01, 1f { 0a ff }
///     {7,     0,  0,    {}}            ->  07: 00, 0 { }
///
/// Deliberate: leaves the stream decimal with a blank fill, whatever its format was before.
KELTIPC_EXPORT std::ostream& operator<<(std::ostream& os, const IpcSignal& signal);

#if defined(__arm__)
static_assert(sizeof(IpcSignal) == 32, "part of the binary interface on 32-bit ARM");
#endif

}  // namespace ecu::vorn::ipc
