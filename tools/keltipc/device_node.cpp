#include "device_node.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "escape.h"

namespace keltipc {
namespace {

/// The descriptor that the library's reader holds. Another one of our own might be refused, or get a queue of its own
/// from the driver that nobody reads.
int find_descriptor(dev_t device) {
  constexpr int most = 256;
  for (int fd = STDERR_FILENO + 1; fd < most; ++fd) {
    struct stat record {};
    if (::fstat(fd, &record) == 0 && S_ISCHR(record.st_mode) && record.st_rdev == device) return fd;
  }
  return -1;
}

}  // namespace

DeviceNode::DeviceNode(std::string device_path) : path(std::move(device_path)) {
  struct stat record {};
  is_known = ::stat(path.c_str(), &record) == 0;
  file_system = record.st_dev;
  inode = record.st_ino;
  device = record.st_rdev;
  descriptor = is_known ? find_descriptor(device) : -1;
}

std::optional<Ending> DeviceNode::loss() const {
  if (!is_there()) return Ending(exit_failed, quote(path) + " is gone");
  if (has_hung_up()) return Ending(exit_failed, quote(path) + " has hung up");
  return std::nullopt;
}

bool DeviceNode::is_there() const {
  struct stat record {};
  return is_known && ::stat(path.c_str(), &record) == 0 && record.st_dev == file_system && record.st_ino == inode &&
         record.st_rdev == device;
}

bool DeviceNode::has_hung_up() const {
  pollfd port{descriptor, 0, 0};
  return ::poll(&port, 1, 0) > 0 && port.revents != 0;
}

}  // namespace keltipc
