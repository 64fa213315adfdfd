#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "escape.h"

namespace keltipc {

/// Where a path leads to, if it is a symbolic link; else empty.
inline std::string link_target(const std::string& path) {
  std::error_code error;
  return std::filesystem::read_symlink(path, error);
}

/// Removes a link that a killed simulator left. Throws std::runtime_error for anything else that is at the path.
inline void make_room(const std::string& path) {
  struct stat there {};
  if (::lstat(path.c_str(), &there) != 0) return;
  const std::string target = link_target(path);
  const bool is_stale = !target.empty() && ::stat(path.c_str(), &there) != 0 && errno == ENOENT;
  if (is_stale && ::unlink(path.c_str()) == 0) return;
  throw std::runtime_error(quote(path) + (target.empty() ? " exists already" : " is a link to " + quote(target)) +
                           ": remove it, or choose another path");
}

/// A symbolic link, removed with the object if it is still the one that was made.
class Link {
 public:
  Link(std::string target_path, std::string link_path) : target(std::move(target_path)), path(std::move(link_path)) {
    if (::symlink(target.c_str(), path.c_str()) == 0) return;
    throw std::runtime_error("cannot make " + quote(path) + ": " + std::strerror(errno));
  }
  ~Link() {
    if (link_target(path) == target) ::unlink(path.c_str());
  }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

 private:
  std::string target;
  std::string path;
};

}  // namespace keltipc
