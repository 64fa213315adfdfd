// Without fortified headers, which bring inline definitions of their own.
#undef _FORTIFY_SOURCE
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <sstream>
#include <utility>

#include "support/interpose.h"

namespace ecu::vorn::ipc::test {
namespace {

std::atomic<SystemCalls*> current{nullptr};

bool is_ours(int fd) { return fd >= 1000 && current != nullptr; }
bool is_ours(const char* path) {
  return current != nullptr && (*path == '\0' || std::strncmp(path, "/dev/", 5) == 0);
}
bool is_paired() { return current != nullptr && current.load()->socket_pair[0] >= 0; }

template <typename... Pieces>
SystemCalls& noted(const Pieces&... pieces) {
  SystemCalls& calls = *current;
  if (calls.notes != nullptr) {
    std::ostringstream line;
    (line << ... << pieces) << ")";
    calls.notes->push_back(line.str());
  }
  return calls;
}

int fail(int error) {
  errno = error;
  return -1;
}

int fake_stat(const char* path, struct stat* record) {
  if (!is_ours(path)) return ::fstatat(AT_FDCWD, path, record, 0);
  const SystemCalls& calls = noted("stat(", path);
  if (calls.sleeps < calls.appears_after_sleeps) return fail(ENOENT);
  record->st_mode = calls.path_mode;
  return 0;
}

int fake_fstat(int fd, struct stat* record) {
  if (!is_ours(fd) && !is_paired()) return ::fstatat(fd, "", record, AT_EMPTY_PATH);
  const SystemCalls& calls = noted("fstat(", fd);
  record->st_mode = calls.path_mode;
  record->st_nlink = calls.links;
  return 0;
}

}  // namespace

SystemCalls::SystemCalls(Transcript* transcript) : notes(transcript) { current = this; }
SystemCalls::~SystemCalls() { current = nullptr; }

}  // namespace ecu::vorn::ipc::test

using namespace ecu::vorn::ipc::test;

// The system's headers rename some of these by the build's flags (stat64, __stat64_time64, __nanosleep64, ...), for
// the libraries and for these definitions alike. A call that is not ours goes to a sibling function.
extern "C" {

int stat(const char* path, struct stat* record) noexcept { return fake_stat(path, record); }
int fstat(int fd, struct stat* record) noexcept { return fake_fstat(fd, record); }
#if !__GLIBC_PREREQ(2, 33)
// Before glibc 2.33, stat and fstat were inline functions that called these.
int __xstat(int /*version*/, const char* path, struct stat* record) noexcept { return fake_stat(path, record); }
int __fxstat(int /*version*/, int fd, struct stat* record) noexcept { return fake_fstat(fd, record); }
#endif

int open(const char* path, int flags, ...) {
  if (!is_ours(path)) return ::openat(AT_FDCWD, path, flags, 0600);
  SystemCalls& calls = noted("open(", path, ", 0x", std::hex, flags);
  if (calls.failing_opens > 0 && calls.failing_opens-- > 0) return fail(EBUSY);
  if (is_paired()) return ::dup(calls.socket_pair[(flags & O_ACCMODE) == O_WRONLY ? 0 : 1]);
  calls.links = 1;
  calls.open_descriptors.insert(calls.next_descriptor);
  return calls.next_descriptor++;
}

int nanosleep(const timespec* time, timespec* rest) {
  if (current == nullptr) return ::clock_nanosleep(CLOCK_REALTIME, 0, time, rest) == 0 ? 0 : -1;
  ++noted("nanosleep(", time->tv_sec, " s ", time->tv_nsec, " ns").sleeps;
  return 0;
}

// Under another name, because the system's declaration says that poll only writes to `ports`.
int fake_poll(pollfd* ports, nfds_t count, int timeout) __asm__("poll");
int fake_poll(pollfd* ports, nfds_t count, int timeout) {
  const timespec limit{timeout / 1000, timeout % 1000 * 1'000'000L};
  if (!is_ours(ports->fd)) return ::ppoll(ports, count, timeout < 0 ? nullptr : &limit, nullptr);
  SystemCalls& calls = noted("poll(", ports->fd, ":", ports->events, ", ", count, ", ", timeout);
  if (calls.events.empty()) return fail(EINTR);
  const SystemCalls::Event event = std::move(calls.events.front());
  calls.events.pop_front();
  if (event.meanwhile) event.meanwhile();
  calls.arrived = event.bytes;
  if (event.ready != 0) ports->revents = event.bytes.empty() ? POLLHUP : POLLIN;
  return event.ready;
}

ssize_t read(int fd, void* buffer, size_t size) {
  iovec whole{buffer, size};
  if (!is_ours(fd)) return ::readv(fd, &whole, 1);
  const std::string& bytes = noted("read(", fd, ", ", size).arrived;
  std::copy_n(bytes.begin(), std::min(size, bytes.size()), static_cast<char*>(buffer));
  return bytes.empty() ? fail(EIO) : static_cast<ssize_t>(bytes.size());
}

ssize_t write(int fd, const void* buffer, size_t size) {
  iovec whole{const_cast<void*>(buffer), size};
  if (!is_ours(fd)) return ::writev(fd, &whole, 1);
  SystemCalls& calls = noted("write(", fd, ", ", size);
  calls.written.emplace_back(static_cast<const char*>(buffer), size);
  return calls.write_result == 0 ? static_cast<ssize_t>(size) : calls.write_result;
}

int close(int fd) {
  if (!is_ours(fd)) return static_cast<int>(::syscall(SYS_close, fd));
  return noted("close(", fd).open_descriptors.erase(fd) == 1 ? 0 : fail(EBADF);
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
  return fake_poll(ports, count, timeout);
}

}  // extern "C"
