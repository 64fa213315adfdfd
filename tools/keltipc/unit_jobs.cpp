#include "unit_jobs.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <stdexcept>

#include "escape.h"
#include "exit_status.h"
#include "job_monitor.h"
#include "say.h"

namespace keltipc {
namespace {

struct QueuedJob {
  std::string unit;
  std::uint32_t id;
};

int queue_job(UnitManager& manager, const UnitAction& action, const std::string& unit) {
  if ((manager.*action.request)(unit)) return exit_done;
  return manager.was_refused_as_missing(unit) ? exit_no_such_unit : exit_failed;
}

/// Queues jobs, and waits for them up to a deadline. All that the manager is asked counts.
class WaitingClient {
 public:
  WaitingClient(const JobOptions& given, const UnitAction& wanted)
      : options(given), action(wanted), monitor(std::chrono::seconds(given.timeout)) {}

  int run(const ListUnits& list) {
    int status = exit_done;
    try {
      monitor.subscribe();
      monitor.begin_request();
      std::vector<std::string> units;
      status = or_timed_out(list(manager, units));
      if (status != exit_done) return status;
      for (const std::string& unit : units) status = worse(status, or_timed_out(queue_known_job(unit)));
      for (const QueuedJob& job : jobs) status = worse(status, wait_for(job));
    } catch (const std::runtime_error& error) {
      say(error.what());
      status = worse(status, or_timed_out(exit_failed));
    }
    return status;
  }

 private:
  int or_timed_out(int status) const { return status == exit_failed && monitor.is_over() ? exit_timed_out : status; }

  /// Notes the job's number, which tells it from jobs that others queue.
  int queue_known_job(const std::string& unit) {
    monitor.begin_request();
    const int status = queue_job(manager, action, unit);
    if (status != exit_done) return status;
    monitor.note_reply();
    monitor.begin_request();
    const std::string path = manager.path(unit);
    if (path.empty()) return exit_failed;
    jobs.push_back({unit, monitor.find_job(path)});
    return exit_done;
  }

  int wait_for(const QueuedJob& job) {
    const auto result = monitor.wait_for_result(job.id);
    if (result == "done" || result == "skipped") return exit_done;
    const std::string reason =
        result ? ": " + explain(job.unit, *result) : " within " + std::to_string(options.timeout) + " s";
    // Whole, unlike in quote(), because the command is to be copied.
    say(quote(job.unit) + " was not " + action.participle + reason + "; see: systemctl status '" + job.unit + "'");
    return result ? exit_failed : exit_timed_out;
  }

  /// A job's result, as org.freedesktop.systemd1(5) names it, for people.
  std::string explain(const std::string& unit, const std::string& result) {
    if (result == "dependency") return "a unit that it requires failed";
    if (result == "invalid") return "it is not active";
    if (result == "assert") return "an assertion of the unit failed";
    if (result == "canceled") return "its job was cancelled";
    if (result == "timeout") return "it timed out";
    return result == "failed" ? explain_failure(unit) : result;
  }

  std::string explain_failure(const std::string& unit) {
    if (!has_suffix(unit, ".service") || monitor.is_over()) return "it failed";
    monitor.begin_request();
    const std::string cause = manager.service_result(unit);
    if (cause == "timeout") return "it timed out";
    return cause.empty() || cause == "success" ? "it failed" : "it failed (" + cause + ")";
  }

  const JobOptions& options;
  const UnitAction& action;
  UnitManager manager;
  JobMonitor monitor;
  std::vector<QueuedJob> jobs;
};

}  // namespace

int worse(int one, int other) {
  const auto rank = [](int status) {
    constexpr int by_rank[] = {exit_done, exit_not_active, exit_no_such_unit, exit_timed_out, exit_failed};
    return std::find(std::begin(by_rank), std::end(by_rank), status) - std::begin(by_rank);
  };
  return rank(one) < rank(other) ? other : one;
}

int run_jobs(const JobOptions& options, const UnitAction& action, const ListUnits& list) {
  if (options.wait) return WaitingClient(options, action).run(list);
  UnitManager manager;
  std::vector<std::string> units;
  int status = list(manager, units);
  if (status != exit_done) return status;
  for (const std::string& unit : units) status = worse(status, queue_job(manager, action, unit));
  return status;
}

}  // namespace keltipc
