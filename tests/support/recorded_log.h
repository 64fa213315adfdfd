#pragma once

#include <string>
#include <utility>
#include <vector>

#include "logging/logging.h"

namespace ecu::vorn::ipc::test {

/// What happened, in order: log lines, system calls, calls of a consumer.
using Transcript = std::vector<std::string>;

/// Notes the lines of one module while it lives, as "DEBUG text".
class RecordedLog {
 public:
  RecordedLog(Transcript& into, std::string module, int log_level = 7) : level_before(logging::get_log_level()) {
    logging::set_log_level(log_level);
    logging::set_sink(
        [&into, module = std::move(module)](int level, const std::string& from, const std::string& text) {
          static const Transcript names = {"", "", "CRITICAL ", "ERROR ", "WARNING ", "NOTICE ", "INFO ", "DEBUG "};
          if (from == module) into.push_back(names.at(static_cast<std::size_t>(level)) + text);
        });
  }
  ~RecordedLog() {
    logging::set_sink({});
    logging::set_log_level(level_before);
  }

 private:
  int level_before;
};

}  // namespace ecu::vorn::ipc::test
