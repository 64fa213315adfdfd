// Without fortified headers, because they define some of these functions inline.
#undef _FORTIFY_SOURCE
#include <fcntl.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "support/interpose.h"

namespace ecu::vorn::ipc::test {
namespace {

FakePort* current = nullptr;

FakePort& noted(const char* call, std::size_t size) {
  FakePort& port = *current;
  if (port.notes != nullptr) port.notes->push_back(call + std::to_string(size));
  return port;
}

int fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

FakePort::FakePort(Transcript* transcript) : notes(transcript) { current = this; }
FakePort::~FakePort() { current = nullptr; }

}  // namespace ecu::vorn::ipc::test

using namespace ecu::vorn::ipc::test;

extern "C" {

// With 64-bit time, the system's header renames nanosleep, for the library and for this definition alike.
int nanosleep(const timespec* time, timespec* /*rest*/) {
  FakePort& port = noted("nanosleep ", static_cast<std::size_t>(time->tv_sec * 1000 + time->tv_nsec / 1'000'000));
  ++port.sleeps;
  if (port.during_sleep) port.during_sleep();
  return 0;
}

// Under another name, because the system's declaration says that poll only writes to `ports`.
int fake_poll(pollfd* ports, nfds_t count, int timeout) __asm__("poll");
int fake_poll(pollfd* ports, nfds_t /*count*/, int timeout) {
  FakePort& port = noted(ports->events == POLLIN ? "poll for input " : "poll ", static_cast<std::size_t>(timeout));
  if (port.events.empty()) return fail(EINTR);
  const FakePort::Event event = std::move(port.events.front());
  port.events.pop_front();
  if (event.meanwhile) event.meanwhile();
  port.arrived = event.bytes;
  return event.ready;
}

ssize_t read(int /*fd*/, void* buffer, size_t size) {
  const std::string& bytes = noted("read ", size).arrived;
  std::copy_n(bytes.begin(), std::min(size, bytes.size()), static_cast<char*>(buffer));
  return bytes.empty() ? fail(EIO) : static_cast<ssize_t>(bytes.size());
}

ssize_t write(int fd, const void* buffer, size_t size) {
  iovec whole{const_cast<void*>(buffer), size};
  if (fd == STDERR_FILENO) return ::writev(fd, &whole, 1);  // a log line that no test records
  FakePort& port = noted((::fcntl(fd, F_GETFL) & O_SYNC) == O_SYNC ? "synchronous write " : "write ", size);
  port.written.emplace_back(static_cast<const char*>(buffer), size);
  return port.write_result == 0 ? static_cast<ssize_t>(size) : port.write_result;
}

}  // extern "C"
