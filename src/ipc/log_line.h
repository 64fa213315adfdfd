#pragma once

#include <cstdint>
#include <iomanip>
#include <memory>
#include <ostream>
#include <type_traits>

#include "logging/logging.h"

/// How this library logs: one statement for each line.
///
///     log_line<Info>(logger, "TX queue '", path, "' opened (retries: ", failures, ")");
///     log_line<Debug>(logger, "take signal: 0x", Hex{signal.signal_id});
namespace ecu::vorn::ipc {

using Logger = std::shared_ptr<logging::LogModule>;

/// Lines up to this level value are written whatever the log level and the module's flag; they need only a logger.
constexpr int always_written = 4;

template <int Value, logging::_internal::LogStream& Stream>
struct LineLevel {
  static constexpr int value = Value;
  static logging::_internal::LogStream& stream() { return Stream; }
};
using Debug = LineLevel<7, logging::DEBUG>;
using Info = LineLevel<6, logging::INFO>;
using Notice = LineLevel<5, logging::NOTICE>;
using Warning = LineLevel<4, logging::WARNING>;
using Error = LineLevel<3, logging::ERROR>;
using Critical = LineLevel<2, logging::CRITICAL>;

/// A number in lower-case hexadecimal, without prefix; zero-filled to `Width` digits if that is not 0. Leaves the
/// stream decimal and blank-filled: the levels' streams keep their format state from one line to the next.
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
inline bool takes_piece() {
  if constexpr (Level::value <= always_written) return true;
  if (logging::get_log_level() < Level::value) return false;
  const Logger module = logging::_internal::LogStreambuf::get_active_module();
  return module != nullptr && module->enabled;
}

template <typename Level, typename Piece>
void write_piece(logging::_internal::LogStream& line, const Piece& piece) {
  if (takes_piece<Level>()) static_cast<std::ostream&>(line) << piece;
}

/// By value: a reference would make the caller spill the number even for a skipped line.
template <typename Piece>
using Passed =
    std::conditional_t<std::is_trivially_copyable_v<Piece> && !std::is_array_v<Piece>, Piece, const Piece&>;

/// Out of line and cold, so that a skipped line costs the caller only the test.
template <typename Level, typename... Pieces>
[[gnu::noinline, gnu::cold]] void write_line(const Logger& logger, Passed<Pieces>... pieces) {
  logging::_internal::LogStream& line = Level::stream() << logger;
  (write_piece<Level>(line, pieces), ...);
  Level::stream().do_flush();
}

template <typename Level, typename... Pieces>
inline void log_line(const Logger& logger, const Pieces&... pieces) {
  if (logger == nullptr) return;
  if constexpr (Level::value > always_written) {
    if (logging::get_log_level() < Level::value || !logger->enabled) return;
  }
  write_line<Level, Pieces...>(logger, pieces...);
}

}  // namespace ecu::vorn::ipc
