#include "sink.h"

#include <mutex>
#include <utility>

#include "logging/logging.h"

namespace ecu::vorn::logging {
namespace {

/// Recursive, so that a sink may call `set_sink`. Never destroyed: other libraries may log while the process ends.
struct Output {
  std::recursive_mutex mutex;
  std::shared_ptr<const Sink> sink;
};

Output& output() {
  static auto* const instance = new Output;
  return *instance;
}

thread_local bool inside_sink = false;

}  // namespace

void set_sink(std::function<void(int level, const std::string& module, const std::string& text)> sink) {
  auto next = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
  Output& out = output();
  const std::lock_guard<std::recursive_mutex> lock(out.mutex);
  out.sink.swap(next);
}

void hand_to_sink(int level, const std::string& module, const std::string& text) {
  if (inside_sink) return stderr_sink(level, module, text);
  Output& out = output();
  const std::lock_guard<std::recursive_mutex> lock(out.mutex);
  const auto sink = out.sink;  // Held: the sink may replace itself.
  inside_sink = true;
  try {
    sink != nullptr ? (*sink)(level, module, text) : stderr_sink(level, module, text);
  } catch (...) {
    // Deliberate: a sink that throws loses its line. Whoever logged is not to suffer from where lines go.
  }
  inside_sink = false;
}

}  // namespace ecu::vorn::logging
