#include "common_options.h"

#include <cerrno>
#include <iostream>
#include <utility>

#include "logging/logging.h"

namespace keltipc {

void set_up_logging(int log_level, std::function<void(int)> on_line) {
  namespace logging = ecu::vorn::logging;
  logging::set_log_level(log_level);
  // The level alone does not hold back warnings and what is above them.
  logging::set_sink(
      [log_level, on_line = std::move(on_line)](int level, const std::string& module, const std::string& text) {
        const int saved = errno;
        on_line(level);
        if (level <= log_level) logging::stderr_sink(level, module, text);
        errno = saved;
      });
}

void say(const std::string& sentence) { std::cerr << "keltipc: " + sentence + "\n"; }

}  // namespace keltipc
