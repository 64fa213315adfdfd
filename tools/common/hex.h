#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keltipc {

/// What the frame format can tell the length of.
constexpr std::size_t longest_payload = 65535;

bool is_hex_digit(char c);

/// "1F" -> 31. Nothing for a prefix, a sign, a blank, an empty text or a number above `limit`.
std::optional<std::uint64_t> parse_hex(std::string_view text, std::uint64_t limit);

/// A payload: two digits a byte, dots and blanks between bytes, blanks around. Throws BadText.
///
///     "0aFF", "0a.ff", " 0a  ff "  ->  {0x0a, 0xff}
///     ""                           ->  {}
///     "0af", "0.a", "0a.", "0x0a"  ->  BadText, and so are more than 65535 bytes
std::vector<char> parse_payload(std::string_view text);

/// 31 -> "1f"
std::string to_hex(std::uint64_t value);

void append_hex_byte(std::string& text, char byte);
void append_payload(std::string& text, const std::vector<char>& payload);

}  // namespace keltipc
