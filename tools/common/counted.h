#pragma once

#include <cstdint>
#include <string>

namespace keltipc {

/// "1 signal", "2 signals"
inline std::string counted(std::uint64_t number, const char* one, const char* more) {
  return std::to_string(number) + " " + (number == 1 ? one : more);
}

}  // namespace keltipc
