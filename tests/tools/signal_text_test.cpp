#include "text/signal_text.h"

#include <gtest/gtest.h>

#include <sstream>

#include "text/escape.h"
#include "text/filter.h"
#include "text/hex.h"
#include "text/input_error.h"
#include "text/log_record.h"
#include "text/replay_plan.h"

namespace keltipc {
namespace {

using namespace std::string_literals;
using std::chrono::microseconds;

/// What the parser makes of the text: "WORD PAYLOAD FILE", or its complaint.
std::string read(const std::string& text) {
  try {
    const SignalText signal = parse_signal_text(text);
    std::string result = to_hex(signal.word) + " ";
    append_payload(result, signal.payload);
    return result + " " + signal.file;
  } catch (const InputError& error) {
    return error.what();
  }
}

TEST(SignalText, IsReadOrRefusedWithASentenceThatNamesIt) {
  const std::string filler(2 * (longest_payload - 1), '0');
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"5#", "5  "},
      {"fFfFfFfF#0aFF", "ffffffff 0aff "},
      {"00000005# 0a..ff .01\t", "5 0aff01 "},
      {"7#@a b#@c", "7  a b#@c"},
      {"5#" + filler + "ff", "5 " + filler + "ff "},
      {"5#" + filler + "ff.00", "'5#" + std::string(58, '0') + "...': more than 65535 bytes"},
      {"5#1", "'5#1': an odd digit: each byte takes two"},
      {"5#1.1", "'5#1.1': an odd digit: each byte takes two"},
      {"5#.11", "'5#.11': '.' is no hexadecimal digit"},
      {"5#11.", "'5#11.': no byte behind the last dot"},
      {"5#0x11", "'5#0x11': 'x' is no hexadecimal digit"},
      {"5#11\0"s, "'5#11\\x00': '\\x00' is no hexadecimal digit"},
      {"5#@", "'5#@': no file name behind '@'"},
      {"511", "'511': a signal is written ID#HEX"},
      {"#11", "'#11': the identifier is no hexadecimal number of up to 32 bits"},
      {"0x5#11", "'0x5#11': the identifier is no hexadecimal number of up to 32 bits"},
      {"-5#11", "'-5#11': the identifier is no hexadecimal number of up to 32 bits"},
      {"100000000#", "'100000000#': the identifier is no hexadecimal number of up to 32 bits"},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(read(text), expected);
}

TEST(FrameStart, TakesABareIdentifierOf28BitsAndAStampOf64) {
  const FrameStart start = parse_frame_start("fffffff=ffffffffffffffff");
  EXPECT_EQ(start.id, 0xFFFFFFFU);
  EXPECT_EQ(start_signal(start).data, std::vector<char>(8, '\xff'));
  for (const char* bad : {"", "5", "=1", "5=", "10000000=1", "5=10000000000000000", "5=1=1"}) {
    EXPECT_THROW(parse_frame_start(bad), InputError) << bad;
  }
  EXPECT_THROW(parse_frame_start_id("5=1"), InputError);
}

TEST(Filters, KeepWhatOneMatchesAndNoneDrops) {
  const auto passing = [](const std::string& filters) {
    std::string result;
    for (const std::uint32_t id : {0x5U, 0x15U, 0x105U, 0x106U}) {
      const FilteredDevice source = parse_filtered_device("/dev/qp0" + filters);
      EXPECT_EQ(source.device, "/dev/qp0");
      if (passes(source.filters, id)) result += to_hex(id) + " ";
    }
    return result;
  };
  EXPECT_EQ(passing(""), "5 15 105 106 ");
  EXPECT_EQ(passing(",5:f"), "5 15 105 ");
  EXPECT_EQ(passing(",5:ffffffff,100:f00"), "5 105 106 ");
  EXPECT_EQ(passing(",5~ff"), "15 106 ");
  EXPECT_EQ(passing(",5:f,100~f00,10~10"), "5 ");
  EXPECT_EQ(passing(",0:0"), "5 15 105 106 ");
  for (const char* bad : {",", ",5", ",5:", ",:5", ",g:5", ",5:100000000", ",10000000:1", ",5:1,"}) {
    EXPECT_THROW(parse_filtered_device(std::string("/dev/qp0") + bad), InputError) << bad;
  }
}

TEST(LogLine, GivesBackWhatItWasMadeOf) {
  const std::string odd_name = "/tmp/a b\\\n\xc3\xa4\xff\xc2\x85\xed\xa0\x80";
  const LogRecord record{microseconds(4294967295000012), odd_name, {0xFFFFFFF, 15, ~0ULL, {'\x0a', '\xff'}}};
  const std::string line = to_log_line(record);
  EXPECT_EQ(line,
            "(4294967295.000012) /tmp/a\\x20b\\x5c\\x0a\xc3\xa4\\xff\\xc2\\x85\\xed\\xa0\\x80 "
            "fffffff:f:ffffffffffffffff#0aff");
  const LogRecord again = parse_log_line(line);
  EXPECT_EQ(again.device, odd_name);
  EXPECT_EQ(to_log_line(again), line);
  EXPECT_EQ(to_json_line(record),
            "{\"time\":4294967295.000012,"
            R"("device":"/tmp/a b\u005c\u000a)"
            "\xc3\xa4"
            R"(\u00ff\u00c2\u0085\u00ed\u00a0\u0080")"
            R"(,"id":"fffffff","status":15,"sampling_frame":"ffffffffffffffff","data":"0aff"})");
  EXPECT_EQ(utc_text(microseconds(1735270496000001)), "2024-12-27T03:34:56.000001Z");
}

