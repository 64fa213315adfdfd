#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace keltipc {

/// How a command ends: its exit status, and a sentence for standard error, or an empty one.
struct Outcome {
  int status;
  std::string sentence;
  bool is_quiet = false;  ///< nobody reads what it prints, so nothing more is said
};

/// Writes all of `text` to standard output; after a stop signal, what fits there without waiting. Returns nothing on
/// success, else how the command ends: quietly if nobody reads it, with 128 + n after stop signal n, which also
/// interrupts a write that blocks; the sentence then says that output is missing.
std::optional<Outcome> write_out(std::string_view text);

/// Says on standard error how the command ended, and then `report`, unless the end is a quiet one. Returns the exit
/// status: that of a stop signal comes first, then 1 if the command `has_failed`.
int end_with_report(const Outcome& outcome, const std::string& report, bool has_failed);

/// A line on standard output, written at once. Throws std::runtime_error if that fails.
void print_line(const std::string& line);

/// 128 + n, once stop signal n has come
std::optional<Outcome> outcome_of_stop_signal();

}  // namespace keltipc
