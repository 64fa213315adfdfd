#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "ending.h"

namespace keltipc {

/// The node that a device was opened through, and the device behind it.
class DeviceNode {
 public:
  /// Right after the device was opened, and for as long as it is open.
  explicit DeviceNode(std::string device_path);

  /// Why nothing more can come: the node was removed, another device has taken its name, or the device has hung up.
  /// From any thread.
  std::optional<Ending> loss() const;

  const std::string path;

 private:
  bool is_there() const;
  bool has_hung_up() const;

  bool is_known;
  dev_t file_system = 0;
  ino_t inode = 0;
  dev_t device = 0;
  int descriptor;
};

}  // namespace keltipc
