#pragma once

#include <deque>
#include <optional>

#include "support/recorded_log.h"

/// Functions of libc and libsystemd that the test programs define themselves. The dynamic linker takes a program's
/// own definition first, for calls from the libraries too. A fake answers while its object lives.
namespace ecu::vorn::ipc::test {

/// What is behind each device that a test opens (usually /dev/null): it answers poll, read and write, and nanosleep
/// returns at once. Opening, closing and examining devices stay real.
struct FakePort {
  /// Notes poll, read and write in the transcript, if there is one.
  explicit FakePort(Transcript* transcript = nullptr);
  ~FakePort();

  // What the reader gets, in this order. After the last event, poll fails.
  void frame(std::string bytes) { events.push_back({std::move(bytes), 1, {}}); }
  void failed_read() { events.push_back({"", 1, {}}); }
  void quiet(std::function<void()> meanwhile = {}) { events.push_back({"", 0, std::move(meanwhile)}); }

  std::vector<std::string> written;
  ssize_t write_result = 0;  ///< 0: as many bytes as asked for

  unsigned int sleeps = 0;
  std::function<void()> during_sleep;

  // Internal to the fake.
  struct Event {
    std::string bytes;
    int ready;
    std::function<void()> meanwhile;
  };
  Transcript* notes;
  std::deque<Event> events;
  std::string arrived;
};

/// The system bus and its manager, which knows one unit: for replies that a real manager never gives. A program that
/// links the fakes must not use Systemd without this.
struct FakeBus {
  explicit FakeBus(Transcript& transcript);

  struct Failure {
    const char *name, *message;  ///< of the D-Bus error; may be null
  };
  int connect_result = 0;  ///< as for a thread that holds a connection already
  std::optional<Failure> method_failure, property_failure;
  bool readable = true;  ///< whether replies hold an object path
  std::string property = "active";
  /// An empty list is a null array, as sd-bus gives it; strings are null then, too.
  std::vector<std::string> list = {"b.service", "c", ".service"};

  Transcript& notes;
  int held = 0;  ///< connections, replies and errors that the library has not released yet
};

}  // namespace ecu::vorn::ipc::test
