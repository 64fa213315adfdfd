#include "ipc/utils.h"

#include <fcntl.h>
#include <gtest/gtest.h>
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
