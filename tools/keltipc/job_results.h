#pragma once

#include <systemd/sd-bus.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

namespace keltipc {

/// What has become of units' jobs since this object was made.
///
/// The tool asks the bus for it because nothing else tells: the library's part is done when a job is queued, and a
/// unit that does its work and ends is inactive before and after, with nothing left to see once the manager has
/// forgotten it. So this listens for the manager's signal JobRemoved, on a connection of its own.
class JobResults {
 public:
  /// Throws std::runtime_error, as `of` does, where the manager cannot be asked.
  JobResults();
  JobResults(const JobResults&) = delete;
  JobResults& operator=(const JobResults&) = delete;

  /// Nothing as long as the unit has a job. Else the result of the last one that ended, as
  /// org.freedesktop.systemd1(5) has it: "done", "failed", "dependency", "canceled", ...; "done" where none ended.
  std::optional<std::string> of(const std::string& unit_path);

 private:
  static int on_job_removed(sd_bus_message* signal, void* results, sd_bus_error* error) noexcept;
  bool has_job(const std::string& unit_path);
  void take_signals();

  std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> bus;
  std::map<std::string, std::string> last;  ///< by unit
};

}  // namespace keltipc
