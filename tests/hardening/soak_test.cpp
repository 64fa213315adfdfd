#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/descriptors.h"
#include "support/traffic.h"

// In place of a device: a socket pair that keeps messages. Opened for writing it is one end, for reading the other.
namespace {

int ends[2] = {-1, -1};

int as_device(struct stat* record) {
  record->st_mode = S_IFCHR;
  record->st_nlink = 1;
  return 0;
}

}  // namespace

extern "C" {
int stat(const char* /*path*/, struct stat* record) noexcept { return as_device(record); }
int fstat(int /*fd*/, struct stat* record) noexcept { return as_device(record); }
int open(const char* path, int flags, ...) {
  if (std::strcmp(path, "socket pair") != 0) return ::openat(AT_FDCWD, path, flags);
  return ::dup((flags & O_ACCMODE) == O_WRONLY ? ends[0] : ends[1]);
}
}

namespace ecu::vorn::ipc::test {
namespace {

#if defined(KELTIPC_SANITIZED)
constexpr bool is_sanitized = true;
#else
constexpr bool is_sanitized = false;
#endif

/// KELTIPC_SOAK_SIGNALS, else as many as an ordinary run has time for (a release check: 10^7).
std::uint32_t signal_count() {
  const char* const asked = std::getenv("KELTIPC_SOAK_SIGNALS");
  return asked == nullptr ? 50'000 : static_cast<std::uint32_t>(std::strtoul(asked, nullptr, 10));
}

std::size_t resident_pages() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident;
}

TEST(ManySignals, AllComeWholeAndInOrderAndMemoryAndDescriptorsStayFlat) {
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
  const std::ptrdiff_t descriptors = open_descriptors();
  std::size_t pages = 0;
  const Traffic traffic{signal_count(), 1, 16};
  std::uint32_t came = 0;
  {
    QueuePortWriter<8> writer;
    QueuePortReader<8> reader(std::make_unique<TrafficChecker>(traffic, came));
    ASSERT_TRUE(writer.open("socket pair") && reader.open("socket pair"));
    std::thread receiving([&] { reader.receive_data(); });
    writer.transmit_data(sampling_frame_start());
    IpcSignal signal{};
    for (std::uint32_t n = 0; n < traffic.count; ++n) {
      traffic.make(n, signal);
      writer.transmit_data(signal);
      if (n == traffic.count / 10) pages = resident_pages();
    }
    reader.stop();
    receiving.join();
  }
  EXPECT_EQ(came, traffic.count);
  EXPECT_EQ(open_descriptors(), descriptors);
  // Sanitizers keep what was freed for a while.
  EXPECT_TRUE(is_sanitized || resident_pages() <= pages + 256)
      << resident_pages() << " pages, and " << pages << " before";
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
