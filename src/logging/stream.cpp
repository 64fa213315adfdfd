#include <algorithm>
#include <utility>

#include "lines.h"
#include "logging/logging.h"
#include "sink.h"

/// The line under construction, and the stream that holds it, belong to the thread that writes it: one a level. The
/// six global objects only name a level.
namespace ecu::vorn::logging {
namespace _internal {
namespace {

constexpr int always_written = 4;

bool is_wanted(int level, const std::shared_ptr<LogModule>& module) {
  if (module == nullptr) return false;
  return level <= always_written || (level <= get_log_level() && module->enabled);
}

bool is_begun(const Lines& lines, const Line& line) {
  return std::find(lines.begun.begin(), lines.begun.end(), &line) != lines.begun.end();
}

/// All is taken out of the line before the sink runs: what the sink does cannot reach it.
void end_line(Lines& lines, Line& line) {
  lines.begun.erase(std::find(lines.begun.begin(), lines.begun.end(), &line));
  const std::string text = std::exchange(line.buffer.text, {});
  const auto module = std::exchange(line.module, nullptr);
  line.stream.clear();
  if (line.wanted) hand_to_sink(line.stream.level, module->name, text);
}

}  // namespace

std::shared_ptr<LogModule> LogStreambuf::get_active_module() {
  const Lines* const lines = existing_lines();
  return lines == nullptr || lines->begun.empty() ? nullptr : lines->begun.back()->module;
}

LogStream::LogStream(int level_value) : std::ostream(nullptr), level(level_value) {}

LogStream::~LogStream() = default;

void LogStream::do_flush() {
  Lines* const lines = existing_lines();
  if (lines == nullptr) return;
  const auto line = lines->by_level.find(level);
  if (line != lines->by_level.end() && is_begun(*lines, line->second)) end_line(*lines, line->second);
}

LogStream& operator<<(LogStream& level, const std::shared_ptr<LogModule>& module) {
  Lines& lines = own_lines();
  Line& line = lines.by_level.try_emplace(level.level, level.level).first->second;
  if (is_begun(lines, line)) end_line(lines, line);
  line.buffer.text.clear();  // of pieces that came when no line was begun
  line.stream.clear();
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
