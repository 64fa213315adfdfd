#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>

#include "commands.h"
#include "common_options.h"
#include "exit_status.h"
#include "text/escape.h"
#include "unit_wait.h"
#include "units.h"
#include "whole_number.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::Systemd;

struct UnitOptions {
  std::vector<std::string> units;
  bool json = false;
  bool wait = false;
  unsigned int timeout = 90;
};

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

/// `ask` gives a unit's state, of either kind.
template <typename Ask>
int print_states(const UnitOptions& options, Ask ask) {
  Units units;
  int status = exit_done;
  for (const std::string& unit : options.units) {
    const auto state = ask(units, unit);
    const bool missing = may_be_missing(state) && !units.exists(unit);
    print_answer(options.json, "unit", unit, "state", missing ? not_found : Units::word(state));
    status = worse(status, missing ? int{exit_no_such_unit} : status_of(state));
  }
  units.failed();
  return status;
}

int print_active_states(const UnitOptions& options) {
  return print_states(options,
                      [](Units& units, const std::string& unit) { return units.get_unit_activestate(unit); });
}

int print_install_states(const UnitOptions& options) {
  return print_states(options,
                      [](Units& units, const std::string& unit) { return units.get_unit_installstate(unit); });
}

using Action = bool (Systemd::*)(const std::string&);

/// Queues a job for each unit, the others too where one is refused; then waits for those that were queued.
int act(const UnitOptions& options, Action action, Job::Kind kind) {
  Units units;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.timeout);
  std::optional<JobResults> results;
  if (options.wait) results.emplace();
  int status = exit_done;
  std::vector<Job> queued;
  for (const std::string& unit : options.units) {
    const bool had_failed = options.wait && units.get_unit_activestate(unit) == Systemd::ACTIVE_STATE_FAILED;
    const bool taken = (units.*action)(unit);
    if (taken && options.wait) queued.push_back({kind, unit, had_failed});
    if (options.json) print_answer(true, "unit", unit, "job", taken ? "queued" : "refused");
    if (!taken) status = worse(status, units.took_for_missing(unit) ? exit_no_such_unit : exit_failed);
  }
  for (const Job& job : queued) status = worse(status, wait_for_job(units, *results, job, deadline));
  units.failed();
  return status;
}

CLI::App* add(CLI::App& group, const std::string& name, const std::string& help, UnitOptions& options) {
  CLI::App* const command = group.add_subcommand(name, help);
  command->add_option("UNIT", options.units, "Full names, \"radio.service\"")
      ->required()
      ->check([](const std::string& unit) {
        return unit.empty() ? std::string("a unit's name is empty") : std::string();
      });
  command->add_flag("--json", options.json, "One JSON object a line");
  return command;
}

void add_wait(CLI::App& command, UnitOptions& options, const std::string& until) {
  CLI::Option* const wait = command.add_flag("--wait", options.wait, "Wait until each unit is " + until);
  command.add_option("--timeout", options.timeout, "Wait no longer than that; then status 124")
      ->transform(whole_number(0, 1'000'000))
      ->type_name("SECONDS")
      ->capture_default_str()
      ->needs(wait);
}

}  // namespace

void add_unit_command(CLI::App& app, Run& run) {
  CLI::App* const group = app.add_subcommand("unit", "Query and control systemd units");
  group->require_subcommand(1);
  group->footer(
      "Status: 0 done; 1 failed; 2 usage; 3 not active (state); 4 no such unit; 124 time-out.\nstart, stop, restart "
      "and reload are done when the manager has queued the job, unless "
      "they --wait.");
  auto options = std::make_shared<UnitOptions>();

  add(*group, "state",
      "Print whether units are active: active, inactive, activating, deactivating, failed, reloading", *options)
      ->callback([options, &run] { run = [options] { return print_active_states(*options); }; });
  add(*group, "install-state", "Print whether units start at boot: enabled, disabled, static, masked, linked, ...",
      *options)
      ->callback([options, &run] { run = [options] { return print_install_states(*options); }; });

  const auto add_action = [&](const char* name, const char* help, Action action, Job::Kind kind) {
    CLI::App* const command = add(*group, name, help, *options);
    command->callback([=, &run] { run = [=] { return act(*options, action, kind); }; });
    return command;
  };
  add_wait(*add_action("start", "Start units", &Systemd::start_unit, Job::start), *options, "active");
  add_wait(*add_action("stop", "Stop units", &Systemd::stop_unit, Job::stop), *options, "stopped");
  add_action("restart", "Restart units", &Systemd::restart_unit, Job::start);
  add_action("reload", "Make units read their configuration again", &Systemd::reload_unit, Job::start);
}

}  // namespace keltipc
