#include "ipc/utils.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

namespace ecu::vorn::ipc::utils {
namespace {

TEST(ACharacterDevice, IsToldFromAnythingElseByItsPath) {
  const auto folder = std::filesystem::path(testing::TempDir()) / ("kelt_utils_" + std::to_string(::getpid()));
  std::filesystem::create_directory(folder);
  std::filesystem::create_symlink("/dev/null", folder / "link");
  std::filesystem::create_symlink(folder / "nothing", folder / "dangling");
  const struct {
    std::string path;
    bool is_device;
    int error;
  } cases[] = {{"/dev/null", true, 42},
               {folder / "link", true, 42},
               {"", false, ENOENT},
               {folder, false, 42},
               {"/proc/self/exe", false, 42},
               {folder / "dangling", false, ENOENT},
               {"/dev/null/x", false, ENOTDIR}};
  for (const auto& one : cases) {
    errno = 42;
    EXPECT_EQ(is_char_dev(one.path), one.is_device) << one.path;
    EXPECT_EQ(errno, one.error) << one.path;
  }
  std::filesystem::remove_all(folder);
}

TEST(AQueuingPort, IsALiveCharacterDeviceByItsDescriptor) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_EQ(::unlockpt(master), 0);
  const int slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY);
  const int file = ::open("/proc/self/exe", O_RDONLY);
  EXPECT_TRUE(is_queuing_port_ok(slave));
  EXPECT_FALSE(is_queuing_port_ok(ends[0]));
  EXPECT_FALSE(is_queuing_port_ok(file));
  ::close(master);
  EXPECT_FALSE(is_queuing_port_ok(slave)) << "closing the master takes the slave's name away";
  for (const int fd : {slave, file, ends[0], ends[1]}) ::close(fd);
  EXPECT_FALSE(is_queuing_port_ok(slave));
  EXPECT_EQ(errno, EBADF);
  errno = 42;
  EXPECT_FALSE(is_queuing_port_ok(-1));
  EXPECT_EQ(errno, 42) << "a negative descriptor needs no system call";
}

}  // namespace
}  // namespace ecu::vorn::ipc::utils
