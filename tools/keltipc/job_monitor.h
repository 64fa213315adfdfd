#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace keltipc {

/// Follows jobs to their ends, up to a deadline.
///
/// The library returns when a job is queued, and the unit's state does not tell how the job ended: a oneshot unit is
/// inactive before and after, and the start of a stopped unit may have been cancelled. So this listens for the
/// manager's signal JobRemoved, which carries the job's result.
///
/// It holds the thread's default connection to the bus, so that the library's requests use it too and are bounded:
/// call `begin_request` before each.
class JobMonitor {
 public:
  explicit JobMonitor(std::chrono::seconds timeout);
  JobMonitor(const JobMonitor&) = delete;
  JobMonitor& operator=(const JobMonitor&) = delete;

  // All that follow throw std::runtime_error if the manager cannot be asked.

  /// Listens for the ends of jobs from here on.
  void subscribe();

  /// Lets the next request wait for its reply until the deadline. Throws after it.
  void begin_request();
  bool is_over() const;

  /// To be called when a request has queued a job, before the next request.
  void note_reply();

  /// The number of that job, which was for the unit with this object.
  std::uint32_t find_job(const std::string& unit_path);

  /// The job's result as org.freedesktop.systemd1(5) names it: "done", "failed", "dependency", "canceled", ...;
  /// nothing if it has not ended by the deadline.
  std::optional<std::string> wait_for_result(std::uint32_t job);

 private:
  using Clock = std::chrono::steady_clock;

  static int on_job_removed(sd_bus_message* signal, void* monitor, sd_bus_error* error) noexcept;
  void take_signals();

  Clock::time_point deadline;
  Clock::time_point last_request;
  std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> bus;
  std::map<std::uint32_t, std::string> results;
  std::map<std::string, std::uint32_t> ended;  ///< by unit, the first job that has ended since `note_reply`
};

}  // namespace keltipc
