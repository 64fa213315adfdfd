#include <sys/uio.h>

// Without this, each journal entry would name this file and line as its origin.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include <array>

#include "logging/logging.h"

namespace ecu::vorn::logging {
namespace {

iovec field(std::string& text) { return {text.data(), text.size()}; }

}  // namespace

void journal_sink(int level, const std::string& module, const std::string& text) {
  std::string message = "MESSAGE=" + text;
  std::string priority = "PRIORITY=" + std::to_string(level);
  std::string module_field = "KELT_MODULE=" + module;
  const std::array<iovec, 3> fields = {field(message), field(priority), field(module_field)};
  ::sd_journal_sendv(fields.data(), static_cast<int>(fields.size()));
}

}  // namespace ecu::vorn::logging
