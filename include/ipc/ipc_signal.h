#pragma once

#include <cstdint>
#include <iosfwd>
#include <vector>

#include "ipc/export.h"

namespace ecu::vorn::ipc {

/// What travels through a queuing port: an identifier and up to 65535 bytes.
///
/// A plain value: copy it, move it (moving takes the bytes along), fill it as an aggregate.
struct KELTIPC_EXPORT IpcSignal {
  /// Sending: all 32 bits go out as they are. Received: the low 28 bits.
  std::uint32_t signal_id;
  /// Received: the top four bits of the last frame's first word, 0..15. Never sent as such.
  std::uint8_t status;
  /// Received: the stamp of the sampling frame in which the signal came. Never sent.
  std::uint64_t sampling_frame;
  std::vector<char> data;
};

/// Prints the signal on one line without a line end, in hexadecimal: "ID: STATUS, STAMP { BYTE BYTE }".
///
///     {0x5a,  1,  0x1f, {0x0a, 0xff}}  ->  5a: 01, 1f { 0a ff }
///     {7,     0,  0,    {}}            ->  07: 00, 0 { }
///
/// Deliberate: leaves the stream in decimal with a blank fill, whatever it had before.
KELTIPC_EXPORT std::ostream& operator<<(std::ostream& os, const IpcSignal& signal);

#if defined(__arm__)
static_assert(sizeof(IpcSignal) == 32, "part of the binary interface on 32-bit ARM");
#endif

}  // namespace ecu::vorn::ipc
