#include "ipc/utils.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace ecu::vorn::ipc::utils {
namespace {

TEST(AQueuingPort, IsALiveCharacterDeviceByItsPathAndByItsDescriptor) {
  const auto folder = std::filesystem::path(testing::TempDir()) / ("kelt_utils_" + std::to_string(::getpid()));
  std::filesystem::create_directory(folder);
  std::filesystem::create_symlink("/dev/null", folder / "link");
  std::filesystem::create_symlink(folder / "nothing", folder / "dangling");
  const struct {
    std::string path;
    bool is_device;
    int error;
  } cases[] = {{folder / "link", true, 42},
               {"", false, ENOENT},
               {folder, false, 42},
               {"/proc/self/exe", false, 42},
               {folder / "dangling", false, ENOENT},
               {"/dev/null/x", false, ENOTDIR}};
  for (const auto& [path, is_device, error] : cases) {
    const int fd = ::open(path.c_str(), O_RDONLY);
    errno = 42;
    EXPECT_EQ(is_char_dev(path), is_device) << path;
    EXPECT_EQ(errno, error) << path;
    EXPECT_EQ(is_queuing_port_ok(fd), is_device) << path;
    ::close(fd);
    EXPECT_FALSE(is_queuing_port_ok(fd)) << path;
    EXPECT_EQ(errno, EBADF);
  }
  std::filesystem::remove_all(folder);
  errno = 42;
  EXPECT_FALSE(is_queuing_port_ok(-1));
  EXPECT_EQ(errno, 42) << "a negative descriptor needs no system call";
}

}  // namespace
}  // namespace ecu::vorn::ipc::utils
