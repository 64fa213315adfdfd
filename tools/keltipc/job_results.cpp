#include "job_results.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace keltipc {
namespace {

constexpr const char* manager = "org.freedesktop.systemd1";
constexpr const char* manager_path = "/org/freedesktop/systemd1";
constexpr const char* manager_interface = "org.freedesktop.systemd1.Manager";

/// What sd-bus gave, if it is no error.
int checked(int r) {
  if (r < 0) throw std::runtime_error(std::string("the jobs of units cannot be watched: ") + std::strerror(-r));
  return r;
}

sd_bus* open_bus() {
  sd_bus* bus = nullptr;
  checked(sd_bus_open_system(&bus));
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

JobResults::JobResults() : bus(open_bus(), sd_bus_flush_close_unref) {
  checked(sd_bus_match_signal(bus.get(), nullptr, manager, manager_path, manager_interface, "JobRemoved",
                              on_job_removed, this));
  checked(sd_bus_call_method(bus.get(), manager, manager_path, manager_interface, "Subscribe", nullptr, nullptr, ""));
}

/// The manager sends the signal before it says that there is no job: messages on one connection keep their order.
std::optional<std::string> JobResults::of(const std::string& unit_path) {
  const bool is_under_way = has_job(unit_path);
  take_signals();
  if (is_under_way) return std::nullopt;
  const auto found = last.find(unit_at(unit_path));
  return found == last.end() ? "done" : found->second;
}

int JobResults::on_job_removed(sd_bus_message* signal, void* results, sd_bus_error* /*error*/) noexcept {
  std::uint32_t id = 0;
  const char* job = nullptr;
  const char* unit = nullptr;
  const char* result = nullptr;
  const int r = sd_bus_message_read(signal, "uoss", &id, &job, &unit, &result);
  if (r > 0) static_cast<JobResults*>(results)->last[unit] = result;
  return r;
}

bool JobResults::has_job(const std::string& unit_path) {
  sd_bus_message* reply = nullptr;
  checked(sd_bus_get_property(bus.get(), manager, unit_path.c_str(), "org.freedesktop.systemd1.Unit", "Job", nullptr,
                              &reply, "(uo)"));
  const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> owner(reply, sd_bus_message_unref);
  std::uint32_t id = 0;
  const char* job = nullptr;
  checked(sd_bus_message_read(reply, "(uo)", &id, &job));
  return id != 0;
}

void JobResults::take_signals() {
  while (checked(sd_bus_process(bus.get(), nullptr)) > 0) continue;
}

}  // namespace keltipc
