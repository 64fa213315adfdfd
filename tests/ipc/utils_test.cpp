#include "ipc/utils.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace ecu::vorn::ipc::utils;

TEST(AQueuingPort, IsACharacterDevice) {
  for (const std::string path : {"/dev/null", "/proc/self/exe", "/dev", "", "/dev/null/x"}) {
    const int fd = ::open(path.c_str(), O_RDONLY);
    EXPECT_EQ(is_char_dev(path), path == "/dev/null") << path;
    EXPECT_EQ(is_queuing_port_ok(fd), path == "/dev/null") << path;
    ::close(fd);
    EXPECT_FALSE(is_queuing_port_ok(fd)) << path << ", closed";
  }
}

TEST(AQueuingPort, MayHaveATimeStampAfter2038) {
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
  ::unlockpt(master);
  const std::string path = ::ptsname(master);
  const timespec stamp{static_cast<std::time_t>(2180131200), 0}, stamps[] = {stamp, stamp};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), stamps, 0), 0);
  EXPECT_TRUE(is_char_dev(path) && is_queuing_port_ok(::open(path.c_str(), O_RDWR | O_NOCTTY)));
}
