#include "kept_port.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "ipc/utils.h"
#include "port_setup.h"
#include "say.h"

namespace keltipc {

bool KeptPort::has_hung_up() const { return poll_one(device.get(), 0, 0) != 0; }

std::string KeptPort::node_fault() const {
  struct stat now {};
  struct stat opened {};
  if (::stat(name.c_str(), &now) != 0 || ::fstat(device.get(), &opened) != 0) {
    return errno == EIO ? std::string("has a read error: ") + std::strerror(errno) : "is gone";
  }
  const bool is_same = now.st_dev == opened.st_dev && now.st_ino == opened.st_ino && now.st_rdev == opened.st_rdev;
  return is_same ? "" : "is gone";
}

bool KeptPort::reopen() {
  // A regular file in its place, which a shell's ">" makes while the node is missing, is not the end of the wait.
  if (!ecu::vorn::ipc::utils::is_char_dev(name)) return false;
  device = try_to_open_device(name, access);
  if (!is_open() && errno != said) {
    said = errno;
    say(why_not_opened(name, said) + "; still trying");
  }
  if (is_open() && has_hung_up()) close();
  if (is_open()) said = 0;
  return is_open();
}

}  // namespace keltipc
