#include <pthread.h>

#include <algorithm>
#include <array>
#include <locale>
#include <map>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "locks.h"
#include "logging/logging.h"
#include "sink.h"

/// A line under construction, and the stream that holds it, belong to the thread that writes it: one per level. The
/// six global objects only name a level.
namespace ecu::vorn::logging {
namespace _internal {
namespace {

/// Holds a line's text. Unlike a string stream, it gives the text away without a copy.
class LineBuffer : public LogStreambuf {
 public:
  std::string text;
  bool is_whole = true;  ///< false after a piece for which there was no memory

 protected:
  int_type overflow(int_type character) override {
    if (traits_type::eq_int_type(character, traits_type::eof())) return traits_type::not_eof(character);
    const char byte = traits_type::to_char_type(character);
    return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
  }
  std::streamsize xsputn(const char* characters, std::streamsize count) override {
    try {
      text.append(characters, static_cast<std::size_t>(count));
      return count;
    } catch (const std::bad_alloc&) {
      is_whole = false;
      return 0;
    }
  }
};

/// Reused for the thread's next line of the same level, and keeps its format state.
struct Line {
  explicit Line(int level) : stream(level) { stream.rdbuf(&buffer); }

  LineBuffer buffer;
  LogStream stream;
  std::shared_ptr<LogModule> module;
  bool wanted = false;  ///< decided when the line begins: a module switched off later does not cut the line short
};

struct Lines {
  std::map<int, Line> by_level;
  std::vector<Line*> begun;  ///< the last one is active
};

/// The second set is for lines that the thread writes while it runs the sink.
using ThreadLines = std::array<Lines, 2>;

/// Destroyed through a pthread key, not as a thread_local object: destructors of thread_local objects may log, and
/// keys outlive them. If such a destructor makes the lines again, the key destroys them again.
thread_local ThreadLines* thread_lines = nullptr;

void destroy(void* lines) {
  thread_lines = nullptr;
  delete static_cast<ThreadLines*>(lines);
}

void destroy_at_thread_exit(ThreadLines* lines) {
  static const auto key = []() -> std::optional<pthread_key_t> {
    pthread_key_t made{};
    if (::pthread_key_create(&made, destroy) != 0) return std::nullopt;
    return made;
  }();
  // If the process has no key left, the lines outlive their thread: better a leak than no log.
  if (key.has_value()) ::pthread_setspecific(*key, lines);
}

/// Null if the calling thread has not written a line yet.
Lines* existing_lines() { return thread_lines == nullptr ? nullptr : &(*thread_lines)[runs_sink() ? 1 : 0]; }

Lines& own_lines() {
  if (thread_lines == nullptr) {
    thread_lines = new ThreadLines;
    destroy_at_thread_exit(thread_lines);
  }
  return *existing_lines();
}

bool is_begun(const Lines& lines, const Line& line) {
  return std::find(lines.begun.begin(), lines.begun.end(), &line) != lines.begun.end();
}

/// Empties the line before the sink runs, so that nothing the sink does can reach it.
void end_line(Lines& lines, Line& line) {
  lines.begun.erase(std::find(lines.begun.begin(), lines.begun.end(), &line));
  const std::string text = std::exchange(line.buffer.text, {});
  const auto module = std::exchange(line.module, nullptr);
  line.stream.clear();
  if (line.wanted && line.buffer.is_whole) hand_to_sink(line.stream.level, module->name, text);
}

/// Throws std::bad_alloc if there is no memory for the line.
LogStream& begin_line(LogStream& level, const std::shared_ptr<LogModule>& module) {
  Lines& lines = own_lines();
  Line& line = lines.by_level.try_emplace(level.level, level.level).first->second;
  if (is_begun(lines, line)) end_line(lines, line);
  line.buffer.text.clear();  // drops pieces written after the last line ended
  line.buffer.is_whole = true;
  line.stream.clear();
  line.module = module;
  line.wanted = is_wanted(level.level, module);
  lines.begun.push_back(&line);
  return line.stream;
}

/// The calling thread's stream for the pieces of a line that could not begin: it stores nothing. Never destroyed,
/// because registering a destructor takes memory.
LogStream& lost_line() {
  thread_local LogStream* stream = nullptr;
  if (stream == nullptr) {
    alignas(LogStream) thread_local std::array<unsigned char, sizeof(LogStream)> memory;
    stream = new (memory.data()) LogStream(0);
  }
  return *stream;
}

}  // namespace

std::shared_ptr<LogModule> LogStreambuf::get_active_module() {
  const Lines* const lines = existing_lines();
  return lines == nullptr || lines->begun.empty() ? nullptr : lines->begun.back()->module;
}

/// The classic locale: the application's global locale must not group the digits of log lines.
LogStream::LogStream(int level_value) : std::ostream(nullptr), level(level_value) { imbue(std::locale::classic()); }

LogStream::~LogStream() = default;

void LogStream::do_flush() {
  Lines* const lines = existing_lines();
  if (lines == nullptr) return;
  const auto line = lines->by_level.find(level);
  if (line != lines->by_level.end() && is_begun(*lines, line->second)) end_line(*lines, line->second);
}

LogStream& operator<<(LogStream& level, const std::shared_ptr<LogModule>& module) {
  try {
    return begin_line(level, module);
  } catch (const std::bad_alloc&) {
    return lost_line();
  }
}

}  // namespace _internal

_internal::LogStream DEBUG(7);
_internal::LogStream INFO(6);
_internal::LogStream NOTICE(5);
_internal::LogStream WARNING(4);
_internal::LogStream ERROR(3);
_internal::LogStream CRITICAL(2);

}  // namespace ecu::vorn::logging
