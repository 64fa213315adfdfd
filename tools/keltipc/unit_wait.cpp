#include "unit_wait.h"

#include <algorithm>
#include <optional>
#include <thread>

#include "common_options.h"
#include "exit_status.h"
#include "text/escape.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::Systemd;
using std::chrono::steady_clock;

constexpr std::chrono::milliseconds first_pause(5);
constexpr std::chrono::milliseconds longest_pause(100);
/// How long a unit that had failed before may go on looking so without having failed anew.
constexpr std::chrono::seconds old_failure(2);

/// `ends`: the exit status that a state ends the wait with, if it does.
template <typename Ends>
int wait_for_state(Units& units, const std::string& unit, steady_clock::time_point deadline, Ends ends) {
  for (auto pause = first_pause;; pause = std::min(2 * pause, longest_pause)) {
    const Systemd::ActiveState state = units.get_unit_activestate(unit);
    if (state == Systemd::ACTIVE_STATE_ERROR) return exit_failed;
    if (const std::optional<int> status = ends(state)) {
      if (*status == exit_failed) say(quote(unit) + " has failed");
      return *status;
    }
    if (steady_clock::now() >= deadline) {
      say(quote(unit) + " is still " + Units::word(state));
      return exit_timed_out;
    }
    std::this_thread::sleep_for(pause);
  }
}

}  // namespace

int wait_until_started(Units& units, const Job& job, steady_clock::time_point deadline) {
  const auto patience = steady_clock::now() + old_failure;
  bool was_under_way = false;
  return wait_for_state(units, job.unit, deadline, [&](Systemd::ActiveState state) -> std::optional<int> {
    if (state == Systemd::ACTIVE_STATE_ACTIVE || state == Systemd::ACTIVE_STATE_RELOADING) return exit_done;
    const bool changed = was_under_way || state != job.before || steady_clock::now() >= patience;
    if (state == Systemd::ACTIVE_STATE_FAILED) return changed ? std::optional<int>(exit_failed) : std::nullopt;
    // One that does its work and ends is never active; before the job runs it is inactive too.
    if (state == Systemd::ACTIVE_STATE_INACTIVE && was_under_way) return exit_done;
    was_under_way = was_under_way || state != Systemd::ACTIVE_STATE_INACTIVE;
    return std::nullopt;
  });
}

int wait_until_stopped(Units& units, const Job& job, steady_clock::time_point deadline) {
  return wait_for_state(units, job.unit, deadline, [&](Systemd::ActiveState state) -> std::optional<int> {
    if (state == Systemd::ACTIVE_STATE_INACTIVE) return exit_done;
    if (state == Systemd::ACTIVE_STATE_FAILED) return job.before == state ? exit_done : exit_failed;
    return std::nullopt;
  });
}

}  // namespace keltipc
