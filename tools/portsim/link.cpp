#include "link.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "escape.h"

namespace keltipc {
namespace {

/// Where a path leads to, if it is a symbolic link; else empty.
std::string link_target(const std::string& path) {
  std::error_code error;
  return std::filesystem::read_symlink(path, error);
}

}  // namespace

void make_room(const std::string& path) {
  struct stat there {};
  if (::lstat(path.c_str(), &there) != 0) return;
  const std::string target = link_target(path);
  const bool is_stale = !target.empty() && ::stat(path.c_str(), &there) != 0 && errno == ENOENT;
  if (is_stale && ::unlink(path.c_str()) == 0) return;
  throw std::runtime_error(quote(path) + (target.empty() ? " exists already" : " is a link to " + quote(target)) +
                           ": remove it, or choose another path");
}

Link::Link(std::string target_path, std::string link_path)
    : target(std::move(target_path)), path(std::move(link_path)) {
  const pid_t parent = ::getpid();
  if (::symlink(target.c_str(), path.c_str()) != 0) {
    throw std::runtime_error("cannot make " + quote(path) + ": " + std::strerror(errno));
  }
  child = ::fork();
  if (child == 0) remove_after(parent);
  if (child > 0) return;
  remove();
  throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
}

Link::~Link() {
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  remove();
}

void Link::remove() const {
  if (link_target(path) == target) ::unlink(path.c_str());
}

/// Out of reach of what ends the parent: its name, its group and all signals but SIGKILL.
void Link::remove_after(pid_t parent) const {
  sigset_t signals;
  ::sigfillset(&signals);
  ::sigprocmask(SIG_SETMASK, &signals, nullptr);
  ::setsid();
  ::prctl(PR_SET_NAME, "portsim-link");
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  for (int signal = 0; ::getppid() == parent;) ::sigwait(&signals, &signal);
  remove();
  ::_exit(0);
}

}  // namespace keltipc
