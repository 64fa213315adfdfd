#pragma once

#include <sys/types.h>

#include <string>

namespace keltipc {

/// Removes a link that leads nowhere. Throws std::runtime_error for anything else that is at the path.
void make_room(const std::string& path);

/// A symbolic link, removed with the object if it is still the one that was made. A child process removes it if this
/// process is killed: the link could soon lead to a terminal of somebody else. The child has the device open too, so
/// its name is not free before the link is gone. Make it in the only thread of a process.
class Link {
 public:
  /// Throws std::runtime_error.
  Link(std::string target_path, std::string link_path);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

 private:
  void remove() const;
  [[noreturn]] void remove_after(pid_t parent) const;

  std::string target;
  std::string path;
  pid_t child;
};

}  // namespace keltipc
