#pragma once

#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "check_table.h"
#include "clock.h"
#include "exit_status.h"
#include "frame.h"
#include "input_error.h"
#include "port_setup.h"

namespace keltipc {

/// Calls take microseconds, and a busy machine may delay them. What takes that much longer waits for something.
constexpr std::chrono::seconds patience(5);

/// "26 us"
inline std::string us_text(std::chrono::microseconds time) { return std::to_string(time.count()) + " us"; }

/// Calls a driver as the library does, and answers the rows that a call decides. What it throws is an Outcome whose
/// sentence says why the rows that are left cannot be tried.
struct CheckedPort {
  explicit CheckedPort(const CheckOptions& given) : options(given), table(given) {}

  /// Answers the row and throws.
  [[noreturn]] void differs(const std::string& row, const std::string& measured) {
    table.answer(row, false, measured);
    throw Outcome{exit_failed, row + " differs"};
  }

  Descriptor open(const char* row, int flags) {
    Descriptor port(-1);
    const auto begin = steady_now();
    call([&] { return (port = open_device(options.device, flags, options.port.wait, 0)).get(); }, options.port.wait);
    table.answer(row, static_cast<bool>(port), port ? us_text(steady_now() - begin) : result);
    if (!port) throw Outcome{exit_timed_out, "the device cannot be opened"};
    return port;
  }

  struct stat status() const {
    struct stat found {};
    ::fstat((reader ? reader : writer).get(), &found);
    return found;
  }

  /// Whether poll(2) returns 1 within that many milliseconds.
  bool is_readable(unsigned int ms) {
    pollfd polled{reader.get(), POLLIN, 0};
    const long ready = call([&] { return ::poll(&polled, 1, static_cast<int>(ms)); }, ms / 1000 + 1);
    has_hung_up = (polled.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    if (ready < 0 || has_hung_up) table.answer("poll in silence", false, has_hung_up ? "1 for a hang-up" : result);
    if (ready < 0) throw Outcome{exit_failed, "poll: " + result};
    return ready > 0;
  }

  std::string read(const Descriptor& port, std::size_t size) {
    std::string bytes(size, '\0');
    const long got = call([&] { return ::read(port.get(), bytes.data(), size); });
    bytes.resize(static_cast<std::size_t>(std::max(got, 0L)));
    return bytes;
  }

  /// Asks for one frame, after poll(2) has returned 1.
  std::string read_message() {
    const auto begin = steady_now();
    std::string bytes = read(reader, options.port.frame);
    longest_read = std::max(longest_read, steady_now() - begin);
    if (!bytes.empty()) return bytes;
    if (has_hung_up) throw Outcome{exit_failed, "the port has hung up"};
    table.answer("poll in silence", false, "1, then a read: " + result);
    differs(has_returned ? "size of a read" : "read after poll", result);
  }

  std::string read_frame() {
    std::string bytes = read_message();
    if (bytes.size() != options.port.frame) differs("size of a read", result);
    ++received;
    return bytes;
  }

  /// Whether all was written.
  bool write(const std::string& bytes) {
    return call([&] { return ::write(writer.get(), bytes.data(), bytes.size()); }) == static_cast<long>(bytes.size());
  }

  /// Interrupts what takes too long.
  long call(const std::function<long()>& system_call, unsigned int expected_seconds = 0) {
    const auto begin = steady_now();
    ::alarm(expected_seconds + static_cast<unsigned int>(patience.count()));
    const long value = system_call();
    ::alarm(0);
    has_returned = value >= 0 || errno != EINTR || steady_now() - begin < patience;
    const char* const error = !has_returned ? "does not return" : errno == EAGAIN ? "EAGAIN" : std::strerror(errno);
    result = value < 0 ? error : std::to_string(value) + " bytes";
    return value;
  }

  const CheckOptions& options;
  const std::uint32_t identifier = options.send.empty() ? id_limit : parse_named(parse_frame_start_id, options.send);
  CheckTable table;
  Descriptor reader{-1};
  Descriptor writer{-1};
  unsigned int received = 0;  ///< whole frames
  std::chrono::microseconds longest_read{0};
  bool has_hung_up = false;   ///< at the last poll(2)
  bool has_returned = false;  ///< whether the last call ended by itself
  std::string result;         ///< of the last call: "16 bytes", "EAGAIN", "does not return"
};

}  // namespace keltipc
