#pragma once

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace keltipc {

/// A symbolic link, removed with the object if it is still the one that was made.
class Link {
 public:
  Link(std::string target_path, std::string link_path) : target(std::move(target_path)), path(std::move(link_path)) {
    if (::symlink(target.c_str(), path.c_str()) == 0) return;
    throw std::runtime_error("cannot make '" + path + "': " + std::strerror(errno));
  }
  ~Link() {
    std::array<char, PATH_MAX> found{};
    const ssize_t length = ::readlink(path.c_str(), found.data(), found.size());
    if (length > 0 && target == std::string(found.data(), static_cast<std::size_t>(length))) ::unlink(path.c_str());
  }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

 private:
  std::string target;
  std::string path;
};

}  // namespace keltipc
