#include "log_record.h"

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>

#include "escape.h"
#include "hex.h"
#include "input_error.h"
#include "signal_text.h"

namespace keltipc {
namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

constexpr std::size_t micros_digits = 6;

constexpr const char* log_form = "not a log line: (SECONDS.MICROS) DEVICE ID:STATUS:SAMPLINGFRAME#HEX";
constexpr std::string_view fault_start = "# (";
constexpr std::string_view lost_or_wrong = "lost or wrong: ";

std::string micros_text(microseconds time) {
  std::string text = ".000000";
  auto micros = (time % seconds(1)).count();
  for (std::size_t i = micros_digits; micros != 0; micros /= 10) text[i--] = static_cast<char>('0' + micros % 10);
  return text;
}

void append_seconds(std::string& text, microseconds time) {
  text.append(std::to_string(std::chrono::duration_cast<seconds>(time).count())).append(micros_text(time));
}

/// Takes the text before `end` off the front of `rest`, and `end` with it.
std::string_view take_until(std::string_view& rest, std::string_view end, const char* complaint) {
  const std::size_t at = rest.find(end);
  if (at == std::string_view::npos) throw InputError(complaint);
  const std::string_view part = rest.substr(0, at);
  rest.remove_prefix(at + end.size());
  return part;
}

std::uint32_t decimal(std::string_view text) {
  std::uint32_t value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || stop != text.data() + text.size()) {
    throw InputError("invalid time stamp: seconds from 1970 to 2106, up to 4294967295");
  }
  return value;
}

/// The fields that both forms write in hexadecimal
void set_fields(ecu::vorn::ipc::IpcSignal& signal, std::string_view id, std::string_view stamp,
                std::string_view data) {
  signal.signal_id = static_cast<std::uint32_t>(parse_hex_field(id, id_limit, "identifier"));
  signal.sampling_frame = parse_hex_field(stamp, std::numeric_limits<std::uint64_t>::max(), "sampling frame");
  signal.data = parse_payload(data);
}

/// Takes "SECONDS.MICROS) DEVICE " off the front of `line`.
LogRecord take_time_and_device(std::string_view& line) {
  LogRecord record{};
  record.time = parse_seconds(take_until(line, ") ", log_form));
  const auto device = unescape_word(take_until(line, " ", log_form));
  if (!device) throw InputError("invalid escape in the device: a backslash must begin \\xHH");
  record.device = *device;
  return record;
}

LogRecord parse_text_record(std::string_view line) {
  if (line.empty() || line.front() != '(') throw InputError(log_form);
  line.remove_prefix(1);
  LogRecord record = take_time_and_device(line);
  const std::string_view id = take_until(line, ":", log_form);
  record.signal.status = static_cast<std::uint8_t>(parse_hex_field(take_until(line, ":", log_form), 0xF, "status"));
  const std::string_view stamp = take_until(line, "#", log_form);
  set_fields(record.signal, id, stamp, line);
  return record;
}

LogRecord parse_text_fault(std::string_view line) {
  line.remove_prefix(fault_start.size());
  LogRecord record = take_time_and_device(line);
  if (line.size() <= lost_or_wrong.size() || line.substr(0, lost_or_wrong.size()) != lost_or_wrong) {
    throw InputError("not a fault line: # (SECONDS.MICROS) DEVICE lost or wrong: FAULT");
  }
  record.fault = line.substr(lost_or_wrong.size());
  return record;
}

microseconds json_time(double value) {
  if (!(value >= 0 && value <= std::numeric_limits<std::uint32_t>::max())) throw InputError("invalid time");
  return microseconds(std::llround(value * 1e6));
}

void set_json_signal(ecu::vorn::ipc::IpcSignal& signal, const nlohmann::json& object) {
  using Text = const std::string&;
  const auto status = object.at("status").get_ref<const nlohmann::json::number_unsigned_t&>();
  if (status > 0xF) throw InputError("invalid status: 0 to 15");
  signal.status = static_cast<std::uint8_t>(status);
  set_fields(signal, object.at("id").get_ref<Text>(), object.at("sampling_frame").get_ref<Text>(),
             object.at("data").get_ref<Text>());
  if (object.value("length", signal.data.size()) != signal.data.size()) throw InputError("data has another length");
}

LogRecord parse_json_record(std::string_view line) {
  try {
    const auto object = nlohmann::json::parse(line);
    LogRecord record{json_time(object.at("time").get<double>()), object.at("device").get<std::string>(), {}, {}};
    if (object.contains("fault")) {
      record.fault = object["fault"].get<std::string>();
      if (record.fault.empty()) throw InputError("an empty fault");
    } else {
      set_json_signal(record.signal, object);
    }
    return record;
  } catch (const nlohmann::json::exception&) {
    throw InputError("not a line of dump --json: needs time, device, id, status, sampling_frame and data");
  }
}

}  // namespace

bool is_fault_line(std::string_view line) {
  return line.size() > fault_start.size() && line.substr(0, fault_start.size()) == fault_start &&
         std::isdigit(static_cast<unsigned char>(line[fault_start.size()])) != 0;
}

std::string fault_text(const std::string& fault) { return std::string(lost_or_wrong) + escape_text(fault); }

std::string to_log_line(const LogRecord& record) {
  constexpr std::size_t usual_size = 128;
  const auto& signal = record.signal;
  std::string line = record.fault.empty() ? "(" : "# (";
  line.reserve(usual_size + 2 * signal.data.size());
  append_seconds(line, record.time);
  line.append(") ").append(escape_word(record.device)).append(" ");
  if (!record.fault.empty()) return line + fault_text(record.fault);
  line.append(to_hex(signal.signal_id)).append(":").append(to_hex(signal.status)).append(":");
  line.append(to_hex(signal.sampling_frame)).append("#");
  append_payload(line, signal.data);
  return line;
}

LogRecord parse_log_line(std::string_view line) {
  if (!line.empty() && line.front() == '{') return parse_json_record(line);
  return is_fault_line(line) ? parse_text_fault(line) : parse_text_record(line);
}

std::string to_json_line(const LogRecord& record) {
  std::string line = "{\"time\":" + seconds_text(record.time) + ",\"device\":" + json_string(record.device);
  if (!record.fault.empty()) return line + ",\"fault\":" + json_string(record.fault) + "}";
  line += ",\"id\":\"" + to_hex(record.signal.signal_id) + "\",\"status\":" + std::to_string(record.signal.status);
  line += ",\"sampling_frame\":\"" + to_hex(record.signal.sampling_frame) + "\"";
  line += ",\"length\":" + std::to_string(record.signal.data.size()) + ",\"data\":\"";
  append_payload(line, record.signal.data);
  return line + "\"}";
}

std::string seconds_text(microseconds time) {
  if (time < microseconds(0)) return "-" + seconds_text(-time);
  std::string text;
  append_seconds(text, time);
  return text;
}

microseconds parse_seconds(std::string_view text) {
  const std::string_view whole = take_until(text, ".", "invalid time stamp: write (SECONDS.MICROS)");
  if (text.size() != micros_digits) throw InputError("invalid time stamp: six digits after the dot");
  return seconds(decimal(whole)) + microseconds(decimal(text));
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
