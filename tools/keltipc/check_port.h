#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>

#include "check_table.h"
#include "exit_status.h"
#include "port_setup.h"

namespace keltipc {

/// Why the rows that are left cannot be tried.
struct CannotGoOn {
  std::string reason;
  int status = exit_done;  ///< how the command ends; if this is success, the rows decide
};

/// "26 us"
inline std::string us_text(std::chrono::steady_clock::duration time) {
  return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(time).count()) + " us";
}

/// Calls a driver as the library does, and answers the rows that a call decides. A call that hangs is interrupted.
struct CheckedPort {
  using Clock = std::chrono::steady_clock;
  static constexpr const char* reading = "read after poll";

  explicit CheckedPort(const CheckOptions& given) : options(given), table(given) {
    struct sigaction interrupt {};  // Without SA_RESTART: the call that hangs ends with EINTR.
    interrupt.sa_handler = [](int /*signal*/) {};
    ::sigaction(SIGALRM, &interrupt, nullptr);
  }

  /// Answers the row and throws.
  [[noreturn]] void differs(const char* row, const std::string& measured) {
    table.answer(row, false, measured);
    throw CannotGoOn{std::string(row) + " differs"};
  }

  void open_to_read() { reader = open("open for receiving", O_RDONLY); }
  void open_to_write() { writer = open("open for sending", O_WRONLY | O_SYNC); }

  /// Non-blocking. None if the port refuses it.
  Descriptor open_again() {
    Descriptor port(-1);
    const int flags = reader ? O_RDONLY : O_WRONLY;
    call("second open", [&] { return (port = try_to_open_device(options.device, flags)).get(); });
    return port;
  }

  struct stat status() const {
    struct stat found {};
    ::fstat((reader ? reader : writer).get(), &found);
    return found;
  }

  /// Whether poll(2) returns 1.
  bool is_readable(unsigned int milliseconds) {
    pollfd polled{reader.get(), POLLIN, 0};
    const auto poll_it = [&] { return ::poll(&polled, 1, static_cast<int>(milliseconds)); };
    const long result = call("poll in silence", poll_it, milliseconds / 1000 + 1);
    if (result < 0) differs("poll in silence", call_text);
    has_hung_up = (polled.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    if (has_hung_up) table.answer("poll in silence", false, "1 for a hang-up");
    return result > 0;
  }

  std::string read(const char* row, const Descriptor& port, std::size_t size) {
    std::string bytes(size, '\0');
    const long got = call(row, [&] { return ::read(port.get(), bytes.data(), size); });
    bytes.resize(static_cast<std::size_t>(std::max(got, 0L)));
    return bytes;
  }

  /// After poll(2) has returned 1.
  std::string read_frame() {
    const auto begin = Clock::now();
    std::string bytes = read(reading, reader, options.port.frame);
    longest_read = std::max(longest_read, Clock::now() - begin);
    if (bytes.empty()) table.answer("poll in silence", false, "1, then a read: " + call_text);
    if (bytes.size() != options.port.frame) differs("size of a read", call_text);
    ++received;
    return bytes;
  }

  /// Whether all was written.
  bool write(const std::string& bytes) {
    const auto write_it = [&] { return ::write(writer.get(), bytes.data(), bytes.size()); };
    return call("size of a write", write_it) == static_cast<long>(bytes.size());
  }

  Descriptor open(const char* row, int flags) {
    const unsigned int wait = options.port.wait;
    Descriptor port(-1);
    const auto begin = Clock::now();
    call(
        row, [&] { return (port = open_device(options.device, flags, wait, 0)).get(); }, wait + 5);
    table.answer(row, static_cast<bool>(port), us_text(Clock::now() - begin));
    if (!port) throw CannotGoOn{"the device cannot be opened", exit_timed_out};
    return port;
  }

  /// Calls take microseconds, and a busy machine may delay them. What takes five seconds longer waits for something.
  template <typename Call>
  long call(const char* row, const Call& system_call, unsigned int expected_seconds = 0) {
    ::alarm(expected_seconds + 5);
    const auto result = static_cast<long>(system_call());
    ::alarm(0);
    call_text = result >= 0 ? std::to_string(result) + " bytes" : errno == EAGAIN ? "EAGAIN" : std::strerror(errno);
    if (result >= 0 || errno != EINTR) return result;
    if (row == reading) table.answer("poll in silence", false, "1 without a message");
    differs(row, "does not return");
  }

  const CheckOptions& options;
  CheckTable table;
  Descriptor reader{-1};
  Descriptor writer{-1};
  unsigned int received = 0;  ///< whole frames
  Clock::duration longest_read{0};
  bool has_hung_up = false;  ///< at the last poll(2)
  std::string call_text;     ///< what the last system call returned
};

}  // namespace keltipc
