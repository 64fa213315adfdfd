#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/recorded_log.h"

/// Functions of libc and libsystemd that the test programs define themselves. The dynamic linker takes a program's
/// own definition first, for calls from the libraries too. A fake answers while its object lives; before and after
/// that, system calls reach the system.
namespace ecu::vorn::ipc::test {

/// One device in memory. Its descriptors are 1000, 1001 and so on; calls on other descriptors reach the system. No
/// call ever waits.
struct SystemCalls {
  /// Notes each call, if there is a transcript: "open(/dev/tx, 0x101001)".
  explicit SystemCalls(Transcript* transcript = nullptr);
  ~SystemCalls();

  // Opening.
  unsigned int appears_after_sleeps = 0;
  unsigned int failing_opens = 0;
  mode_t path_mode = S_IFCHR;
  nlink_t links = 1;  ///< 0: the node was removed; the next open sets it to 1
  std::set<int> open_descriptors;
  std::array<int, 2> socket_pair{-1, -1};  ///< if set, opening gives these real descriptors: to write, to read

  // Receiving. The reader meets these events in order; after the last one, poll fails.
  void frame(std::string bytes) { events.push_back({std::move(bytes), 1, {}}); }
  void hang_up() { events.push_back({"", 1, {}}); }  ///< POLLHUP, and the read fails
  void quiet(std::function<void()> meanwhile = {}) { events.push_back({"", 0, std::move(meanwhile)}); }

  // Sending.
  std::vector<std::string> written;
  ssize_t write_result = 0;  ///< 0: as many bytes as asked for

  // Internal to the fake.
  struct Event {
    std::string bytes;
    int ready;
    std::function<void()> meanwhile;
  };
  Transcript* notes;
  std::deque<Event> events;
  std::string arrived;
  unsigned int sleeps = 0;
  int next_descriptor = 1000;
};

/// The system bus, and a manager with one unit, in memory, also for replies that a real manager never gives. Systemd
/// must not be used without one.
struct FakeBus {
  explicit FakeBus(Transcript* transcript = nullptr);
  ~FakeBus();

  struct Failure {
    const char* name;     ///< of the D-Bus error; may be null
    const char* message;  ///< may be null
  };
  int connect_result = 1;
  std::optional<Failure> method_failure, property_failure;
  bool readable = true;  ///< whether replies hold an object path
  std::string unit_path = "/unit/a";
  std::string property = "active";
  std::vector<std::string> list = {"b.service", ""};  ///< an empty list is a null array, as sd-bus gives it

  Transcript* notes;
  int held = 0;  ///< connections, replies and errors that the library has not released yet
};

/// Allocations by C++ code of this thread, whichever library it is in.
struct Allocations {
  static long count();                ///< since the thread began
  static long live();                 ///< not freed yet
  static void fail_after(long more);  ///< the next but `more` throws std::bad_alloc, once
  static bool has_failed();           ///< whether that happened; also cancels it
};

}  // namespace ecu::vorn::ipc::test