TEST(LogLine, IsRefusedWhereAPartIsBad) {
  ASSERT_NO_THROW(parse_log_line("(1.000000) p 5:0:1#"));
  for (const char* bad :
       {"", "(", "1.000000 p 5:0:1#00", "(1.00000) p 5:0:1#00", "(-1.000000) p 5:0:1#00",
        "(4294967296.000000) p 5:0:1#", "(.000000) p 5:0:1#00", "(1.00000x) p 5:0:1#00", "(1.000000) 5:0:1#00",
        "(1.000000) p 10000000:0:1#00", "(1.000000) p 5:10:1#00", "(1.000000) p 5:0:10000000000000000#00",
        "(1.000000) p 5:0#00", "(1.000000) p 5:0:1#0", "(1.000000) p 5:0:1#@f", "(1.000000) p\\ 5:0:1#00",
        "(1.000000) p\\x2 5:0:1#00", "(1.000000) p 5:0:1"}) {
    EXPECT_THROW(parse_log_line(bad), InputError) << bad;
  }
}

TEST(Replay, OpensASamplingFrameAtTheBeginningAndWheneverTheStampChanges) {
  std::istringstream log(
      "(9.000000) p 5:f:0#01\n\n(9.500000) p 6:0:0#02\n(7.000000) p 5:0:a#03\n(7.000001) p 5:0:a#\n");
  std::string plan;
  for (const Outgoing& outgoing : plan_replay(log, 0x10)) {
    plan += to_hex(outgoing.signal.signal_id) + "#";
    append_payload(plan, outgoing.signal.data);
    plan += "+" + std::to_string(outgoing.pause.count()) + " ";
  }
  std::string stamp_a;
  append_payload(stamp_a, start_signal({0x10, 0xa}).data);
  EXPECT_EQ(plan, "10#0000000000000000+0 f0000005#01+0 6#02+500000 10#" + stamp_a + "+0 5#03+0 5#+1 ");
}

TEST(Replay, RefusesALogNamingTheLine) {
  for (const char* bad : {"(1.000000) p 5:0:1#00\n(1.000000) p 10:0:1#00\n", "(1.000000) p 5:0:1#00\n5#00"}) {
    std::istringstream log(bad);
    try {
      plan_replay(log, 0x10);
      ADD_FAILURE() << bad;
    } catch (const InputError& error) {
      EXPECT_EQ(std::string(error.what()).rfind("line 2: ", 0), 0U) << error.what();
    }
  }
}

}  // namespace
}  // namespace keltipc
