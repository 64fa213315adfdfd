#pragma once

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace keltipc {

/// Owns what a system call gave. Throws std::system_error for -1.
class Descriptor {
 public:
  explicit Descriptor(int owned) : fd(owned) {
    if (fd < 0) throw std::system_error(errno, std::generic_category());
  }
  ~Descriptor() { ::close(fd); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  operator int() const { return fd; }

 private:
  int fd;
};

}  // namespace keltipc
