#pragma once

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "logging/logging.h"

namespace ecu::vorn::ipc::test {

/// What happened, in order: log lines, system calls, calls of a consumer.
using Transcript = std::vector<std::string>;

/// One note per line: gtest shows where two such texts differ, line by line.
inline std::string text(const Transcript& notes) {
  std::string all;
  for (const std::string& note : notes) all += note + "\n";
  return all;
}

/// Notes the log lines of one module while it lives, as "DEBUG text".
class RecordedLog {
 public:
  RecordedLog(Transcript& into, std::string module, int log_level = 7) : level_before(logging::get_log_level()) {
    logging::set_log_level(log_level);
    logging::set_sink(
        [&into, module = std::move(module)](int level, const std::string& from, const std::string& line) {
          const std::array<const char*, 8> names = {"",         "",        "CRITICAL ", "ERROR ",
                                                    "WARNING ", "NOTICE ", "INFO ",     "DEBUG "};
          if (from == module) into.push_back(names.at(static_cast<std::size_t>(level)) + line);
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
