#pragma once

#include <unistd.h>

#include <utility>

namespace keltipc {

/// Owns a file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int owned) : fd(owned) {}
  ~Descriptor() {
    if (fd >= 0) ::close(fd);
  }
  Descriptor(Descriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  explicit operator bool() const { return fd >= 0; }
  int get() const { return fd; }

 private:
  int fd;
};

}  // namespace keltipc
