#pragma once

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

/// Names that come from outside, made safe for a line, a terminal and a JSON parser. Whole UTF-8 characters pass;
/// control characters (C1 ones included) and bytes that are not UTF-8 do not.
namespace keltipc {

/// One word without blanks, from which unescape_word gets the name back.
///
///     /dev/qp0   ->  /dev/qp0
///     /tmp/a b   ->  /tmp/a\x20b
///     C:\qp      ->  C:\x5cqp
std::string escape_word(std::string_view name);

/// Nothing if a backslash does not begin "\xHH".
std::optional<std::string> unescape_word(std::string_view word);

/// Blanks and backslashes stay: "a b\n" -> "a b\x0a"
std::string escape_text(std::string_view text);

/// For messages, in quotes and cut after 60 bytes: "5#zz" -> "'5#zz'"
std::string quote(std::string_view text);

/// A JSON string with its quotes. A byte that is not part of a printable character becomes \u00XX. A JSON library
/// would refuse such a byte, or replace it, so that two names could look the same.
///
///     say "a\n" -> "say \"a\u000a\""
std::string json_string(std::string_view text);

/// Names and values of strings: {{"unit", "a.service"}, {"state", "active"}} -> {"unit":"a.service","state":"active"}
using JsonFields = std::initializer_list<std::pair<const char*, std::string>>;
std::string json_object(JsonFields fields);

}  // namespace keltipc
