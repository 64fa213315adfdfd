#pragma once

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>

namespace kelttest {

/// A queuing port on which what one process writes another reads: the slave of a pseudo-terminal in raw mode,
/// readable when a whole frame is there. Destroying it removes the device.
class PtyLoopback {
 public:
  explicit PtyLoopback(unsigned int frame_size) : master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0) std::abort();
    path = ::ptsname(master);
    slave = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios raw{};
    ::tcgetattr(slave, &raw);
    ::cfmakeraw(&raw);
    raw.c_cc[VMIN] = static_cast<cc_t>(frame_size);
    raw.c_cc[VTIME] = 0;
    ::tcsetattr(slave, TCSANOW, &raw);
    copier = std::thread([this] { copy(); });
  }
  ~PtyLoopback() {
    ended = true;
    copier.join();
    ::close(slave);
    ::close(master);
  }
  PtyLoopback(const PtyLoopback&) = delete;
  PtyLoopback& operator=(const PtyLoopback&) = delete;

  std::string path;
  int slave = -1;  ///< held, so that what was written before somebody reads is kept

 private:
  void copy() {
    std::array<char, 4096> chunk{};
    ssize_t held = 0;
    while (!ended) {
      // Deliberate: nothing is read while something is held. A port with full queues blocks its writers.
      pollfd port{master, static_cast<short>(held > 0 ? POLLOUT : POLLIN), 0};
      if (::poll(&port, 1, 20) <= 0) continue;
      if (held <= 0) {
        held = ::read(master, chunk.data(), chunk.size());
      } else if (const ssize_t put = ::write(master, chunk.data(), static_cast<std::size_t>(held)); put > 0) {
        held -= put;
        std::copy_n(chunk.begin() + put, held, chunk.begin());
      }
    }
  }

  int master;
  std::atomic<bool> ended{false};
  std::thread copier;
};

}  // namespace kelttest
