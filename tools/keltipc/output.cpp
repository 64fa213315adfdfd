#include "output.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "exit_status.h"
#include "say.h"
#include "stop_request.h"

namespace keltipc {

void print_line(const std::string& line) {
  std::cout << line << std::endl;
  if (!std::cout) throw std::runtime_error("cannot write to standard output");
}

std::optional<Outcome> outcome_of_stop_signal() {
  const int signal = stop_signal();
  if (signal == 0) return std::nullopt;
  return Outcome{128 + signal, {}};
}

std::optional<Outcome> write_out(std::string_view text) {
  const int error = write_output(text);
  if (error == 0) return std::nullopt;
  if (const auto stopped = outcome_of_stop_signal())
    return Outcome{stopped->status, "not all of the output was written"};
  if (error == EPIPE) return Outcome{exit_done, {}, true};
  return Outcome{exit_failed, std::string("standard output: ") + std::strerror(error)};
}

int end_with_report(const Outcome& outcome, const std::string& report, bool has_failed) {
  if (!outcome.is_quiet) write_error_text((outcome.sentence.empty() ? "" : error_line(outcome.sentence)) + report);
  if (const auto stopped = outcome_of_stop_signal()) return stopped->status;  // It may have come during the report.
  return has_failed ? exit_failed : outcome.status;
}

}  // namespace keltipc
