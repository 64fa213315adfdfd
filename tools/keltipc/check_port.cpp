#include "check_port.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "port_setup.h"

namespace keltipc {
namespace {

constexpr int write_flags = O_WRONLY | O_SYNC;

}  // namespace

std::string us_text(std::chrono::steady_clock::duration time) {
  return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(time).count()) + " us";
}

CheckedPort::~CheckedPort() {
  has_ended = true;
  watcher.join();
}

void CheckedPort::differs(const char* row, const std::string& measured) {
  table.answer(row, false, measured);
  throw CannotGoOn(std::string(row) + " differs", exit_failed);
}

/// On a thread of its own, because nothing else ends a system call that a driver lets hang.
void CheckedPort::watch() {
  for (; !has_ended; std::this_thread::sleep_for(milliseconds(20))) {
    if (Clock::now() < due.load()) continue;
    if (calling == reading) table.answer("poll in silence", false, "1 without a message");
    table.answer(calling, false, "does not return");
    ::_exit(table.end("a call to the driver does not return") ? exit_done : exit_failed);
  }
}

/// Calls take microseconds, and a busy machine may delay them. What takes five seconds more waits for something.
template <typename Call>
long CheckedPort::call(const char* row, const Call& system_call, milliseconds expected) {
  calling = row;
  due = Clock::now() + expected + std::chrono::seconds(5);
  const long result = static_cast<long>(system_call());
  due = Clock::time_point::max();
  call_text = result >= 0 ? std::to_string(result) + " bytes" : errno == EAGAIN ? "EAGAIN" : std::strerror(errno);
  return result;
}

void CheckedPort::open(const char* row, int flags, std::optional<Descriptor>& port) {
  const auto begin = Clock::now();
  const auto open_it = [&] { return port.emplace(open_device(options.device, flags, options.port.wait, 0)).get(); };
  if (call(row, open_it, std::chrono::seconds(options.port.wait + 10)) < 0) {
    port.reset();
    throw CannotGoOn("the device cannot be opened", exit_timed_out);
  }
  table.answer(row, true, us_text(Clock::now() - begin));
}

void CheckedPort::open_to_read() { open("open for receiving", O_RDONLY, reader); }
void CheckedPort::open_to_write() { open("open for sending", write_flags, writer); }

std::optional<Descriptor> CheckedPort::open_again() {
  std::optional<Descriptor> second;
  const int flags = reader ? O_RDONLY : write_flags;
  const auto open_it = [&] { return second.emplace(try_to_open_device(options.device, flags)).get(); };
  if (call("second open", open_it) < 0) second.reset();
  return second;
}

nlink_t CheckedPort::link_count() const {
  struct stat record {};
  return ::fstat((reader ? reader : writer)->get(), &record) == 0 ? record.st_nlink : 0;
}

bool CheckedPort::is_readable(milliseconds limit) {
  pollfd polled{reader->get(), POLLIN, 0};
  const auto poll_it = [&] { return ::poll(&polled, 1, static_cast<int>(limit.count())); };
  const long result = call("poll in silence", poll_it, limit);
  if (result < 0) differs("poll in silence", call_text);
  has_hung_up = (polled.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
  if (has_hung_up) table.answer("poll in silence", false, "1 for a hang-up");
  return result > 0;
}

std::string CheckedPort::read(const char* row, const Descriptor& port, std::size_t size) {
  std::string bytes(size, '\0');
  const long got = call(row, [&] { return ::read(port.get(), bytes.data(), size); });
  bytes.resize(static_cast<std::size_t>(std::max(got, 0L)));
  return bytes;
}

std::string CheckedPort::read_frame() {
  const auto begin = Clock::now();
  std::string bytes = read(reading, *reader, options.port.frame);
  longest_read = std::max(longest_read, Clock::now() - begin);
  if (bytes.empty()) table.answer("poll in silence", false, "1, then a read: " + call_text);
  if (bytes.size() != options.port.frame) differs("size of a read", call_text);
  ++received;
  return bytes;
}

bool CheckedPort::write(const std::string& bytes) {
  const auto write_it = [&] { return ::write(writer->get(), bytes.data(), bytes.size()); };
  return call("size of a write", write_it) == static_cast<long>(bytes.size());
}

}  // namespace keltipc
