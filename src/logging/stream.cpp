#include <pthread.h>

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include "logging/logging.h"
#include "sink.h"

/// The line under construction, and the stream that holds it, belong to the thread that writes it: one a level. The
/// six global objects only name a level.
namespace ecu::vorn::logging {
namespace _internal {
namespace {

constexpr int always_written = 4;

bool is_wanted(int level, const std::shared_ptr<LogModule>& module) {
  if (level <= always_written) return true;
  return level <= get_log_level() && (module == nullptr || module->enabled);
}

class LineBuffer : public LogStreambuf {
 public:
  std::string text;

 protected:
  int_type overflow(int_type character) override {
    if (!traits_type::eq_int_type(character, traits_type::eof())) text += traits_type::to_char_type(character);
    return traits_type::not_eof(character);
  }
  std::streamsize xsputn(const char* characters, std::streamsize count) override {
    text.append(characters, static_cast<std::size_t>(count));
    return count;
  }
};

struct Line {
  explicit Line(int level) : stream(level) { stream.rdbuf(&buffer); }

  LineBuffer buffer;
  LogStream stream;
  std::shared_ptr<LogModule> module;
  bool wanted = false;  ///< decided where the line begins: one switched off in the middle keeps what it has
};

struct ThreadLines {
  std::map<int, Line> by_level;
  std::vector<Line*> begun;  ///< the last one is active
};

/// A thread's lines are kept under a pthread key, not in a thread_local object: destructors of those may log, and
/// keys outlive them. What is made again after that is destroyed again.
pthread_key_t lines_key() {
  static const pthread_key_t key = [] {
    pthread_key_t made{};
    ::pthread_key_create(&made, [](void* lines) { delete static_cast<ThreadLines*>(lines); });
    return made;
  }();
  return key;
}

ThreadLines* existing_lines() { return static_cast<ThreadLines*>(::pthread_getspecific(lines_key())); }

ThreadLines& own_lines() {
  if (ThreadLines* const lines = existing_lines()) return *lines;
  auto lines = std::make_unique<ThreadLines>();
  ::pthread_setspecific(lines_key(), lines.get());
  return *lines.release();
}

void end_line(ThreadLines& lines, Line& line) {
  lines.begun.erase(std::find(lines.begun.begin(), lines.begun.end(), &line));
  const std::string text = std::exchange(line.buffer.text, {});
  const auto module = std::exchange(line.module, nullptr);
  line.stream.clear();
  if (line.wanted) hand_to_sink(line.stream.level, module != nullptr ? module->name : "", text);
}

bool is_begun(const ThreadLines& lines, const Line& line) {
  return std::find(lines.begun.begin(), lines.begun.end(), &line) != lines.begun.end();
}

}  // namespace

std::shared_ptr<LogModule> LogStreambuf::get_active_module() {
  const ThreadLines* const lines = existing_lines();
  return lines == nullptr || lines->begun.empty() ? nullptr : lines->begun.back()->module;
}

LogStream::LogStream(int level_value) : std::ostream(nullptr), level(level_value) {}

LogStream::~LogStream() = default;

void LogStream::do_flush() {
  ThreadLines* const lines = existing_lines();
  if (lines == nullptr) return;
  const auto line = lines->by_level.find(level);
  if (line != lines->by_level.end() && is_begun(*lines, line->second)) end_line(*lines, line->second);
}

LogStream& operator<<(LogStream& level, const std::shared_ptr<LogModule>& module) {
  ThreadLines& lines = own_lines();
  Line& line = lines.by_level.try_emplace(level.level, level.level).first->second;
  if (is_begun(lines, line)) end_line(lines, line);
  line.module = module;
  line.wanted = is_wanted(level.level, module);
  lines.begun.push_back(&line);
  return line.stream;
}

}  // namespace _internal

_internal::LogStream DEBUG(7);
_internal::LogStream INFO(6);
_internal::LogStream NOTICE(5);
_internal::LogStream WARNING(4);
_internal::LogStream ERROR(3);
_internal::LogStream CRITICAL(2);

}  // namespace ecu::vorn::logging
