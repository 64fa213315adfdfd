#include "time_range.h"

#include <ctime>
#include <string>

#include "input_error.h"
#include "log_record.h"

namespace keltipc {
namespace {

constexpr const char* complaint = "not a time: write @SECONDS, or UTC as in 2024-12-27T03:34:56.5Z";

/// "2024-12-27T03:34:56" -> "1735270496"
std::string utc_seconds(const std::string& text) {
  std::tm date{};
  const char* const end = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &date);
  if (end == nullptr || *end != '\0') throw InputError(complaint);
  return std::to_string(::timegm(&date));
}

}  // namespace

std::chrono::microseconds parse_time(std::string_view text) {
  const bool is_utc = !text.empty() && text.back() == 'Z';
  if (!is_utc && (text.empty() || text.front() != '@')) throw InputError(complaint);
  const std::string number(is_utc ? text.substr(0, text.size() - 1) : text.substr(1));
  const std::string whole = number.substr(0, number.find('.'));
  std::string digits = whole == number ? "0" : number.substr(whole.size() + 1);
  if (digits.empty() || digits.size() > 6) throw InputError(complaint);
  digits.append(6 - digits.size(), '0');
  const auto time = parse_seconds((is_utc ? utc_seconds(whole) : whole) + "." + digits);
  // strptime(3) also takes February 30, and fields that are shorter.
  if (is_utc && utc_text(time).compare(0, whole.size(), whole) != 0) throw InputError(complaint);
  return time;
}

}  // namespace keltipc
