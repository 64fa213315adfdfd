#pragma once

#include <sys/types.h>

#include <string>

namespace keltipc {

/// The node that a device was opened through.
class DeviceNode {
 public:
  /// Right after the device was opened.
  explicit DeviceNode(std::string device_path);

  /// False when the node was removed, or another device has taken its name. From any thread.
  bool is_there() const;

  const std::string path;

 private:
  bool is_known;
  dev_t file_system = 0;
  ino_t inode = 0;
  dev_t device = 0;
};

}  // namespace keltipc
