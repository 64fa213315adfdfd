#include <algorithm>
#include <chrono>
#include <cstdint>
#include <stdexcept>

#include "commands.h"
#include "escape.h"
#include "exit_status.h"
#include "job_monitor.h"
#include "say.h"
#include "unit_manager.h"

namespace keltipc {
namespace {

constexpr const char* not_found = "not-found";
constexpr const char* unreadable = "error";

struct QueuedJob {
  std::string unit;
  std::uint32_t id;
};

int worse(int one, int other) {
  const auto rank = [](int status) {
    constexpr int by_rank[] = {exit_done, exit_not_active, exit_no_such_unit, exit_timed_out, exit_failed};
    return std::find(std::begin(by_rank), std::end(by_rank), status) - std::begin(by_rank);
  };
  return rank(one) < rank(other) ? other : one;
}

/// The property's word; "disabled" for an empty one, as the library has it.
std::string read_state(UnitManager& manager, const std::string& unit, const std::string& property) {
  const unsigned int errors = manager.error_count();
  const std::string path = manager.path(unit);
  if (path.empty()) return unreadable;
  const std::string word = manager.property(path, property);
  // The manager gives these for units that do not exist, too.
  const bool may_be_missing = word.empty() || word == "inactive";
  const std::string load_state = may_be_missing ? manager.property(path, "LoadState") : "";
  if (manager.error_count() != errors) return unreadable;
  if (load_state == not_found) return not_found;
  return word.empty() ? "disabled" : word;
}

/// `status_of` gives the exit status for the word of a unit that exists.
template <typename StatusOf>
int print_states(const UnitOptions& options, const std::string& property, const StatusOf& status_of) {
  UnitManager manager;
  int status = exit_done;
  for (const std::string& unit : options.units) {
    const std::string state = read_state(manager, unit, property);
    print_answer(options.json, {{"unit", unit}, {"state", state}});
    const int unit_status = state == unreadable  ? exit_failed
                            : state == not_found ? exit_no_such_unit
                                                 : status_of(state);
    status = worse(status, unit_status);
  }
  return status;
}

int queue_job(UnitManager& manager, const UnitOptions& options, const UnitAction& action, const std::string& unit) {
  const bool queued = (manager.*action.request)(unit);
  if (options.json) print_answer(true, {{"unit", unit}, {"job", queued ? "queued" : "refused"}});
  if (queued) return exit_done;
  return manager.was_refused_as_missing(unit) ? exit_no_such_unit : exit_failed;
}

/// A job's result, as org.freedesktop.systemd1(5) names it, for people.
std::string explain_result(const std::string& result) {
  if (result == "dependency") return "a unit that it requires failed";
  if (result == "invalid") return "it is not active";
  if (result == "assert") return "an assertion of the unit failed";
  return result;
}

int wait_for_job(JobMonitor& monitor, const UnitOptions& options, const UnitAction& action, const QueuedJob& job) {
  const auto result = monitor.wait_for_result(job.id);
  if (result == "done" || result == "skipped") return exit_done;
  const std::string complaint = quote(job.unit) + " was not " + action.participle;
  say(complaint + (result ? ": " + explain_result(*result) : " within " + std::to_string(options.timeout) + " s"));
  return result ? exit_failed : exit_timed_out;
}

/// Queues the job and notes its number, which tells it from jobs that others queue.
int queue_known_job(UnitManager& manager, JobMonitor& monitor, const UnitOptions& options, const UnitAction& action,
                    const std::string& unit, std::vector<QueuedJob>& jobs) {
  monitor.begin_request();
  const int status = queue_job(manager, options, action, unit);
  if (status != exit_done) return status;
  monitor.note_reply();
  monitor.begin_request();
  const std::string path = manager.path(unit);
  if (path.empty()) return exit_failed;
  jobs.push_back({unit, monitor.find_job(path)});
  return exit_done;
}

int queue_and_wait(UnitManager& manager, JobMonitor& monitor, const UnitOptions& options, const UnitAction& action) {
  int status = exit_done;
  try {
    std::vector<QueuedJob> jobs;
    monitor.subscribe();
    for (const std::string& unit : options.units) {
      const int queued = queue_known_job(manager, monitor, options, action, unit, jobs);
      status = worse(status, queued != exit_done && monitor.is_over() ? int{exit_timed_out} : queued);
    }
    for (const QueuedJob& job : jobs) status = worse(status, wait_for_job(monitor, options, action, job));
  } catch (const std::runtime_error& error) {
    say(error.what());
    status = worse(status, monitor.is_over() ? exit_timed_out : exit_failed);
  }
  return status;
}

}  // namespace

int print_active_states(const UnitOptions& options) {
  return print_states(options, "ActiveState", [](const std::string& state) {
    return state == "active" || state == "reloading" ? exit_done : exit_not_active;
  });
}

int print_install_states(const UnitOptions& options) {
  return print_states(options, "UnitFileState", [](const std::string&) { return exit_done; });
}

int control_units(const UnitOptions& options, const UnitAction& action) {
  UnitManager manager;
  if (options.wait) {
    JobMonitor monitor{std::chrono::seconds(options.timeout)};
    return queue_and_wait(manager, monitor, options, action);
  }
  int status = exit_done;
  for (const std::string& unit : options.units) status = worse(status, queue_job(manager, options, action, unit));
  return status;
}

}  // namespace keltipc
