#include "lines.h"

#include <pthread.h>

#include <array>
#include <optional>

#include "locks.h"

namespace ecu::vorn::logging::_internal {
namespace {

using ThreadLines = std::array<Lines, 2>;

/// Destroyed through a pthread key, not as a thread_local object: destructors of those may log, and keys outlive
/// them. What is made again after that is destroyed again.
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
  // Where the process has no key left, the lines outlive their thread: better a leak than no log.
  if (key.has_value()) ::pthread_setspecific(*key, lines);
}

Lines& in_use(ThreadLines& lines) { return lines[runs_sink() ? 1 : 0]; }

}  // namespace

LineBuffer::int_type LineBuffer::overflow(int_type character) {
  if (!traits_type::eq_int_type(character, traits_type::eof())) text += traits_type::to_char_type(character);
  return traits_type::not_eof(character);
}

std::streamsize LineBuffer::xsputn(const char* characters, std::streamsize count) {
  text.append(characters, static_cast<std::size_t>(count));
  return count;
}

Lines& own_lines() {
  if (thread_lines == nullptr) {
    thread_lines = new ThreadLines;
    destroy_at_thread_exit(thread_lines);
  }
  return in_use(*thread_lines);
}

Lines* existing_lines() { return thread_lines == nullptr ? nullptr : &in_use(*thread_lines); }

}  // namespace ecu::vorn::logging::_internal
