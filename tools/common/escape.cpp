#include "escape.h"

#include <algorithm>
#include <cstdint>

#include "hex.h"

namespace keltipc {
namespace {

constexpr std::size_t longest_quote = 60;

std::size_t sequence_length(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  if (lead >= 0xF0 && lead < 0xF5) return 4;
  return 0;
}

bool is_overlong_or_not_a_character(std::uint32_t code, std::size_t length) {
  if (length == 3) return code < 0x800 || (code >= 0xD800 && code < 0xE000);
  return length == 4 && (code < 0x10000 || code > 0x10FFFF);
}

bool is_control(std::uint32_t code) { return code < 0x20 || (code >= 0x7F && code < 0xA0); }

/// The bytes of the UTF-8 character at the beginning of `text`; 0 for a control character and for invalid UTF-8.
std::size_t printable_length(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = sequence_length(lead);
  if (length == 0 || length > text.size()) return 0;
  std::uint32_t code = length == 1 ? lead : lead & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xC0U) != 0x80) return 0;
    code = (code << 6U) | (byte & 0x3FU);
  }
  return is_control(code) || is_overlong_or_not_a_character(code, length) ? 0 : length;
}

/// Copies printable characters. Writes those in `special`, and each other byte, as `prefix` and two hex digits.
std::string escape(std::string_view text, std::string_view special, std::string_view prefix) {
  const auto is_plain = [](char c) { return c > ' ' && c < 0x7F && c != '\\' && c != '"'; };
  if (std::all_of(text.begin(), text.end(), is_plain)) return std::string(text);  // Most names, and faster.
  std::string result;
  while (!text.empty()) {
    std::size_t length = printable_length(text);
    if (length == 0 || special.find(text.front()) != std::string_view::npos) {
      length = 1;
      result += prefix;
      append_hex_byte(result, text.front());
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  return result;
}

}  // namespace

std::string escape_word(std::string_view name) { return escape(name, " \\", "\\x"); }

std::optional<std::string> unescape_word(std::string_view word) {
  std::string name;
  while (!word.empty()) {
    if (word.front() != '\\') {
      name += word.front();
      word.remove_prefix(1);
      continue;
    }
    if (word.size() < 4 || word[1] != 'x' || !is_hex_digit(word[2]) || !is_hex_digit(word[3])) return std::nullopt;
    name += static_cast<char>(*parse_hex(word.substr(2, 2), 0xFF));
    word.remove_prefix(4);
  }
  return name;
}

std::string escape_text(std::string_view text) { return escape(text, "", "\\x"); }

std::string quote(std::string_view text) {
  const bool is_long = text.size() > longest_quote;
  return "'" + escape_text(text.substr(0, longest_quote)) + (is_long ? "...'" : "'");
}

std::string json_string(std::string_view text) {
  std::string quoted;
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return '"' + escape(quoted, "", "\\u00") + '"';
}

std::string json_object(JsonFields fields) {
  std::string text;
  for (const auto& [name, value] : fields) {
    text += (text.empty() ? "{" : ",") + json_string(name) + ":" + json_string(value);
  }
  return text + "}";
}

}  // namespace keltipc
