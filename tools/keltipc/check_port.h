#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "check_table.h"
#include "descriptor.h"
#include "exit_status.h"

namespace keltipc {

/// Why the rows that are left cannot be tried.
struct CannotGoOn : std::runtime_error {
  CannotGoOn(const std::string& reason, int exit_status) : std::runtime_error(reason), status(exit_status) {}
  int status;
};

/// "26 us"
std::string us_text(std::chrono::steady_clock::duration time);

/// Calls a driver as the library does, and answers the rows that a call decides. A call that does not return ends the
/// process, with status 1 and all rows answered.
class CheckedPort {
 public:
  using Clock = std::chrono::steady_clock;
  using milliseconds = std::chrono::milliseconds;

  CheckedPort(const CheckOptions& given, CheckTable& answers) : options(given), table(answers) {}
  ~CheckedPort();

  void open_to_read();
  void open_to_write();
  /// Another descriptor, non-blocking.
  std::optional<Descriptor> open_again();
  nlink_t link_count() const;

  /// Whether poll(2) returns 1.
  bool is_readable(milliseconds limit);
  /// After poll(2) has returned 1.
  std::string read_frame();
  std::string read(const char* row, const Descriptor& port, std::size_t size);
  /// Whether all was written.
  bool write(const std::string& bytes);

  /// Answers the row and throws.
  [[noreturn]] void differs(const char* row, const std::string& measured);

  std::optional<Descriptor> reader;
  std::optional<Descriptor> writer;
  unsigned int received = 0;  ///< whole frames
  Clock::duration longest_read{0};
  bool has_hung_up = false;  ///< at the last poll(2)
  std::string call_text;     ///< what the last system call returned

  static constexpr const char* reading = "read after poll";

 private:
  void watch();
  template <typename Call>
  long call(const char* row, const Call& system_call, milliseconds expected = milliseconds(0));
  void open(const char* row, int flags, std::optional<Descriptor>& port);

  const CheckOptions& options;
  CheckTable& table;
  const char* calling = "";  ///< the row that a call is about
  std::atomic<Clock::time_point> due{Clock::time_point::max()};
  std::atomic<bool> has_ended{false};
  std::thread watcher{[this] { watch(); }};
};

}  // namespace keltipc
