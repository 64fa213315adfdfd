#include "common_options.h"

#include <iostream>

#include "logging/logging.h"
#include "whole_number.h"

namespace keltipc {
void add_port_options(CLI::App& command, PortOptions& options) {
  command.add_option("--frame", options.frame, "Size of the port's frames: 16, 32 or 4096 bytes")
      ->check(frame_size())
      ->type_name("BYTES")
      ->capture_default_str();
  command.add_option("--wait", options.wait, "Wait that long for the device to appear; then status 124")
      ->transform(whole_number(0, 1'000'000))
      ->type_name("SECONDS")
      ->capture_default_str();
  command
      .add_option("--log-level", options.log_level,
                  "The library's own lines on standard error, up to that level:\n"
                  "2 critical, 3 errors, 4 warnings, 5 notices, 6 information, 7 all")
      ->transform(whole_number(0, 7))
      ->type_name("0..7")
      ->capture_default_str();
}

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
