#include "ipc/ipc_signal.h"

#include <gtest/gtest.h>

#include <iomanip>

TEST(APrintedSignal, LeavesTheStreamDecimal) {
  std::ostringstream text;
  text << std::setfill('*') << ecu::vorn::ipc::IpcSignal{0xa, 1, 0x1f, {0x0a, '\xff'}} << std::setw(4) << 10;
  EXPECT_EQ(text.str(), "0a: 01, 1f { 0a ff }  10");
}
