#include "unit_wait.h"

#include <optional>
#include <thread>

#include "common_options.h"
#include "exit_status.h"
#include "text/escape.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::Systemd;
using std::chrono::steady_clock;

/// `ends`: the exit status that a state ends the wait with, if it does.
template <typename Ends>
int wait_for_state(Units& units, const std::string& unit, steady_clock::time_point deadline, Ends ends) {
  while (true) {
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
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

}  // namespace

int wait_until_started(Units& units, const std::string& unit, steady_clock::time_point deadline) {
  bool was_under_way = false;
  return wait_for_state(units, unit, deadline, [&](Systemd::ActiveState state) -> std::optional<int> {
    if (state == Systemd::ACTIVE_STATE_ACTIVE || state == Systemd::ACTIVE_STATE_RELOADING) return exit_done;
    if (state == Systemd::ACTIVE_STATE_FAILED) return exit_failed;
    // One that does its work and ends is never active; before the job runs it is inactive too.
    if (state == Systemd::ACTIVE_STATE_INACTIVE && was_under_way) return exit_done;
    was_under_way = was_under_way || state != Systemd::ACTIVE_STATE_INACTIVE;
    return std::nullopt;
  });
}

int wait_until_stopped(Units& units, const std::string& unit, steady_clock::time_point deadline) {
  return wait_for_state(units, unit, deadline, [](Systemd::ActiveState state) -> std::optional<int> {
    if (state == Systemd::ACTIVE_STATE_INACTIVE) return exit_done;
    if (state == Systemd::ACTIVE_STATE_FAILED) return exit_failed;
    return std::nullopt;
  });
}

}  // namespace keltipc
