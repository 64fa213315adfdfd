#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ipc/ipc_signal.h"

// Signals, start frames and filters as the user writes them.
namespace keltipc {

/// Received identifiers have 28 bits; the four above them are the status.
constexpr std::uint32_t id_limit = 0x0FFFFFFF;
constexpr unsigned int status_shift = 28;

/// A signal as the user writes it for `send`: its payload, or the file that holds it.
struct SignalText {
  std::uint32_t word;  ///< all 32 bits of the first word: status and identifier
  std::vector<char> payload;
  std::string file;
};

/// Throws InputError.
///
///     5a#0aff       ->  word 5a, payload 0a ff
///     1000005A#0a.ff 01  ->  word 1000005a (status 1), payload 0a ff 01
///     7#            ->  word 7, no payload
///     7#@frame.bin  ->  word 7, payload in the file frame.bin
SignalText parse_signal_text(std::string_view text);

/// A sampling frame: the identifier that opens it, of 28 bits, and its stamp.
struct FrameStart {
  std::uint32_t id;
  std::uint64_t stamp;
};

/// "10=1f" -> {0x10, 0x1f}. Throws InputError.
FrameStart parse_frame_start(std::string_view text);

/// "10" -> 0x10. Throws InputError.
std::uint32_t parse_frame_start_id(std::string_view text);

/// The signal that opens a sampling frame: 8 bytes, which are the stamp in host byte order.
ecu::vorn::ipc::IpcSignal start_signal(const FrameStart& start);

struct Filter {
  std::uint32_t id;
  std::uint32_t mask;
  bool keeps;  ///< "ID:MASK" keeps signals whose identifier matches under the mask, "ID~MASK" drops them
};

/// Whether a signal passes: it must match one of the filters that keep, if there are any, and none that drop. They
/// see the status above the 28 bits of the identifier, as on the wire.
bool passes(const std::vector<Filter>& filters, std::uint32_t id, std::uint8_t status);

struct FilteredDevice {
  std::string device;
  std::vector<Filter> filters;
};

/// Parses what `dump` reads from. Everything after the first comma is a filter, so the path itself cannot contain
/// one. Throws InputError.
///
///     /dev/qp0              ->  all of /dev/qp0
///     /dev/qp0,5:f,100~7f0  ->  identifiers that end in 5, but none from 100 to 10f
///     /dev/qp0,10000000:f0000000  ->  status 1
FilteredDevice parse_filtered_device(std::string_view text);

}  // namespace keltipc
