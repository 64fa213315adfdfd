#include <atomic>

#include "logging/logging.h"

namespace ecu::vorn::logging {
namespace {

std::atomic<int> global_level{6};

}  // namespace

int get_log_level() { return global_level.load(std::memory_order_relaxed); }

void set_log_level(int level) { global_level.store(level, std::memory_order_relaxed); }

}  // namespace ecu::vorn::logging
