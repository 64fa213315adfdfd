#pragma once

#include <exception>
#include <string>

#include "exit_status.h"

namespace keltipc {

/// How a dump ends. Thrown from `consume` it is the way out of the reader's loop.
class Ending : public std::exception {
 public:
  /// Without a sentence it ends quietly.
  explicit Ending(int exit_status, std::string reason = {}) : status(exit_status), sentence(std::move(reason)) {}
  const char* what() const noexcept override { return sentence.c_str(); }

  int status;
  std::string sentence;
};

}  // namespace keltipc
