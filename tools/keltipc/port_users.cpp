#include "port_users.h"

#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <set>

#include "escape.h"
#include "say.h"

namespace keltipc {

void name_port_users(const std::string& device) {
  static bool sees_all = true;
  const auto note_denial = [](const char* /*path*/, int error) {
    if (error == EACCES) sees_all = false;
    return 0;
  };
  glob_t files{};
  ::glob("/proc/[0-9]*/fd/*", GLOB_NOSORT, note_denial, &files);
  struct stat port {};
  struct stat used {};
  std::set<std::string> users;
  for (std::size_t i = 0; i < files.gl_pathc && ::stat(device.c_str(), &port) == 0; ++i) {
    const std::string path = files.gl_pathv[i];
    if (::stat(path.c_str(), &used) != 0 || !S_ISCHR(used.st_mode) || used.st_rdev != port.st_rdev) continue;
    const std::string process = path.substr(6, path.find('/', 6) - 6);
    std::string name;
    std::getline(std::ifstream("/proc/" + process + "/comm"), name);
    if (name == "keltipc-portsim" || process == std::to_string(::getpid())) continue;
    users.insert(process + " (" + escape_word(name) + ")");
  }
  ::globfree(&files);
  for (const std::string& user : users) say("warning: process " + user + " has " + quote(device) + " open too");
  if (!sees_all) say("warning: only root can see which processes of other users have " + quote(device) + " open");
}

}  // namespace keltipc
