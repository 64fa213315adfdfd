#include "device_node.h"

#include <sys/stat.h>

#include <utility>

namespace keltipc {

DeviceNode::DeviceNode(std::string device_path) : path(std::move(device_path)) {
  struct stat record {};
  is_known = ::stat(path.c_str(), &record) == 0;
  file_system = record.st_dev;
  inode = record.st_ino;
  device = record.st_rdev;
}

bool DeviceNode::is_there() const {
  struct stat record {};
  return is_known && ::stat(path.c_str(), &record) == 0 && record.st_dev == file_system && record.st_ino == inode &&
         record.st_rdev == device;
}

}  // namespace keltipc
