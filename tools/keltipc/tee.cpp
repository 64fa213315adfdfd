#include "tee.h"

#include <unistd.h>

#include <cerrno>

namespace keltipc {

int Tee::advance() {
  while (is_busy()) {
    const ssize_t done = ::write(port.get(), message.data() + passed, message.size() - passed);
    if (done > 0) {
      passed += static_cast<std::size_t>(done);
    } else if (done == 0 || errno == EAGAIN) {
      return 0;
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

void Tee::finish_within(std::chrono::milliseconds limit) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + limit;
  while (is_busy() && port.is_open() && advance() == 0 && is_busy()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return;
    poll_one(port.get(), POLLOUT, static_cast<int>(left));
  }
}

}  // namespace keltipc
