#include <atomic>
#include <map>
#include <new>

#include "locks.h"
#include "logging/logging.h"

/// What all lines share: the modules by name, and the log level.
namespace ecu::vorn::logging {
namespace {

using Registry = std::map<std::string, std::shared_ptr<LogModule>>;

/// Built on first use, because another library's load-time code may run before this library's own. Deliberate: never
/// destroyed, because another library's unload-time code may run after it.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

std::atomic<int> global_level{6};

}  // namespace

std::shared_ptr<LogModule> module(const std::string& name) {
  try {
    const std::lock_guard<std::mutex> lock(registry_mutex());
    std::shared_ptr<LogModule>& entry = registry()[name];
    if (entry == nullptr) entry = std::make_shared<LogModule>(name);
    return entry;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int get_log_level() { return global_level.load(std::memory_order_relaxed); }

void set_log_level(int level) { global_level.store(level, std::memory_order_relaxed); }

}  // namespace ecu::vorn::logging
