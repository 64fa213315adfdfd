#include <map>
#include <mutex>

#include "logging/logging.h"

namespace ecu::vorn::logging {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::string, std::shared_ptr<LogModule>> modules;
};

/// Built on first use: other libraries' load-time code may come before this library's own. Deliberate: never
/// destroyed, since their unload-time code may come after it.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

}  // namespace

std::shared_ptr<LogModule> module(const std::string& name) {
  Registry& all = registry();
  const std::lock_guard<std::mutex> lock(all.mutex);
  std::shared_ptr<LogModule>& entry = all.modules[name];
  if (entry == nullptr) entry = std::make_shared<LogModule>(name);
  return entry;
}

}  // namespace ecu::vorn::logging
