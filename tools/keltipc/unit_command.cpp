#include "unit_command.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <stdexcept>

#include "common_options.h"
#include "exit_status.h"
#include "escape.h"
#include "units.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::Systemd;

constexpr const char* not_found = "not-found";

/// With several units the status is that of the one that is worst off.
int worse(int one, int other) {
  const auto rank = [](int status) {
    constexpr int by_rank[] = {exit_done, exit_not_active, exit_no_such_unit, exit_timed_out, exit_failed};
    return std::find(std::begin(by_rank), std::end(by_rank), status) - std::begin(by_rank);
  };
  return rank(one) < rank(other) ? other : one;
}

int status_of(Systemd::ActiveState state) {
  if (state == Systemd::ACTIVE_STATE_ERROR) return exit_failed;
  return state == Systemd::ACTIVE_STATE_ACTIVE || state == Systemd::ACTIVE_STATE_RELOADING ? exit_done
                                                                                           : exit_not_active;
}

int status_of(Systemd::InstallState state) { return state == Systemd::INSTALL_STATE_ERROR ? exit_failed : exit_done; }

/// What the manager says of a unit that it knows nothing of, among others.
bool may_be_missing(Systemd::ActiveState state) { return state == Systemd::ACTIVE_STATE_INACTIVE; }
bool may_be_missing(Systemd::InstallState state) { return state == Systemd::INSTALL_STATE_DISABLED; }

/// `ask` gives a unit's state, of either kind; where it could not, it may give that of a unit that is not there.
template <typename Ask>
int print_states(const UnitOptions& options, Ask ask) {
  Units units;
  int status = exit_done;
  for (const std::string& unit : options.units) {
    const unsigned int errors = units.error_count();
    const auto state = ask(units, unit);
    const bool failed = units.error_count() != errors;
    const bool missing = !failed && may_be_missing(state) && !units.exists(unit);
    print_answer(options.json, "unit", unit, "state", failed ? "error" : missing ? not_found : Units::word(state));
    status = worse(status, failed ? exit_failed : missing ? exit_no_such_unit : status_of(state));
  }
  units.failed();
  return status;
}

/// Where jobs cannot be watched, units are controlled all the same, and that nobody waits is the failure.
void watch_jobs(std::optional<JobResults>& results) {
  try {
    results.emplace();
  } catch (const std::runtime_error& error) {
    say(error.what());
  }
}

}  // namespace

int print_active_states(const UnitOptions& options) {
  return print_states(options,
                      [](Units& units, const std::string& unit) { return units.get_unit_activestate(unit); });
}

int print_install_states(const UnitOptions& options) {
  return print_states(options,
                      [](Units& units, const std::string& unit) { return units.get_unit_installstate(unit); });
}

int control_units(const UnitOptions& options, UnitAction action, Job::Kind kind) {
  Units units;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.timeout);
  std::optional<JobResults> results;
  if (options.wait) watch_jobs(results);
  int status = exit_done;
  std::vector<Job> queued;
  for (const std::string& unit : options.units) {
    const bool had_failed = results && units.get_unit_activestate(unit) == Systemd::ACTIVE_STATE_FAILED;
    const bool taken = (units.*action)(unit);
    if (taken && options.wait) queued.push_back({kind, unit, had_failed});
    if (options.json) print_answer(true, "unit", unit, "job", taken ? "queued" : "refused");
    if (!taken) status = worse(status, units.took_for_missing(unit) ? exit_no_such_unit : exit_failed);
  }
  for (const Job& job : queued) {
    status = worse(status, results ? wait_for_job(units, *results, job, deadline) : int{exit_failed});
  }
  units.failed();
  return status;
}

}  // namespace keltipc
