#pragma once

#include <systemd/sd-bus.h>

#include <cstdlib>
#include <string>

/// What sd-bus hands out, each released by its holder. Declared bus first, then value or reply, then error, they go
/// in the order error, reply, value, bus on every way out of a scope, an exception included. Arrays are taken apart
/// while they are copied, so they come last and go first.
namespace ecu::vorn::ipc {

/// A reference to the calling thread's default system bus. `r` is what sd_bus_default_system gave.
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

/// The reply to a method call; strings read from it are its own.
struct Reply {
  Reply() = default;
  ~Reply() { sd_bus_message_unref(message); }
  Reply(const Reply&) = delete;
  Reply& operator=(const Reply&) = delete;

  sd_bus_message* message = nullptr;
};

/// Freed after each call, a successful one too: sd-bus refuses to fill one that is not empty. Both strings may be
/// null, also where the call failed.
struct BusError {
  BusError() = default;
  ~BusError() { sd_bus_error_free(&error); }
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;

  sd_bus_error error{};
};

/// A string that sd-bus allocated for us.
struct BusString {
  BusString() = default;
  ~BusString() { std::free(string); }
  BusString(const BusString&) = delete;
  BusString& operator=(const BusString&) = delete;

  char* string = nullptr;
};

/// A null-terminated array of strings that sd-bus allocated for us; null where it is empty. Each entry is freed as
/// soon as `next` is asked for the one behind it.
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
