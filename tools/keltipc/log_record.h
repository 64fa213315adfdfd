#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "ipc/ipc_signal.h"

namespace keltipc {

/// A line of a log: a signal as it came, or what was lost or wrong at that place.
struct LogRecord {
  std::chrono::microseconds time;  ///< since 1970, UTC
  std::string device;
  ecu::vorn::ipc::IpcSignal signal;
  std::string fault;  ///< not empty: there is no signal
};

/// The line, without its end, that `dump` writes and `send --replay` takes back; see escape_word for the device.
///
///     signal 5a with status 1 and bytes 0a ff, received from /dev/qp0 in the sampling frame 1f
///         ->  (1735270496.916858) /dev/qp0 5a:1:1f#0aff
///     the fault "gap: chunk 3 after 1"
///         ->  # (1735270496.916858) /dev/qp0 lost or wrong: gap: chunk 3 after 1
std::string to_log_line(const LogRecord& record);

/// Whether parse_log_line takes this line for a fault. Other lines that begin with # are comments.
bool is_fault_line(std::string_view line);

/// Parses what to_log_line or to_json_line wrote. Throws InputError. Seconds have up to 32 bits, microseconds six
/// digits.
LogRecord parse_log_line(std::string_view line);

/// The same as a JSON object. Numbers of 28 and 64 bits are strings in hexadecimal, as in all of this tool's text.
///
///     {"time":1735270496.916858,"device":"/dev/qp0","id":"5a","status":1,"sampling_frame":"1f","length":2,"data":"0aff"}
///     {"time":1735270496.916858,"device":"/dev/qp0","fault":"gap: chunk 3 after 1"}
std::string to_json_line(const LogRecord& record);

/// "lost or wrong: gap: chunk 3 after 1"
std::string fault_text(const std::string& fault);

/// 1735270496.916858
std::string seconds_text(std::chrono::microseconds time);

/// The other way round: seconds of up to 32 bits, and six digits after the dot. Throws InputError.
std::chrono::microseconds parse_seconds(std::string_view text);

/// 2024-12-27T03:34:56.916858Z
std::string utc_text(std::chrono::microseconds time);

}  // namespace keltipc
