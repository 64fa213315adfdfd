#include <gtest/gtest.h>

#include "logging/logging.h"

using namespace ecu::vorn;

TEST(AModule, IsOneObjectPerName) {
  EXPECT_EQ(logging::module("door"), logging::module("door"));
  EXPECT_NE(logging::module("door"), logging::module("window"));
  EXPECT_EQ(logging::module("door")->name, "door");
}
