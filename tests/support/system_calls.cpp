// Plain definitions: a fortified header would bring inline ones of its own.
#undef _FORTIFY_SOURCE
#include "support/system_calls.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

namespace ecu::vorn::ipc::test {
namespace {

std::atomic<SystemCalls*> current{nullptr};  // sd-bus's threads ask, too
SystemCalls& now() { return *current.load(); }

bool is_ours(int fd) { return fd >= 1000 && current != nullptr; }
bool is_ours(const char* path) {
  return current != nullptr && (*path == '\0' || std::strncmp(path, "/dev/", 5) == 0);
}

bool is_paired() { return current != nullptr && now().message_pair[0] >= 0; }

int fail(int error) {
  errno = error;
  return -1;
}

/// Whether the call under way is one that `fault` picks. Notes one that is not.
[[gnu::format(printf, 2, 3)]] bool fails(long& result, const char* format, ...) {
  if (now().fault && now().fault(format, result)) return true;
  if (now().silent) return false;
  char text[120];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  now().notes.emplace_back(text);
  return false;
}

}  // namespace

SystemCalls::SystemCalls(Transcript& transcript) : notes(transcript) { current = this; }
SystemCalls::~SystemCalls() { current = nullptr; }

}  // namespace ecu::vorn::ipc::test

using namespace ecu::vorn::ipc::test;

// The system's own headers rename some of these by the build's flags (stat64, __stat64_time64, __nanosleep64, ...),
// for the library just as for these definitions, so the form that it calls is always the one that is defined here.
// What is not ours goes on to a sibling of the call.
extern "C" {

int stat(const char* path, struct stat* record) noexcept {
  if (!is_ours(path)) return ::fstatat(AT_FDCWD, path, record, 0);
  if (long result = 0; fails(result, "stat(%s)", path)) return static_cast<int>(result);
  if (now().sleeps < now().appears_after_sleeps) return fail(ENOENT);
  record->st_mode = now().path_mode;
  return 0;
}

int fstat(int fd, struct stat* record) noexcept {
  if (!is_ours(fd) && !is_paired()) return ::fstatat(fd, "", record, AT_EMPTY_PATH);
  if (long result = 0; fails(result, "fstat(%d)", fd)) return static_cast<int>(result);
  record->st_mode = now().path_mode;
  record->st_nlink = now().links;
  return 0;
}

int open(const char* path, int flags, ...) {
  if (!is_ours(path)) return ::openat(AT_FDCWD, path, flags, 0600);
  if (long result = 0; fails(result, "open(%s, 0x%x)", path, static_cast<unsigned int>(flags)))
    return static_cast<int>(result);
  if (now().failing_opens > 0 && now().failing_opens-- > 0) return fail(EBUSY);
  if (is_paired()) return ::dup(now().message_pair[(flags & O_ACCMODE) == O_WRONLY ? 0 : 1]);
  now().links = 1;
  now().open_descriptors.insert(now().next_descriptor);
  return now().next_descriptor++;
}

int nanosleep(const timespec* time, timespec* rest) {
  if (current == nullptr) return ::clock_nanosleep(CLOCK_REALTIME, 0, time, rest) == 0 ? 0 : -1;
  if (long result = 0; fails(result, "nanosleep(%lld.%09ld, %s)", static_cast<long long>(time->tv_sec),
                             static_cast<long>(time->tv_nsec), rest == nullptr ? "null" : "rest"))
    return static_cast<int>(result);
  ++now().sleeps;
  return 0;
}

// Under another name: the system's declaration says that poll only writes to `ports`.
int poll_ports(pollfd* ports, nfds_t count, int timeout) __asm__("poll");
int poll_ports(pollfd* ports, nfds_t count, int timeout) {
  const timespec limit{timeout / 1000, timeout % 1000 * 1'000'000L};
  if (!is_ours(ports->fd)) return ::ppoll(ports, count, timeout < 0 ? nullptr : &limit, nullptr);
  if (long result = 0;
      fails(result, "poll(%d:%d, %d, %d)", ports->fd, ports->events, static_cast<int>(count), timeout))
    return static_cast<int>(result);
  if (now().events.empty()) return fail(EINTR);
  const SystemCalls::Event event = std::move(now().events.front());
  now().events.pop_front();
  if (event.meanwhile) event.meanwhile();
  now().arrived = event.bytes;
  if (event.ready != 0) ports->revents = event.bytes.empty() ? POLLHUP : POLLIN;
  return event.ready;
}

ssize_t read(int fd, void* buffer, size_t size) {
  iovec whole{buffer, size};
  if (!is_ours(fd)) return ::readv(fd, &whole, 1);
  if (long result = 0; fails(result, "read(%d, %d)", fd, static_cast<int>(size))) return result;
  const std::string& bytes = now().arrived;
  std::memcpy(buffer, bytes.data(), std::min(size, bytes.size()));
  return bytes.empty() ? fail(EIO) : static_cast<ssize_t>(bytes.size());
}

ssize_t write(int fd, const void* buffer, size_t size) {
  iovec whole{const_cast<void*>(buffer), size};
  if (!is_ours(fd)) return ::writev(fd, &whole, 1);
  if (long result = 0; fails(result, "write(%d, %d)", fd, static_cast<int>(size))) return result;
  now().on_write(static_cast<const char*>(buffer), size);
  return now().write_result == 0 ? static_cast<ssize_t>(size) : now().write_result;
}

int close(int fd) {
  if (!is_ours(fd)) return static_cast<int>(::syscall(SYS_close, fd));
  if (!now().silent) now().notes.push_back("close(" + std::to_string(fd) + ")");
  return now().open_descriptors.erase(fd) == 1 ? 0 : fail(EBADF);
}

// What a fortified build calls instead.
#if defined(__USE_FILE_OFFSET64)
int open_checked(const char* path, int flags) __asm__("__open64_2");
#else
int open_checked(const char* path, int flags) __asm__("__open_2");
#endif
ssize_t read_checked(int fd, void* buffer, size_t size, size_t room) __asm__("__read_chk");
int poll_checked(pollfd* ports, nfds_t count, int timeout, size_t room) __asm__("__poll_chk");

int open_checked(const char* path, int flags) { return open(path, flags); }
ssize_t read_checked(int fd, void* buffer, size_t size, size_t /*room*/) { return read(fd, buffer, size); }
int poll_checked(pollfd* ports, nfds_t count, int timeout, size_t /*room*/) {
  return poll_ports(ports, count, timeout);
}

}  // extern "C"
