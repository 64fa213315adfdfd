#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <utility>

#if defined(DEBUG) || defined(INFO) || defined(NOTICE) || defined(WARNING) || defined(ERROR) || defined(CRITICAL)
#error \
    "logging/logging.h declares objects named DEBUG, INFO, NOTICE, WARNING, ERROR and CRITICAL: a macro has one of these names"
#endif

/// Marks the public names of libkeltlogging; all other names are hidden.
#define KELTLOGGING_EXPORT __attribute__((visibility("default")))

/// Log lines with a level and a named module, from any thread, to one sink.
///
///     const auto log = logging::module("app.door");
///     logging::INFO << log << "opened after " << milliseconds << " ms";
///     logging::INFO.do_flush();
///
/// A line belongs to the thread that begins it: neither the text nor the format state of several threads mixes. Text
/// that is written to a level without a module is lost, and so is a line that is not ended when its thread exits.
/// Writing a line never throws: if there is no memory for it, it is lost. libkeltipc imports these operations by
/// name, so that an application can replace this library (docs/logging.md).
namespace ecu::vorn::logging {

/// A named source of lines. The flag must be the first member, because libkeltipc reads the object's first byte: any
/// value but 0 means enabled.
struct LogModule {
  explicit LogModule(std::string module_name) : name(std::move(module_name)) {}

  std::atomic<bool> enabled{true};  ///< false silences DEBUG, INFO and NOTICE; may be changed at any time
  const std::string name;
};

static_assert(sizeof(std::atomic<bool>) == 1);

/// The module with this name, created on the first call. Null if there is no memory for it, and from another library
/// also if it refuses the name: then nothing is logged for that module. May be called while the program is still
/// being loaded.
KELTLOGGING_EXPORT std::shared_ptr<LogModule> module(const std::string& name);

/// The level up to which lines are written: 7 is DEBUG, 6 INFO (the default), 5 NOTICE. WARNING (4), ERROR (3) and
/// CRITICAL (2) are always written.
KELTLOGGING_EXPORT int get_log_level();
KELTLOGGING_EXPORT void set_log_level(int level);  ///< For all threads.

/// Receives finished lines. `text` has no line end.
using Sink = std::function<void(int level, const std::string& module, const std::string& text)>;

/// Sets the sink for all following lines; an empty function restores `stderr_sink`.
///
/// The sink is called on the thread that ended the line, for one line at a time; other threads that log wait for it.
/// When `set_sink` returns, the previous sink is not running and will not be called again (if `set_sink` was called
/// by a sink: as soon as that sink returns). If there is no memory for it, it throws std::bad_alloc and changes
/// nothing. An exception from a sink loses the line. A line logged inside a sink goes to standard error. A sink must
/// not wait for a thread that logs or forks.
KELTLOGGING_EXPORT void set_sink(Sink sink);

/// The default sink: writes each line to standard error with one write(2), control characters escaped.
///
///     2024-05-04T12:30:01.250Z INFO app.door: opened after 12 ms
KELTLOGGING_EXPORT void stderr_sink(int level, const std::string& module, const std::string& text);

/// Sends lines to the systemd journal: `level` as PRIORITY, `module` as KELT_MODULE, `text` as MESSAGE
/// (sd_journal_send(3)). If no journal is running, the line is lost.
KELTLOGGING_EXPORT void journal_sink(int level, const std::string& module, const std::string& text);

/// What libkeltipc imports besides `module`, `get_log_level` and the six level objects. Applications do not use these
/// names directly; a logging library that replaces this one must define the class members and `operator<<`.
namespace _internal {

/// Lines up to this level value are written whatever the log level and the module's flag; they need only a module.
constexpr int always_written = 4;

/// Reads a byte, not a bool: clang takes a bool from its lowest bit, and other libraries may store more than 0 and 1.
inline bool is_enabled(const LogModule& module) {
  return __atomic_load_n(reinterpret_cast<const unsigned char*>(&module.enabled), __ATOMIC_RELAXED) != 0;
}

inline bool is_wanted(int level, const std::shared_ptr<LogModule>& module) {
  return module != nullptr && (level <= always_written || (level <= get_log_level() && is_enabled(*module)));
}

/// The buffer that collects the pieces of a line.
class LogStreambuf : public std::streambuf {
 public:
  /// The module of the line that the calling thread is writing; null if there is no such line.
  KELTLOGGING_EXPORT static std::shared_ptr<LogModule> get_active_module();
};

/// A level, and a stream for the pieces of a line. The six global objects only name the levels. The pieces of a line
/// go to the stream that `operator<<` returns, which belongs to the calling thread.
class KELTLOGGING_EXPORT LogStream : public std::ostream {
 public:
  explicit LogStream(int level_value);
  ~LogStream() override;

  /// Ends the line that the calling thread began at this level and passes it to the sink. Clears the stream's error
  /// state and preserves `errno`. Does nothing if no line was begun.
  void do_flush();

  int level;
};

/// Begins a line of the calling thread and returns the stream for its pieces. If the thread's last line of that level
/// was not ended, ends it first. A line for a null module is not written.
KELTLOGGING_EXPORT LogStream& operator<<(LogStream& level, const std::shared_ptr<LogModule>& module);

}  // namespace _internal

/// @name The levels
/// A line is written to one of these objects, and ended by its `do_flush`.
/// @{
extern KELTLOGGING_EXPORT _internal::LogStream DEBUG;
extern KELTLOGGING_EXPORT _internal::LogStream INFO;
extern KELTLOGGING_EXPORT _internal::LogStream NOTICE;
extern KELTLOGGING_EXPORT _internal::LogStream WARNING;
extern KELTLOGGING_EXPORT _internal::LogStream ERROR;
extern KELTLOGGING_EXPORT _internal::LogStream CRITICAL;
/// @}

}  // namespace ecu::vorn::logging
