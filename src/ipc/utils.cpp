#include "ipc/utils.h"

#include <sys/stat.h>

namespace ecu::vorn::ipc::utils {

bool is_char_dev(const std::string& path) {
  struct stat record {};
  if (::stat(path.c_str(), &record) == -1) return false;
  return S_ISCHR(record.st_mode);
}

bool is_queuing_port_ok(int fd) {
  if (fd < 0) return false;
  struct stat record {};
  if (::fstat(fd, &record) == -1) return false;
  // After the node was removed, the file descriptor stays open. Whether anybody receives what is written is up to the
  // driver.
  return S_ISCHR(record.st_mode) && record.st_nlink != 0;
}

}  // namespace ecu::vorn::ipc::utils
