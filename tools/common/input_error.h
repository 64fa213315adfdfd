#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "escape.h"

namespace keltipc {

/// Input that is refused. A parser gives the reason alone; its caller knows where the text came from and names it.
class InputError : public std::runtime_error {
 public:
  explicit InputError(const std::string& reason) : std::runtime_error(reason) {}
  /// "'12#345': odd number of hex digits"
  InputError(std::string_view input, const std::string& reason) : InputError(quote(input) + ": " + reason) {}
};

/// About what stands in a file, or a file that cannot be read: the help of the command does not help.
class FileError : public InputError {
 public:
  using InputError::InputError;
};

/// What `parse` makes of `text`; an InputError names the text, and the option or place before it: "--frame-start: ".
template <typename Parsed>
Parsed parse_named(Parsed (*parse)(std::string_view), std::string_view text, const std::string& place = "") {
  try {
    return parse(text);
  } catch (const InputError& error) {
    throw InputError(place + quote(text) + ": " + error.what());
  }
}

}  // namespace keltipc
