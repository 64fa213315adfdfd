#include "log_record.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <limits>

#include "escape.h"
#include "hex.h"
#include "input_error.h"
#include "signal_text.h"

namespace keltipc {
namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

constexpr std::size_t micros_digits = 6;

std::string micros_text(microseconds time) {
  std::string digits = std::to_string((time % seconds(1)).count());
  return "." + std::string(micros_digits - std::min(micros_digits, digits.size()), '0') + digits;
}

/// Takes the text before `end` off the front of `rest`, and `end` with it.
std::string_view take_until(std::string_view& rest, std::string_view end, const char* missing) {
  const std::size_t at = rest.find(end);
  if (at == std::string_view::npos) throw BadText(missing);
  const std::string_view part = rest.substr(0, at);
  rest.remove_prefix(at + end.size());
  return part;
}

std::uint32_t decimal(std::string_view text) {
  std::uint32_t value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || stop != text.data() + text.size()) throw BadText("a time stamp that is no number");
  return value;
}

microseconds time_stamp(std::string_view text) {
  const std::string_view whole = take_until(text, ".", "the time stamp is not (SECONDS.MICROS)");
  if (text.size() != micros_digits) throw BadText("the time stamp takes six digits behind the dot");
  return seconds(decimal(whole)) + microseconds(decimal(text));
}

std::uint64_t hex_field(std::string_view text, std::uint64_t limit, const char* name) {
  const auto value = parse_hex(text, limit);
  if (!value) throw BadText(std::string("the ") + name + " is no hexadecimal number up to " + to_hex(limit));
  return *value;
}

ecu::vorn::ipc::IpcSignal signal(std::string_view text) {
  constexpr const char* form = "a logged signal is written ID:STATUS:SAMPLINGFRAME#HEX";
  ecu::vorn::ipc::IpcSignal result{};
  result.signal_id = static_cast<std::uint32_t>(hex_field(take_until(text, ":", form), id_limit, "identifier"));
  result.status = static_cast<std::uint8_t>(hex_field(take_until(text, ":", form), 0xF, "status"));
  constexpr auto any = std::numeric_limits<std::uint64_t>::max();
  result.sampling_frame = hex_field(take_until(text, "#", form), any, "sampling frame");
  result.data = parse_payload(text);
  return result;
}

LogRecord log_record(std::string_view line) {
  constexpr const char* form = "a log line is written (SECONDS.MICROS) DEVICE ID:STATUS:SAMPLINGFRAME#HEX";
  if (line.empty() || line.front() != '(') throw BadText(form);
  line.remove_prefix(1);
  const microseconds time = time_stamp(take_until(line, ") ", form));
  const auto device = unescape_word(take_until(line, " ", form));
  if (!device) throw BadText("a backslash in the device that does not begin \\xHH");
  return {time, *device, signal(line)};
}

}  // namespace

std::string to_log_line(const LogRecord& record) {
  std::string line = "(" + seconds_text(record.time) + ") " + escape_word(record.device) + " ";
  line += to_hex(record.signal.signal_id) + ":" + to_hex(record.signal.status) + ":";
  line += to_hex(record.signal.sampling_frame) + "#";
  append_payload(line, record.signal.data);
  return line;
}

LogRecord parse_log_line(std::string_view line) {
  return parse_input(line, [&] { return log_record(line); });
}

std::string to_json_line(const LogRecord& record) {
  std::string line = "{\"time\":" + seconds_text(record.time) + ",\"device\":" + json_string(record.device);
  line += ",\"id\":\"" + to_hex(record.signal.signal_id) + "\",\"status\":" + std::to_string(record.signal.status);
  line += ",\"sampling_frame\":\"" + to_hex(record.signal.sampling_frame) + "\"";
  line += ",\"length\":" + std::to_string(record.signal.data.size()) + ",\"data\":\"";
  append_payload(line, record.signal.data);
  return line + "\"}";
}

std::string seconds_text(microseconds time) {
  return std::to_string(std::chrono::duration_cast<seconds>(time).count()) + micros_text(time);
}

std::string utc_text(microseconds time) {
  const auto whole = static_cast<std::time_t>(std::chrono::duration_cast<seconds>(time).count());
  std::tm utc{};
  ::gmtime_r(&whole, &utc);
  std::array<char, 32> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  return date.data() + micros_text(time) + "Z";
}

}  // namespace keltipc
