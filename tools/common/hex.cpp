#include "hex.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "input_error.h"

namespace keltipc {
namespace {

bool is_separator(char c) { return c == '.' || c == ' ' || c == '\t'; }

/// The value of each hex digit, 16 for other characters. A table, because logs are long.
constexpr std::array<unsigned char, 256> make_digit_values() {
  std::array<unsigned char, 256> values{};
  for (auto& value : values) value = 16;
  for (unsigned char i = 0; i < 10; ++i) values['0' + i] = i;
  for (unsigned char i = 10; i < 16; ++i) values['a' + i - 10] = values['A' + i - 10] = i;
  return values;
}

constexpr auto digit_values = make_digit_values();

void refuse_prefix(std::string_view text) {
  if (text.size() > 1 && text[0] == '0' && (text[1] | 0x20) == 'x') throw InputError("write it without 0x");
}

unsigned int digit_value(char c) {
  const unsigned int value = digit_values[static_cast<unsigned char>(c)];
  if (value > 15) throw InputError(quote({&c, 1}) + " is not a hex digit");
  return value;
}

char byte_at_front(std::string_view text) {
  const unsigned int high = digit_value(text.front());
  if (text.size() < 2 || is_separator(text[1])) throw InputError("odd number of hex digits");
  return static_cast<char>((high << 4U) | digit_value(text[1]));
}

void write_hex_byte(char* to, char byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(byte);
  to[0] = digits[value >> 4U];
  to[1] = digits[value & 0xFU];
}

}  // namespace

std::string_view without_blanks_around(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool is_hex_digit(char c) { return digit_values[static_cast<unsigned char>(c)] < 16; }

std::optional<std::uint64_t> parse_hex(std::string_view text, std::uint64_t limit) {
  std::uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value, 16);
  if (error != std::errc{} || stop != end || value > limit) return std::nullopt;
  return value;
}

std::uint64_t parse_hex_field(std::string_view text, std::uint64_t limit, const char* name) {
  refuse_prefix(text);
  if (const auto value = parse_hex(text, limit)) return *value;
  const std::size_t digits = to_hex(limit).size();
  throw InputError(std::string("invalid ") + name + ": up to " + std::to_string(digits) + " hex digits");
}

std::vector<char> parse_payload(std::string_view text) {
  std::vector<char> payload;
  text = without_blanks_around(text);
  refuse_prefix(text);
  payload.reserve(std::min(text.size() / 2, longest_payload));
  while (!text.empty()) {
    if (payload.size() == longest_payload) throw InputError("more than 65535 bytes");
    payload.push_back(byte_at_front(text));
    text.remove_prefix(2);
    if (text.empty() || !is_separator(text.front())) continue;
    while (!text.empty() && is_separator(text.front())) text.remove_prefix(1);
    if (text.empty()) throw InputError("no byte after the last dot");
  }
  return payload;
}

std::string to_hex(std::uint64_t value) {
  std::array<char, 16> digits{};
  const auto end = std::to_chars(digits.begin(), digits.end(), value, 16).ptr;
  return {digits.begin(), end};
}

void append_hex_byte(std::string& text, char byte) {
  text.resize(text.size() + 2);
  write_hex_byte(&text[text.size() - 2], byte);
}

void append_payload(std::string& text, const std::vector<char>& payload) {
  const std::size_t start = text.size();
  text.resize(start + 2 * payload.size());
  for (std::size_t i = 0; i < payload.size(); ++i) write_hex_byte(&text[start + 2 * i], payload[i]);
}

}  // namespace keltipc
