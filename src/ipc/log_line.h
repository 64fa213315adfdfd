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

/// The levels of lines. Lines of a level value up to `always_written` ask for nothing but a logger.
constexpr int always_written = 4;

struct Debug {
  static constexpr int value = 7;
  static logging::_internal::LogStream& stream() { return logging::DEBUG; }
};
struct Info {
  static constexpr int value = 6;
  static logging::_internal::LogStream& stream() { return logging::INFO; }
};
struct Notice {
  static constexpr int value = 5;
  static logging::_internal::LogStream& stream() { return logging::NOTICE; }
};
struct Warning {
  static constexpr int value = 4;
  static logging::_internal::LogStream& stream() { return logging::WARNING; }
};
struct Error {
  static constexpr int value = 3;
  static logging::_internal::LogStream& stream() { return logging::ERROR; }
};
struct Critical {
  static constexpr int value = 2;
  static logging::_internal::LogStream& stream() { return logging::CRITICAL; }
};

/// A number in lower-case hexadecimal, without prefix; zero-filled to `Width` digits. The stream is decimal and
/// blank-filled behind it: the levels' streams keep their format state from one line to the next.
template <int Width>
struct FilledHex {
  std::uint32_t value;
};
using Hex = FilledHex<0>;

template <int Width>
std::ostream& operator<<(std::ostream& os, const FilledHex<Width>& number) {
  return os << std::hex << std::setfill('0') << std::setw(Width) << number.value << std::dec << std::setfill(' ');
}

/// The level may go down and the module be switched off while a line is written: each piece is tested anew.
inline bool takes_piece(const logging::_internal::LogStream& line) {
  if (line.level <= always_written) return true;
  if (line.level > logging::get_log_level()) return false;
  const Logger module = logging::_internal::LogStreambuf::get_active_module();
  return module != nullptr && module->enabled;
}

template <typename Piece>
void write_piece(logging::_internal::LogStream& line, const Piece& piece) {
  if (takes_piece(line)) static_cast<std::ostream&>(line) << piece;
}

/// By value: a reference would make the caller spill the number even for a skipped line.
template <typename Piece>
using Passed =
    std::conditional_t<std::is_trivially_copyable_v<Piece> && !std::is_array_v<Piece>, Piece, const Piece&>;

/// Out of line and cold, so that a skipped line costs the caller only the test.
template <typename Level, typename... Pieces>
[[gnu::noinline, gnu::cold]] void write_line(const Logger& logger, Passed<Pieces>... pieces) {
  logging::_internal::LogStream& line = Level::stream() << logger;
  (write_piece(line, pieces), ...);
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
