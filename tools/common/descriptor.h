#pragma once

#include <poll.h>
#include <unistd.h>

#include <utility>

namespace keltipc {

/// Owns a file descriptor; a negative number means none.
class Descriptor {
 public:
  explicit Descriptor(int owned) : fd(owned) {}
  ~Descriptor() {
    if (fd >= 0) ::close(fd);
  }
  Descriptor(Descriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd, other.fd);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  explicit operator bool() const { return fd >= 0; }
  int get() const { return fd; }

 private:
  int fd;
};

/// What poll(2) reports of one descriptor; 0 after the timeout, and when a signal was handled. -1: without a timeout.
inline short poll_one(int fd, short events, int timeout_ms) {
  pollfd one{fd, events, 0};
  return ::poll(&one, 1, timeout_ms) > 0 ? one.revents : short{0};
}

}  // namespace keltipc
