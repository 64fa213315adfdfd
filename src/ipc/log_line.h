#pragma once

#include <cstdint>
#include <iomanip>
#include <memory>
#include <ostream>

#include "logging/logging.h"

/// The one way in which this library logs: a line is one statement.
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

/// A number in lower-case hexadecimal, without prefix; zero-filled to `width` digits. The stream is decimal and
/// blank-filled behind it: the levels' streams keep their format state from one line to the next.
struct Hex {
  std::uint32_t value;
  int width = 0;
};

inline std::ostream& operator<<(std::ostream& os, const Hex& number) {
  return os << std::hex << std::setfill('0') << std::setw(number.width) << number.value << std::dec
            << std::setfill(' ');
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

/// Out of line and cold, so that a line that is skipped costs its call site no more than the test.
template <typename Level, typename... Pieces>
[[gnu::noinline, gnu::cold]] void write_line(const Logger& logger, const Pieces&... pieces) {
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
  write_line<Level>(logger, pieces...);
}

}  // namespace ecu::vorn::ipc
