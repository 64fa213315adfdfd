#include "ipc/utils.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

using namespace ecu::vorn::ipc::utils;

TEST(ACharacterDevice, IsFoundThroughASymbolicLink) {
  const auto link = std::filesystem::path(testing::TempDir()) / ("kelt_utils_" + std::to_string(::getpid()));
  std::filesystem::create_symlink("/dev/null", link);
  EXPECT_TRUE(is_char_dev(link));
  std::filesystem::remove(link);
}

TEST(ACharacterDevice, IsNotAFileAFolderOrAMissingPath) {
  for (const char* const path : {"", "/proc/self/exe", "/dev", "/dev/null/x"})
    EXPECT_FALSE(is_char_dev(path)) << path;
}

TEST(AQueuingPort, IsAnOpenCharacterDevice) {
  for (const char* const path : {"/dev/null", "/proc/self/exe", "/dev"}) {
    const int fd = ::open(path, O_RDONLY);
    EXPECT_EQ(is_queuing_port_ok(fd), path == std::string("/dev/null")) << path;
    ::close(fd);
    EXPECT_FALSE(is_queuing_port_ok(fd)) << path << ", closed";
  }
}

TEST(AQueuingPort, WithANegativeDescriptorNeedsNoSystemCall) {
  errno = 42;
  EXPECT_FALSE(is_queuing_port_ok(-1));
  EXPECT_EQ(errno, 42);
}
