#pragma once

#include <gtest/gtest.h>

#include "logging/logging.h"

namespace ecu::vorn::ipc::test {

/// What happened, in order: log lines, system calls, calls of a consumer.
using Transcript = std::vector<std::string>;

/// One note per line: gtest shows line by line where two such texts differ.
inline std::string text(const Transcript& notes) {
  std::string all;
  for (const std::string& note : notes) all += note + "\n";
  return all;
}

/// Notes the log lines of one module while it lives, as "DEBUG text".
struct RecordedLog {
  RecordedLog(Transcript& into, const std::string& module, int log_level = 7) {
    logging::set_log_level(log_level);
    logging::set_sink([&into, module](int level, const std::string& from, const std::string& line) {
      static const Transcript names = {"", "", "CRITICAL ", "ERROR ", "WARNING ", "NOTICE ", "INFO ", "DEBUG "};
      if (from == module) into.push_back(names.at(static_cast<std::size_t>(level)) + line);
    });
  }
  ~RecordedLog() {
    logging::set_sink({});
    logging::set_log_level(6);
  }
};

}  // namespace ecu::vorn::ipc::test
