#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "escape.h"

namespace keltipc {

/// Input that is refused before anything is done with it. Its sentence names it: "'12#345': an odd digit"
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  InputError(std::string_view input, const std::string& reason) : std::runtime_error(quote(input) + ": " + reason) {}
};

/// What is wrong with a part of an input; whoever knows the whole makes an InputError of it.
class BadText : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Runs `parse`, whose complaints are about `input`.
template <typename Parse>
auto parse_input(std::string_view input, const Parse& parse) {
  try {
    return parse();
  } catch (const BadText& fault) {
    throw InputError(input, fault.what());
  }
}

/// Runs `parse`, whose complaints are about that line.
template <typename Parse>
auto parse_line(std::size_t number, const Parse& parse) {
  try {
    return parse();
  } catch (const InputError& error) {
    throw InputError("line " + std::to_string(number) + ": " + error.what());
  }
}

}  // namespace keltipc
