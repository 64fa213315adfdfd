#include "ipc/ipc_signal.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

using ecu::vorn::ipc::IpcSignal;

TEST(APrintedSignal, IsInHexadecimal) {
  std::ostringstream text;
  text << IpcSignal{0x5a, 1, 0x1f, {0x0a, '\xff'}} << IpcSignal{0x1a3, 15, ~0ULL, {}};
  EXPECT_EQ(text.str(), "5a: 01, 1f { 0a ff }1a3: 0f, ffffffffffffffff { }");
}

TEST(APrintedSignal, LeavesTheStreamDecimalAndFilledWithBlanks) {
  std::ostringstream text;
  text << std::oct << std::setfill('*') << std::uppercase << IpcSignal{} << std::setw(4) << 10;
  EXPECT_EQ(text.str(), "00: 00, 0 { }  10");
}
