#pragma once

#include <CLI/CLI.hpp>
#include <limits>

namespace keltipc {

/// A decimal number within bounds, leading zeros allowed. What CLI11 has takes "010" for eight.
CLI::Validator whole_number(unsigned long lowest, unsigned long highest = std::numeric_limits<unsigned int>::max());

/// The sizes of frames that there are, in bytes: 16, 32 and 4096.
CLI::Validator frame_size();

}  // namespace keltipc
