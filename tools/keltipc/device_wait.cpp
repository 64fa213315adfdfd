#include "device_wait.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "common_options.h"
#include "input_error.h"

namespace keltipc {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds look_again(100);

/// The error number that keeps the device from being opened; 0 when nothing does.
int obstacle(const std::string& device, int access) {
  struct stat record {};
  if (::stat(device.c_str(), &record) != 0) return errno;
  if (!S_ISCHR(record.st_mode)) throw InputError(device, "is no character device");
  return ::access(device.c_str(), access) == 0 ? 0 : errno;
}

bool appears(const std::string& device, int access, steady_clock::time_point deadline) {
  while (steady_clock::now() < deadline) {
    std::this_thread::sleep_for(look_again);
    if (obstacle(device, access) == 0) return true;
  }
  return false;
}

}  // namespace

bool wait_for_device(const std::string& device, int access, unsigned int seconds) {
  const auto deadline = steady_clock::now() + std::chrono::seconds(seconds);
  if (device.empty()) throw InputError(device, "no device is named");
  const int error = obstacle(device, access);
  if (error == 0) return true;
  say("waiting up to " + std::to_string(seconds) + " s for " + quote(device) + ": " + std::strerror(error));
  if (appears(device, access, deadline)) return true;
  say("gave up on " + quote(device) + " after " + std::to_string(seconds) + " s");
  return false;
}

}  // namespace keltipc
