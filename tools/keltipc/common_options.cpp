#include "common_options.h"

#include <iostream>

#include "logging/logging.h"

namespace keltipc {

void set_up_logging(int log_level) {
  namespace logging = ecu::vorn::logging;
  logging::set_log_level(log_level);
  // The level alone does not hold back warnings and what is above them.
  logging::set_sink([log_level](int level, const std::string& module, const std::string& text) {
    if (level <= log_level) logging::stderr_sink(level, module, text);
  });
}

void say(const std::string& sentence) { std::cerr << "keltipc: " + sentence + "\n"; }

}  // namespace keltipc
