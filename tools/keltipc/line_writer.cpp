#include "line_writer.h"

#include <unistd.h>

#include <sstream>

#include "escape.h"
#include "hex.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::IpcSignal;
using std::chrono::microseconds;

/// How many bytes of a payload are shown on a terminal.
constexpr std::size_t shown_on_terminal = 64;

std::string json_frame(microseconds time, const std::string& device, const Frame& frame) {
  std::string line = "{\"time\":" + seconds_text(time) + ",\"device\":" + json_string(device);
  if (!frame.is_short) {
    line += ",\"id\":\"" + to_hex(frame.id) + "\",\"status\":" + std::to_string(frame.status);
    line += ",\"chunk\":" + std::to_string(frame.chunk) + ",\"total_size\":" + std::to_string(frame.total_size);
  }
  line += ",\"data\":\"";
  append_payload(line, frame.payload);
  line += "\"";
  if (!frame.mark.empty()) line += ",\"mark\":" + json_string(frame.mark);
  return line + "}";
}

}  // namespace

std::string LineWriter::prefix(microseconds time, const std::string& device) {
  if (form == Form::log) return "(" + seconds_text(time) + ") " + escape_word(device) + " ";
  if (form == Form::utc) return utc_text(time) + "  ";
  const microseconds elapsed = time - since.value_or(time);
  if (form == Form::since_last || !since) since = time;
  return seconds_text(elapsed) + "  ";
}

/// Shortens the payload if it is too long for a terminal. Returns the text that closes it.
std::string LineWriter::cut(std::vector<char>& payload) const {
  const std::size_t length = payload.size();
  if (!cuts_payloads || length <= shown_on_terminal) return "}";
  payload.resize(shown_on_terminal);
  return "... } (" + std::to_string(length) + " bytes)";
}

std::string LineWriter::signal_text(IpcSignal& signal) const {
  std::ostringstream line;
  const std::string end = cut(signal.data);
  line << signal;
  std::string text = line.str();
  return text.replace(text.size() - 1, 1, end);
}

std::string LineWriter::line(LogRecord&& record) {
  if (form == Form::log) return to_log_line(record);
  if (form == Form::json) return to_json_line(record);
  return prefix(record.time, record.device) +
         (record.fault.empty() ? signal_text(record.signal) : fault_text(record.fault));
}

std::string LineWriter::frame_line(microseconds time, const std::string& device, const Frame& frame) {
  if (form == Form::json) return json_frame(time, device, frame);
  std::string line = prefix(time, device);
  if (!frame.is_short) {
    line += to_hex(frame.id) + ": " + to_hex(frame.status) + ", chunk " + std::to_string(frame.chunk) + " of " +
            std::to_string(frame.total_size) + " bytes ";
  }
  std::vector<char> payload = frame.payload;
  const std::string end = cut(payload);
  line += "{ ";
  for (const char byte : payload) {
    append_hex_byte(line, byte);
    line += ' ';
  }
  line += end;
  return frame.mark.empty() ? line : line + "  " + frame.mark;
}

LineWriter make_line_writer(const DumpOptions& options, std::optional<microseconds> start) {
  using Form = LineWriter::Form;
  const bool on_terminal = ::isatty(STDOUT_FILENO) == 1;
  if (options.json) return LineWriter(Form::json, false);
  if (options.log || (options.time.empty() && !on_terminal)) return LineWriter(Form::log, false);
  const Form form = options.time == "d" ? Form::since_last : options.time == "z" ? Form::since_start : Form::utc;
  return LineWriter(form, on_terminal, start);
}

}  // namespace keltipc
