#pragma once

#include <chrono>
#include <thread>

namespace ecu::vorn::ipc::test {

/// Waits up to 30 s until the condition holds, because an emulated machine may be slow.
template <typename Condition>
bool soon(Condition holds) {
  for (int i = 0; i < 1500; ++i) {
    if (holds()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

}  // namespace ecu::vorn::ipc::test
