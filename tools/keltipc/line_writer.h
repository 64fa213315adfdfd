#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "commands.h"
#include "frame.h"
#include "log_record.h"

namespace keltipc {

/// Turns what was received, or read from a log, into lines without their ends.
class LineWriter {
 public:
  enum class Form { log, json, utc, since_last, since_start };

  /// `cuts`: shortens long payloads in the forms for people. Times since the start count from `start`, or from the
  /// first line.
  explicit LineWriter(Form line_form, bool cuts, std::optional<std::chrono::microseconds> start = std::nullopt)
      : form(line_form), cuts_payloads(cuts), since(start) {}

  bool writes_log() const { return form == Form::log; }

  /// Whether the lines have times since the start or since the last line; else they have UTC.
  bool counts_from_start() const { return form == Form::since_last || form == Form::since_start; }

  std::string line(LogRecord&& record);
  std::string frame_line(std::chrono::microseconds time, const std::string& device, const Frame& frame);

 private:
  std::string prefix(std::chrono::microseconds time, const std::string& device);
  std::string signal_text(ecu::vorn::ipc::IpcSignal& signal) const;
  std::string cut(std::vector<char>& payload) const;

  Form form;
  bool cuts_payloads;
  std::optional<std::chrono::microseconds> since;
};

/// The form that the user chose, or the default of a terminal or of what is not one.
LineWriter make_line_writer(const DumpOptions& options, std::optional<std::chrono::microseconds> start);

}  // namespace keltipc
