#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace keltipc {

/// The frame format has 16 bits for a signal's length.
constexpr std::size_t longest_payload = 65535;

/// Line ends count as blanks.
std::string_view without_blanks_around(std::string_view text);

bool is_hex_digit(char c);

/// "1F" -> 31. Empty for a prefix, a sign, a blank, an empty text or a number above `limit`.
std::optional<std::uint64_t> parse_hex(std::string_view text, std::uint64_t limit);

/// The same; throws InputError, which says what `name` must look like: "invalid identifier: up to 7 hex digits".
std::uint64_t parse_hex_field(std::string_view text, std::uint64_t limit, const char* name);

/// A payload: two digits a byte, with dots and blanks between bytes and blanks around them. Throws InputError.
///
///     "0aFF", "0a.ff", " 0a  ff "  ->  {0x0a, 0xff}
///     ""                           ->  {}
///     "0af", "0.a", "0a.", "0x0a"  ->  InputError, as for more than 65535 bytes
std::vector<char> parse_payload(std::string_view text);

/// 31 -> "1f"
std::string to_hex(std::uint64_t value);

void append_hex_byte(std::string& text, char byte);
void append_payload(std::string& text, const std::vector<char>& payload);

}  // namespace keltipc
