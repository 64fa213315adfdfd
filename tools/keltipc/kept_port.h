#pragma once

#include <string>
#include <utility>

#include "descriptor.h"

namespace keltipc {

/// A port that is kept open, and opened again when it has gone and come back.
class KeptPort {
 public:
  /// `access_mode`: O_RDONLY or O_WRONLY
  KeptPort(std::string device_path, int access_mode, Descriptor opened)
      : name(std::move(device_path)), access(access_mode), device(std::move(opened)) {}

  const std::string& path() const { return name; }

  bool is_open() const { return static_cast<bool>(device); }
  int get() const { return device.get(); }  ///< negative while it is not open: poll(2) passes over it

  bool has_hung_up() const;

  /// What is wrong with the node in the file system; empty if the path still leads to the one that was opened.
  std::string node_fault() const;

  void close() { device = Descriptor(-1); }

  /// One attempt to open it again. Says why it failed, once for each reason.
  bool reopen();

 private:
  std::string name;
  int access;
  Descriptor device;
  int said = 0;  ///< the error number that the user was told
};

}  // namespace keltipc
