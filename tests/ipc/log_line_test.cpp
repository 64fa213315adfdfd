#include "ipc/log_line.h"

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/descriptors.h"
#include "support/recorded_log.h"

using namespace ecu::vorn;
using namespace ecu::vorn::ipc;
using ecu::vorn::ipc::test::Transcript;

static int level = 6;
static int lines_until_failure = -1;

/// This program defines this operation itself, in place of libkeltlogging's.
int logging::get_log_level() { return lines_until_failure-- == 0 ? throw std::bad_alloc() : level; }

/// A piece that does something while its line is written.
struct Act {
  std::function<void()> act;
};
static std::ostream& operator<<(std::ostream& os, const Act& piece) {
  piece.act();
  return os;
}

struct ALogLine : testing::Test {
  ALogLine() {
    logging::set_sink([this](int severity, const std::string&, const std::string& line) {
      lines.push_back(std::to_string(severity) + " " + line);
    });
  }
  ~ALogLine() override { logging::set_sink({}); }

  Transcript lines;
  Logger door = std::make_shared<logging::LogModule>("door");
};

TEST_F(ALogLine, EndsWhereTheLevelFallsOrItsModuleIsSwitchedOff) {
  level = 6;
  log_line<Info>(door, "kept", Act{[] { level = 5; }}, "dropped");
  log_line<Notice>(door, "kept", Act{[this] { door->enabled = false; }}, "dropped");
  log_line<Warning>(door, "kept", Act{[] { level = 0; }}, "kept");
  EXPECT_EQ(lines, (Transcript{"6 kept", "5 kept", "4 keptkept"}));
}

TEST_F(ALogLine, WithHexadecimalNumbersLeavesTheFormatAlone) {
  log_line<Error>(door, FilledHex<2>{10}, Hex{10}, std::setw(4), 10U);
  EXPECT_EQ(lines, Transcript{"3 0aa  10"});
}

TEST_F(ALogLine, IsWrittenIfItsModulesFlagIsAnyByteButZero) {
  level = 6;
  for (const int flag : {0, 1, 2, 0x80, 0xff}) {
    *reinterpret_cast<unsigned char*>(door.get()) = static_cast<unsigned char>(flag);
    log_line<Info>(door, flag);
  }
  EXPECT_EQ(lines, (Transcript{"6 1", "6 2", "6 128", "6 255"}));
}

TEST_F(ALogLine, ThatThrowsLeavesAPortClosed) {
  level = 4;
  const int descriptors = test::open_descriptors();
  QueuePortReader<8> reader(nullptr);
  QueuePortWriter<8> writer;
  for (int lines_before = 0; lines_before < 3; ++lines_before) {
    EXPECT_TRUE(reader.open("/dev/null") && writer.open("/dev/null"));
    lines_until_failure = lines_before;
    EXPECT_THROW(reader.open("/dev/null"), std::bad_alloc);
    lines_until_failure = lines_before;
    EXPECT_THROW(writer.open("/dev/null"), std::bad_alloc);
    EXPECT_EQ(test::open_descriptors(), descriptors) << lines_before;
  }
}

TEST_F(ALogLine, WithoutAModuleIsNotWritten) {
  log_line<Critical>(nullptr, "silent");
  EXPECT_EQ(lines, Transcript{});
}
