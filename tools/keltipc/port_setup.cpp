#include "port_setup.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include "escape.h"
#include "input_error.h"
#include "logging/logging.h"
#include "say.h"

namespace keltipc {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds look_again(100);

}  // namespace

std::string why_not_opened(const std::string& device, int error) {
  const std::string reason = "cannot open " + quote(device) + ": " + std::strerror(error);
  if (error == EBUSY) return reason + " (who has it open? 'fuser -v " + escape_word(device) + "')";
  return error == EACCES ? reason + " (which group may? 'ls -lL " + escape_word(device) + "')" : reason;
}

Descriptor try_to_open_device(const std::string& device, int access, int more_flags) {
  struct stat record {};
  if (::stat(device.c_str(), &record) != 0) return Descriptor(-1);
  // Opening something else may block or have effects of its own.
  if (!S_ISCHR(record.st_mode)) throw InputError(device, "not a character device");
  return Descriptor(::open(device.c_str(), access | more_flags | O_NOCTTY | O_CLOEXEC));
}

Descriptor open_device(const std::string& device, int access, unsigned int seconds, int more_flags) {
  if (device.empty()) throw InputError(device, "no device is named");
  const auto deadline = steady_clock::now() + std::chrono::seconds(seconds);
  for (int said = 0;;) {
    Descriptor opened = try_to_open_device(device, access, more_flags);
    if (opened) return opened;
    const int error = errno;
    const bool is_late = steady_clock::now() >= deadline;
    const std::string for_how_long = is_late ? "" : "; trying for " + std::to_string(seconds) + " s";
    if (error != said) say(why_not_opened(device, error) + for_how_long);
    if (is_late) {
      if (seconds != 0) say("gave up on " + quote(device) + " after " + std::to_string(seconds) + " s");
      return Descriptor(-1);
    }
    said = error;
    std::this_thread::sleep_for(look_again);
  }
}

bool refuses_size(int error) { return error == EMSGSIZE || error == EINVAL; }

std::string device_error(int error) {
  return std::strerror(error) + std::string(refuses_size(error) ? " (is --frame right?)" : "");
}

void set_up_logging(int log_level, std::function<void(int level)> on_line) {
  namespace logging = ecu::vorn::logging;
  logging::set_log_level(std::max(log_level, notice_level));
  // The level alone does not hold back warnings and what is above them.
  logging::set_sink(
      [log_level, on_line = std::move(on_line)](int level, const std::string& module, const std::string& text) {
        const int saved = errno;
        on_line(level);
        if (level <= log_level) logging::stderr_sink(level, module, text);
        errno = saved;
      });
}

}  // namespace keltipc
