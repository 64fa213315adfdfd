#pragma once

#include <systemd/sd-bus.h>

#include <cstdlib>
#include <cstring>

#include "log_line.h"

namespace ecu::vorn::ipc {

/// A null-terminated array of strings allocated by sd-bus; null if it is empty. Entries are freed while it is read.
struct BusStrings {
  /// Null at the end.
  const char* front() const { return array == nullptr ? nullptr : array[freed]; }
  void pop() { std::free(array[freed++]); }

  char** array = nullptr;
  std::size_t freed = 0;
};

// How an answer is released, together with the error: an array before it, what else there is after it.
inline void release(sd_bus_message* reply, sd_bus_error& error) {
  sd_bus_error_free(&error);
  sd_bus_message_unref(reply);
}

inline void release(char* string, sd_bus_error& error) {
  sd_bus_error_free(&error);
  std::free(string);
}

inline void release(BusStrings& strings, sd_bus_error& error) {
  while (strings.front() != nullptr) strings.pop();
  std::free(strings.array);
  sd_bus_error_free(&error);
}

/// One request to the calling thread's default system bus, and what sd-bus allocates for it. Releases that in a fixed
/// order on every path, also after an exception. `Answer` is sd_bus_message*, char* or BusStrings.
template <typename Answer>
struct BusRequest {
  /// Logs the reason if there is no bus.
  explicit BusRequest(const Logger& logger) : r(sd_bus_default_system(&bus)) {
    if (r < 0) log_line<Critical>(logger, "Unable to retrieve connection to DBus system bus: ", std::strerror(-r));
  }
  ~BusRequest() {
    if (r < 0) return;
    release(answer, error);
    sd_bus_unref(bus);
  }
  BusRequest(const BusRequest&) = delete;
  BusRequest& operator=(const BusRequest&) = delete;

  sd_bus* bus = nullptr;
  const int r;  ///< negative if there is no bus
  Answer answer{};
  sd_bus_error error{};  ///< both strings may be null, even if the request failed
};

}  // namespace ecu::vorn::ipc
