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

/// Marks what libkeltlogging offers; everything else in it is hidden.
#define KELTLOGGING_EXPORT __attribute__((visibility("default")))

/// Log lines with a level and a named module, from any thread, to one output.
///
///     const auto log = logging::module("app.door");
///     logging::INFO << log << "opened after " << milliseconds << " ms";
///     logging::INFO.do_flush();
///
/// A line belongs to the thread that begins it: lines of several threads never mix, and neither do their format
/// states. libkeltipc imports these operations by name, so an application may bring another library that has them.
namespace ecu::vorn::logging {

/// A named source of lines. The flag comes first: libkeltipc reads it as the object's first byte.
struct LogModule {
  explicit LogModule(std::string module_name) : name(std::move(module_name)) {}

  std::atomic<bool> enabled{true};  ///< false silences DEBUG, INFO and NOTICE; change it at any time
  const std::string name;
};

static_assert(sizeof(std::atomic<bool>) == 1);

/// The module of that name: one object a name, made when first asked for. Never null here; another logging library
/// may return null, and then nothing is logged. Safe while the program is still being loaded.
KELTLOGGING_EXPORT std::shared_ptr<LogModule> module(const std::string& name);

/// The level up to which lines are written: 7 is DEBUG, 6 (the value at start) INFO, 5 NOTICE. WARNING (4), ERROR (3)
/// and CRITICAL (2) are written at any level.
KELTLOGGING_EXPORT int get_log_level();
KELTLOGGING_EXPORT void set_log_level(int level);

/// What takes finished lines. `text` has no line end.
using Sink = std::function<void(int level, const std::string& module, const std::string& text)>;

/// Where lines go from now on; an empty function brings `stderr_sink` back.
///
/// The sink is called on the thread that ended the line, one call at a time over all threads: what it takes, the
/// others wait. When `set_sink` returns, the sink before is no longer running and will not be called again (from
/// within a sink: once that call is over). A sink that throws loses the line. What is logged inside a sink goes to
/// standard error. A sink must not wait for a thread that logs or forks.
KELTLOGGING_EXPORT void set_sink(Sink sink);

/// The sink at start: one write(2) a line to standard error, control characters escaped.
///
///     2024-05-04T12:30:01.250Z INFO app.door: opened after 12 ms
KELTLOGGING_EXPORT void stderr_sink(int level, const std::string& module, const std::string& text);

/// To the systemd journal: `level` as PRIORITY, `module` as KELT_MODULE, `text` as MESSAGE (sd_journal_send(3)).
/// Where no journal runs, the line is lost and nothing else happens.
KELTLOGGING_EXPORT void journal_sink(int level, const std::string& module, const std::string& text);

namespace _internal {

class LogStreambuf : public std::streambuf {
 public:
  /// The module of the line that the calling thread is writing; null where there is none.
  KELTLOGGING_EXPORT static std::shared_ptr<LogModule> get_active_module();
};

/// Names a level, and takes the pieces of a line. Each of the six global objects names one; a line's pieces go to the
/// stream that `operator<<` below returns, which belongs to the calling thread.
class KELTLOGGING_EXPORT LogStream : public std::ostream {
 public:
  explicit LogStream(int level_value);
  ~LogStream() override;

  /// Ends the line that the calling thread began at this level, and hands it to the sink. Clears the stream's error
  /// state, and leaves `errno` alone. Nothing happens where no line was begun.
  void do_flush();

  int level;
};

/// Begins a line of the calling thread at the level, for the module, and returns the stream that takes its pieces.
/// A line of that level not ended before is ended first. A line for a null module is not written.
KELTLOGGING_EXPORT LogStream& operator<<(LogStream& level, const std::shared_ptr<LogModule>& module);

}  // namespace _internal

extern KELTLOGGING_EXPORT _internal::LogStream DEBUG;
extern KELTLOGGING_EXPORT _internal::LogStream INFO;
extern KELTLOGGING_EXPORT _internal::LogStream NOTICE;
extern KELTLOGGING_EXPORT _internal::LogStream WARNING;
extern KELTLOGGING_EXPORT _internal::LogStream ERROR;
extern KELTLOGGING_EXPORT _internal::LogStream CRITICAL;

}  // namespace ecu::vorn::logging
