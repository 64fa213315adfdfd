// Waits until a target is active or activating: wait_for_target TARGET SECONDS
#include <ipc/systemd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>

using namespace ecu::vorn;
using namespace std::chrono_literals;

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: wait_for_target TARGET SECONDS\n";
    return 2;
  }
  char* end = nullptr;
  const long seconds = std::strtol(argv[2], &end, 10);
  if (*argv[2] == '\0' || *end != '\0' || seconds < 0 || seconds > 86400) {
    std::cerr << "wait_for_target: invalid timeout '" << argv[2] << "': must be 0 to 86400 seconds\n";
    return 2;
  }
  ipc::Systemd systemd;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  // Polls, because the library does not subscribe to the manager's signals.
  while (!systemd.is_target_active(argv[1])) {
    if (std::chrono::steady_clock::now() >= deadline) {
      std::cerr << argv[1] << " is not active after " << argv[2] << " s\n";
      return 1;
    }
    std::this_thread::sleep_for(200ms);
  }
  std::cout << argv[1] << " is active" << std::endl;
}
