#pragma once

#include <unistd.h>

#include <cerrno>
#include <system_error>
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

/// Owns what the system call named `call` returned. Throws std::system_error for -1.
inline Descriptor checked_descriptor(const char* call, int fd) {
  Descriptor owned(fd);
  if (!owned) throw std::system_error(errno, std::generic_category(), call);
  return owned;
}

}  // namespace keltipc
