#pragma once

#include <cstdint>
#include <iomanip>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include "logging/logging.h"

/// How this library logs: one statement for each line.
///
///     log_line<Info>(logger, "TX queue '", path, "' opened (retries: ", failures, ")");
///     log_line<Debug>(logger, "take signal: 0x", Hex{signal.signal_id});
namespace ecu::vorn::ipc {

using Logger = std::shared_ptr<logging::LogModule>;

template <int Value, logging::_internal::LogStream& Stream>
struct LineLevel {
  static constexpr int value = Value;
  static constexpr logging::_internal::LogStream& stream = Stream;
};
using Debug = LineLevel<7, logging::DEBUG>;
using Info = LineLevel<6, logging::INFO>;
using Notice = LineLevel<5, logging::NOTICE>;
using Warning = LineLevel<4, logging::WARNING>;
using Error = LineLevel<3, logging::ERROR>;
using Critical = LineLevel<2, logging::CRITICAL>;

/// A number in lower-case hexadecimal, without prefix. Leaves the stream decimal, because the levels' streams keep
/// their format state from one line to the next. If `Width` is not 0, fills with zeros to this width, and leaves the
/// stream blank-filled.
template <int Width>
struct FilledHex {
  std::uint32_t value;
};
using Hex = FilledHex<0>;

template <int Width>
std::ostream& operator<<(std::ostream& os, const FilledHex<Width>& number) {
  os << std::hex;
  if constexpr (Width == 0) return os << number.value << std::dec;
  return os << std::setfill('0') << std::setw(Width) << number.value << std::dec << std::setfill(' ');
}

/// Asked for each piece, because the log level may be lowered or the module disabled while a line is written.
/// Deliberate: tests the line's level as compiled and ignores the stream's, because the stream may be another logging
/// library's: only its std::ostream is used, and no member of it is read.
template <typename Level>
bool takes_piece() {
  if (Level::value <= logging::_internal::always_written) return true;
  if (logging::get_log_level() < Level::value) return false;
  const Logger module = logging::_internal::LogStreambuf::get_active_module();
  return module != nullptr && logging::_internal::is_enabled(*module);
}

template <typename Level, typename Piece>
void write_piece(std::ostream& line, const Piece& piece) {
  if (takes_piece<Level>()) line << piece;
}

/// Cold, so that it stays out of its callers, and by value, so that they store nothing in memory: a skipped line
/// costs them only the test.
template <typename Level, typename... Pieces>
[[gnu::cold]] void write_line(const Logger& logger, Pieces... pieces) {
  logging::_internal::LogStream& line = Level::stream << logger;
  (write_piece<Level>(line, pieces), ...);
  Level::stream.do_flush();
}

/// The value that stands for a piece; strings are not copied.
template <typename Piece>
Piece by_value(Piece piece) {
  return piece;
}
inline std::string_view by_value(const std::string& text) { return text; }

/// Without the word inline, gcc would call this function for a skipped line.
template <typename Level, typename... Pieces>
inline void log_line(const Logger& logger, const Pieces&... pieces) {
  if (logging::_internal::is_wanted(Level::value, logger)) write_line<Level>(logger, by_value(pieces)...);
}

}  // namespace ecu::vorn::ipc
