#pragma once

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdlib>
#include <iomanip>
#include <limits>
#include <sstream>
#include <string>

#include "escape.h"

namespace keltipc {

/// A decimal number within bounds, leading zeros allowed. CLI11's own check reads "010" as octal.
inline CLI::Validator whole_number(unsigned long lowest,
                                   unsigned long highest = std::numeric_limits<unsigned int>::max()) {
  const std::string range = std::to_string(lowest) + " to " + std::to_string(highest);
  const auto check = [=](std::string& text) -> std::string {
    unsigned long value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end || value < lowest || value > highest) {
      return quote(text) + " is not a whole number from " + range;
    }
    text = std::to_string(value);
    return {};
  };
  return CLI::Validator(check, "");
}

/// An option whose value is a whole number; `unit` stands for it in the help.
template <typename Number>
CLI::Option* add_number(CLI::App& command, const char* name, const char* unit, Number& value,
                        const CLI::Validator& limits, const char* help) {
  return command.add_option(name, value, help)->transform(limits)->type_name(unit);
}

/// A number within bounds. CLI11's own check takes "nan" for one.
inline CLI::Validator number(double lowest, double highest) {
  const auto check = [=](const std::string& text) -> std::string {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (!text.empty() && *end == '\0' && value >= lowest && value <= highest) return {};
    std::ostringstream range;
    range << std::setprecision(15) << lowest << " to " << highest;
    return quote(text) + " is not a number from " + range.str();
  };
  return CLI::Validator(check, "");
}

/// The size of a port's frames: 16, 32 or 4096 bytes.
inline CLI::Validator frame_size() {
  const auto check = [](const std::string& text) -> std::string {
    if (text == "16" || text == "32" || text == "4096") return {};
    return quote(text) + " is not a frame size: 16, 32 or 4096";
  };
  return CLI::Validator(check, "");
}

}  // namespace keltipc
