#pragma once

#include <string>
#include <vector>

#include "commands.h"

namespace keltipc {

struct CheckRow;

/// The answers of `keltipc check`, each printed at once.
class CheckTable {
 public:
  explicit CheckTable(const CheckOptions& given);

  // Only the first answer to a row counts. A row that the mode does not have is passed over.
  void answer(const std::string& property, bool holds, const std::string& measured);
  void not_tried(const std::string& property, const std::string& reason);

  /// Gives this reason for all rows without an answer. Returns whether all needed rows hold; if not, names the others
  /// on standard error.
  bool end(const std::string& reason);

 private:
  void print(const std::string& property, const std::string& verdict, const std::string& measured);

  const CheckOptions& options;
  std::vector<const CheckRow*> unanswered;
  std::string failed;
  bool is_first = true;
};

}  // namespace keltipc
