#pragma once

#include <systemd/sd-bus.h>

#include <cstdlib>
#include <string>

/// Owners of what sd-bus allocates. Declare them in the order bus, value or reply, error: they are then released in
/// the order error, reply or value, bus on every path, also after an exception. An array is declared last and
/// released first, because it is freed while it is copied.
namespace ecu::vorn::ipc {

/// A reference to the calling thread's default system bus. `r` is the result of sd_bus_default_system.
struct Bus {
  Bus() : r(sd_bus_default_system(&bus)) {}
  ~Bus() {
    if (r >= 0) sd_bus_unref(bus);
  }
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  sd_bus* bus = nullptr;
  const int r;
};

/// The reply to a method call; it owns the strings read from it.
struct Reply {
  Reply() = default;
  ~Reply() { sd_bus_message_unref(message); }
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;

  sd_bus_message* message = nullptr;
};

/// A D-Bus error, freed after each call, even a successful one. Both strings may be null, even if the call failed.
struct BusError {
  BusError() = default;
  ~BusError() { sd_bus_error_free(&error); }
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;

  sd_bus_error error{};
};

/// A string allocated by sd-bus.
struct BusString {
  BusString() = default;
  ~BusString() { std::free(string); }
  BusString(const BusString&) = delete;
  BusString& operator=(const BusString&) = delete;

  char* string = nullptr;
};

/// A null-terminated array of strings allocated by sd-bus; null if it is empty. `next` frees the entry that it
/// returned before.
class BusStrings {
 public:
  explicit BusStrings(char** strings) : array(strings), entry(strings) {}
  ~BusStrings() {
    while (next() != nullptr) continue;
    std::free(array);
  }
  BusStrings(const BusStrings&) = delete;
  BusStrings& operator=(const BusStrings&) = delete;

  /// Null at the end.
  const char* next() {
    if (array == nullptr || *entry == nullptr) return nullptr;
    if (handed_out) std::free(*entry++);
    handed_out = true;
    return *entry;
  }

 private:
  char** const array;
  char** entry;
  bool handed_out = false;
};

}  // namespace ecu::vorn::ipc
