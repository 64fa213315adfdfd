#pragma once

#include <cstddef>
#include <string>

namespace keltipc {

/// Prints the first messages on standard output.
class Trace {
 public:
  explicit Trace(std::size_t count) : left(count) {}

  void show(const std::string& message);

 private:
  std::size_t left;
};

}  // namespace keltipc
