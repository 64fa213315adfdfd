#include <gtest/gtest.h>

#include <string>

#include "hex.h"
#include "log_record.h"
#include "replay.h"

// What no session with the tool shows: the clock's digits, and for how long nothing is to be sent.
namespace keltipc {
namespace {

TEST(ALogLine, IsPrintedAsItWasRead) {
  const std::string line =
      "(4294967295.000012) /tmp/a\\x20b\\x5c\\x0a\"\xc3\xa4\\xff\\xc2\\x85\\xed\\xa0\\x80\xf0\x9f\x98\x80 "
      "fffffff:f:ffffffffffffffff#0aff";
  EXPECT_EQ(to_log_line(parse_log_line(line)), line);
  EXPECT_EQ(utc_text(parse_log_line("(2180131200.000001) p 5:0:1#").time), "2039-02-01T00:00:00.000001Z");
}

TEST(AReplay, PausesAsTheLogDidExceptWhereTheClockWasSetBack) {
  Replay replay(0x10, 2, std::chrono::hours(1));
  std::string plan;
  for (const char* line : {"(9.000000) p 5:f:0#01", "(9.500000) p 6:0:0#02", "(7.000000) p 5:0:aa#03",
                           R"({"time":7.000002,"device":"p","id":"5","status":1,"sampling_frame":"b","data":""})"}) {
    for (const auto& [signal, pause, opens] : replay.next(line)) {
      append_payload(plan += to_hex(signal.signal_id) + "#", signal.data);
      if (pause.count() != 0) plan += " after " + std::to_string(pause.count()) + " us";
      plan += opens ? ", a start frame\n" : "\n";
    }
  }
  EXPECT_EQ(plan, R"(10#0000000000000000, a start frame
f0000005#01
6#02 after 250000 us
10#aa00000000000000, a start frame
5#03
10#0b00000000000000 after 1 us, a start frame
10000005#
)");
}

}  // namespace
}  // namespace keltipc
