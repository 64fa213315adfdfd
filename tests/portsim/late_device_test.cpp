#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "ipc/queue_port_reader.h"

using ecu::vorn::ipc::QueuePortReader;

TEST(ALateDevice, IsOpenedAtTheNextAttempt) {
  const std::string late = testing::TempDir() + "late." + std::to_string(::getpid());
  const auto began = std::chrono::steady_clock::now();
  std::thread maker([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(2'800));
    std::filesystem::create_symlink("/dev/null", late);
  });
  EXPECT_TRUE(QueuePortReader<8>(nullptr).open(late));
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(4'500)) << "attempts are 0.5 s apart";
  maker.join();
  std::filesystem::remove(late);
}
