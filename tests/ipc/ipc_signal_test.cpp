#include "ipc/ipc_signal.h"

#include <gtest/gtest.h>

#include <iomanip>

#include "support/frames.h"

namespace ecu::vorn::ipc {
namespace {

TEST(APrintedSignal, IsInHexadecimalAndLeavesDecimalAndABlankFillAndTouchesNoOtherFlag) {
  EXPECT_EQ(test::printed({0x5a, 1, 0x1f, {0x0a, '\xff'}}), "5a: 01, 1f { 0a ff }");
  EXPECT_EQ(test::printed({7, 0, 0, {}}), "07: 00, 0 { }");
  EXPECT_EQ(test::printed({0x1a3, 15, ~0ULL, {0}}), "1a3: 0f, ffffffffffffffff { 00 }");
  std::ostringstream text;
  text << std::oct << std::setfill('*') << std::uppercase << std::left << std::boolalpha << IpcSignal{0xab, 0, 1, {}};
  EXPECT_EQ(text.str(), "AB: 00, 1 { }");
  EXPECT_EQ(text.flags(),
            std::ios::dec | std::ios::uppercase | std::ios::left | std::ios::boolalpha | std::ios::skipws);
  EXPECT_EQ(text.fill(), ' ');
}

}  // namespace
}  // namespace ecu::vorn::ipc
