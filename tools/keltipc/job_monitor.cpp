#include "job_monitor.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace keltipc {
namespace {

constexpr const char* manager = "org.freedesktop.systemd1";
constexpr const char* manager_path = "/org/freedesktop/systemd1";
constexpr const char* manager_interface = "org.freedesktop.systemd1.Manager";

/// Requests may take that long even if the timeout is shorter, or no job could be queued with a timeout of 0.
constexpr std::chrono::milliseconds shortest_request(500);

/// A result of sd-bus, unless it is an error.
int checked(int r, const char* complaint = "cannot ask the systemd manager: ") {
  if (r < 0) throw std::runtime_error(complaint + std::string(std::strerror(-r)));
  return r;
}

/// Rounded up, because 0 stands for the default timeout of sd-bus.
std::uint64_t microseconds_until(std::chrono::steady_clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::microseconds>(end - std::chrono::steady_clock::now());
  return static_cast<std::uint64_t>(std::max<std::int64_t>(left.count(), 1));
}

sd_bus* open_bus(std::chrono::steady_clock::time_point end) {
  // Opening sends a hello message, whose timeout can be set in no other way.
  ::setenv("SYSTEMD_BUS_TIMEOUT", (std::to_string(microseconds_until(end)) + "us").c_str(), 1);
  sd_bus* bus = nullptr;
  checked(sd_bus_default_system(&bus), "cannot connect to the system bus: ");
  return bus;
}

/// "/org/freedesktop/systemd1/unit/a_2eservice" -> "a.service"
std::string unit_at(const std::string& path) {
  char* unit = nullptr;
  checked(sd_bus_path_decode(path.c_str(), "/org/freedesktop/systemd1/unit", &unit));
  const std::unique_ptr<char, decltype(&std::free)> owner(unit, std::free);
  return unit == nullptr ? "" : unit;
}

}  // namespace

JobMonitor::JobMonitor(std::chrono::seconds timeout)
    : deadline(Clock::now() + timeout),
      last_request(std::max(deadline, Clock::now() + shortest_request)),
      bus(nullptr, sd_bus_flush_close_unref) {}

void JobMonitor::subscribe() {
  bus.reset(open_bus(last_request));
  checked(sd_bus_match_signal(bus.get(), nullptr, manager, manager_path, manager_interface, "JobRemoved",
                              on_job_removed, this));
  checked(sd_bus_call_method(bus.get(), manager, manager_path, manager_interface, "Subscribe", nullptr, nullptr, ""));
}

void JobMonitor::begin_request() {
  if (is_over()) throw std::runtime_error("cannot ask the systemd manager: out of time");
  checked(sd_bus_set_method_call_timeout(bus.get(), microseconds_until(last_request)));
}

bool JobMonitor::is_over() const { return Clock::now() >= last_request; }

void JobMonitor::note_reply() {
  // The messages in the queue came before the reply: they concern earlier jobs, such as one that ours has replaced.
  std::uint64_t queued = 0;
  while (checked(sd_bus_get_n_queued_read(bus.get(), &queued)) >= 0 && queued > 0) {
    checked(sd_bus_process(bus.get(), nullptr));
  }
  ended.clear();
}

std::uint32_t JobMonitor::find_job(const std::string& unit_path) {
  begin_request();
  sd_bus_message* reply = nullptr;
  checked(sd_bus_get_property(bus.get(), manager, unit_path.c_str(), "org.freedesktop.systemd1.Unit", "Job", nullptr,
                              &reply, "(uo)"));
  const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> owner(reply, sd_bus_message_unref);
  std::uint32_t job = 0;
  const char* path = nullptr;
  checked(sd_bus_message_read(reply, "(uo)", &job, &path));
  take_signals();
  // A unit has one job at a time. So the first that ended since ours was queued is ours; the Job property may already
  // name the next one.
  const auto first = ended.find(unit_at(unit_path));
  if (first != ended.end()) return first->second;
  if (job == 0) throw std::runtime_error("the systemd manager did not report the end of a job");
  return job;
}

std::optional<std::string> JobMonitor::wait_for_result(std::uint32_t job) {
  try {
    for (take_signals(); results.count(job) == 0; take_signals()) {
      if (Clock::now() >= deadline) return std::nullopt;
      checked(sd_bus_wait(bus.get(), microseconds_until(deadline)));
    }
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(std::string(error.what()) + "; the job may still run");
  }
  return results[job];
}

int JobMonitor::on_job_removed(sd_bus_message* signal, void* monitor, sd_bus_error* /*error*/) noexcept {
  std::uint32_t job = 0;
  const char* path = nullptr;
  const char* unit = nullptr;
  const char* result = nullptr;
  const int r = sd_bus_message_read(signal, "uoss", &job, &path, &unit, &result);
  if (r > 0) {
    auto* const self = static_cast<JobMonitor*>(monitor);
    self->results[job] = result;
    self->ended.emplace(unit, job);
  }
  return r;
}

void JobMonitor::take_signals() {
  while (checked(sd_bus_process(bus.get(), nullptr)) > 0) continue;
}

}  // namespace keltipc
