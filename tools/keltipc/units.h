#pragma once

#include <string>
#include <vector>

#include "ipc/systemd.h"

namespace keltipc {

/// Systemd as the tool needs it: names as words, and whether a unit exists.
class Units : public ecu::vorn::ipc::Systemd {
 public:
  /// From here on the library's ERROR and CRITICAL lines go to standard error, and are counted.
  Units();
  ~Units() override;
  Units(const Units&) = delete;
  Units& operator=(const Units&) = delete;

  /// The unit's object on the bus; empty where the manager cannot be asked.
  std::string path(const std::string& unit);

  /// False where the manager says that there is no such unit; what cannot be asked is taken to exist.
  bool exists(const std::string& unit);

  /// Whether the last failure was that there is no such unit.
  bool took_for_missing(const std::string& unit);

  /// "active", "inactive", ...; "error" where it could not be read.
  static std::string word(ActiveState state);
  static std::string word(InstallState state);

  /// "multi-user" -> "multi-user.target"
  static std::string target_unit(const std::string& target);
  static bool is_service(const std::string& unit);

  /// How many ERROR and CRITICAL lines there have been.
  unsigned int error_count() const { return errors; }

  /// Whether anything has failed. Says once, where rights were what was missing, where to read on.
  bool failed();

 private:
  unsigned int errors = 0;
  bool any_refusal = false;
  std::string last_line;
};

/// One word a line, or with `json` one object a line: {"unit":"a.service","state":"active"}
void print_answer(bool json, const std::string& key, const std::string& name, const std::string& field,
                  const std::string& word);

}  // namespace keltipc
