#include "unit_wait.h"

#include <algorithm>
#include <optional>
#include <thread>

#include "common_options.h"
#include "exit_status.h"
#include "escape.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::Systemd;
using std::chrono::steady_clock;

constexpr std::chrono::milliseconds first_pause(5);
constexpr std::chrono::milliseconds longest_pause(100);

int fail(const Job& job, const std::string& how) {
  say(quote(job.unit) + how);
  return exit_failed;
}

/// The exit status for a job that has ended so; nothing where it did what it was to do.
std::optional<int> status_of_result(const Job& job, const std::string& result) {
  if (result == "done" || result == "skipped") return std::nullopt;
  if (result == "failed") return fail(job, " has failed");
  return fail(job, (job.kind == Job::start ? " was not started: " : " was not stopped: ") + result);
}

/// The exit status for a unit in that state that has no job any longer; nothing as long as it is on its way.
std::optional<int> status_of_state(const Job& job, Systemd::ActiveState state) {
  switch (state) {
    case Systemd::ACTIVE_STATE_ERROR:
      return exit_failed;
    case Systemd::ACTIVE_STATE_INACTIVE:
      return exit_done;
    case Systemd::ACTIVE_STATE_FAILED:
      return job.kind == Job::stop && job.had_failed ? int{exit_done} : fail(job, " has failed");
    case Systemd::ACTIVE_STATE_ACTIVE:
    case Systemd::ACTIVE_STATE_RELOADING:
      return job.kind == Job::start ? std::optional<int>(exit_done) : std::nullopt;
    default:
      return std::nullopt;
  }
}

std::optional<int> look_at(Units& units, JobResults& results, const Job& job) {
  const std::string path = units.path(job.unit);
  if (path.empty()) return exit_failed;
  const std::optional<std::string> result = results.of(path);
  if (!result) return std::nullopt;
  const std::optional<int> failure = status_of_result(job, *result);
  return failure ? failure : status_of_state(job, units.get_unit_activestate(job.unit));
}

}  // namespace

int wait_for_job(Units& units, JobResults& results, const Job& job, steady_clock::time_point deadline) {
  for (auto pause = first_pause;; pause = std::min(2 * pause, longest_pause)) {
    if (const std::optional<int> status = look_at(units, results, job)) return *status;
    if (steady_clock::now() >= deadline) {
      say(quote(job.unit) + " is still " + Units::word(units.get_unit_activestate(job.unit)));
      return exit_timed_out;
    }
    std::this_thread::sleep_for(pause);
  }
}

}  // namespace keltipc
