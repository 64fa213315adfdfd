#include <gtest/gtest.h>

#include <thread>

#include "ipc/systemd.h"
#include "support/descriptors.h"
#include "support/recorded_log.h"

// On a real manager with the units of tests/units: a private one (scripts/lib/private-systemd), or process 1.
using namespace ecu::vorn::ipc;
using namespace ecu::vorn::ipc::test;

TEST(ARealManager, AnswersManyThreadsThatShareAnObject) {
  Transcript lines;
  const RecordedLog log(lines, "ipc.systemd");
  Systemd systemd;
  const auto ask = [&systemd] {
    for (int i = 0; i < 50; ++i) {
      EXPECT_EQ(systemd.get_unit_activestate("masked.service"), Systemd::ACTIVE_STATE_INACTIVE);
      EXPECT_EQ(systemd.list_unit_dependencies("masked.service", "Names"), Transcript{"masked.service"});
      EXPECT_FALSE(systemd.start_unit("masked.service"));
    }
  };
  ask();
  const int descriptors = open_descriptors();
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back(ask);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(open_descriptors(), descriptors) << "a call keeps its connection";
}
