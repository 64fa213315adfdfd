#include <map>

#include "locks.h"
#include "logging/logging.h"

namespace ecu::vorn::logging {
namespace {

using Registry = std::map<std::string, std::shared_ptr<LogModule>>;

/// Built on first use: other libraries' load-time code may come before this library's own. Deliberate: never
/// destroyed, since their unload-time code may come after it.
Registry& registry() {
  static auto* const instance = new Registry;
  return *instance;
}

}  // namespace

std::shared_ptr<LogModule> module(const std::string& name) {
  const std::lock_guard<std::mutex> lock(registry_mutex());
  std::shared_ptr<LogModule>& entry = registry()[name];
  if (entry == nullptr) entry = std::make_shared<LogModule>(name);
  return entry;
}

}  // namespace ecu::vorn::logging
