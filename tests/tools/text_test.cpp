#include <gtest/gtest.h>

#include <sstream>

#include "text/escape.h"
#include "text/filter.h"
#include "text/hex.h"
#include "text/input_error.h"
#include "text/log_record.h"
#include "text/replay_plan.h"
#include "text/signal_text.h"

// The texts that the tool takes, each given back as it was understood.
namespace keltipc {
namespace {

using namespace std::string_literals;

std::string signal(const std::string& text) {
  const SignalText read = parse_signal_text(text);
  std::string result = to_hex(read.word) + "#";
  append_payload(result, read.payload);
  return result + (read.file.empty() ? "" : " in " + read.file);
}

std::string frame_start(const std::string& text) {
  const ecu::vorn::ipc::IpcSignal start = start_signal(parse_frame_start(text));
  std::string result =
      to_hex(parse_frame_start_id(text.substr(0, text.find('=')))) + "=" + to_hex(start.signal_id) + "#";
  append_payload(result, start.data);
  return result;
}

/// Which identifiers pass.
std::string filter(const std::string& text) {
  std::string result;
  const FilteredDevice source = parse_filtered_device("qp" + text);
  for (const std::uint32_t id : {0x5U, 0x15U, 0x105U, 0x106U}) {
    if (passes(source.filters, id)) result += to_hex(id) + " ";
  }
  return source.device + " " + result;
}

std::string log_line(const std::string& text) { return to_log_line(parse_log_line(text)); }

std::string time_of(const std::string& text) { return utc_text(parse_log_line(text).time); }

std::string replay(const std::string& text) {
  std::istringstream log(text);
  std::string plan;
  for (const Outgoing& outgoing : plan_replay(log, 0x10)) {
    plan += to_hex(outgoing.signal.signal_id) + "#";
    append_payload(plan, outgoing.signal.data);
    plan += "+" + std::to_string(outgoing.pause.count()) + " ";
  }
  return plan;
}

const std::string half_full(2 * (longest_payload - 1), '0');
constexpr const char* odd_name =
    "(4294967295.000012) /tmp/a\\x20b\\x5c\\x0a\"\xc3\xa4\\xff\\xc2\\x85\\xed\\xa0\\x80 "
    "fffffff:f:ffffffffffffffff#0aff";

const struct {
  std::string (*read)(const std::string&);
  std::string text;
  std::string understood;
} taken[] = {
    {signal, "5#", "5#"},
    {signal, "fFfFfFfF#0aFF", "ffffffff#0aff"},
    {signal, "00000005# 0a..ff .01\t", "5#0aff01"},
    {signal, "7#@a b#@c", "7# in a b#@c"},
    {signal, "5#" + half_full + "ff", "5#" + half_full + "ff"},
    {frame_start, "fffffff=ffffffffffffffff", "fffffff=fffffff#ffffffffffffffff"},
    {filter, "", "qp 5 15 105 106 "},
    {filter, ",5:f", "qp 5 15 105 "},
    {filter, ",5:ffffffff,100:f00", "qp 5 105 106 "},
    {filter, ",5~ff", "qp 15 106 "},
    {filter, ",5:f,100~f00,10~10", "qp 5 "},
    {filter, ",0:0", "qp 5 15 105 106 "},
    {log_line, odd_name, odd_name},
    {time_of, "(1735270496.000001) p 5:0:1#", "2024-12-27T03:34:56.000001Z"},
    {replay,
     "(9.000000) p 5:f:0#01\n\n(9.500000) p 6:0:0#02\n(7.000000) p 5:0:aaaaaaaaaaaaaaaa#03\n(7.000001) p "
     "5:0:aaaaaaaaaaaaaaaa#\n",
     "10#0000000000000000+0 f0000005#01+0 6#02+500000 10#aaaaaaaaaaaaaaaa+0 5#03+0 5#+1 "},
};

TEST(Text, IsUnderstood) {
  for (const auto& [read, text, understood] : taken) EXPECT_EQ(read(text), understood) << text;
}

const struct {
  std::string (*read)(const std::string&);
  std::vector<std::string> texts;
} refused[] = {
    {signal,
     {"5#1", "5#1.1", "5#.11", "5#11.", "5#0x11", "5#11\0"s, "5#@", "511", "#11", "0x5#11", "-5#11", "100000000#",
      "5#" + half_full + "ff.00"}},
    {frame_start, {"", "5", "=1", "5=", "10000000=1", "5=10000000000000000", "5=1=1"}},
    {filter, {",", ",5", ",5:", ",:5", ",g:5", ",5:100000000", ",10000000:1", ",5:1,"}},
    {log_line,
     {"", "(", "1.000000 p 5:0:1#00", "(1.00000) p 5:0:1#00", "(-1.000000) p 5:0:1#00",
      "(4294967296.000000) p 5:0:1#", "(.000000) p 5:0:1#00", "(1.00000x) p 5:0:1#00", "(1.000000) 5:0:1#00",
      "(1.000000) p 10000000:0:1#00", "(1.000000) p 5:10:1#00", "(1.000000) p 5:0:10000000000000000#00",
      "(1.000000) p 5:0#00", "(1.000000) p 5:0:1#0", "(1.000000) p 5:0:1#@f", "(1.000000) p\\ 5:0:1#00",
      "(1.000000) p\\x2 5:0:1#00", "(1.000000) p 5:0:1"}},
    {replay, {"\n(1.000000) p 10:0:1#00\n", "(1.000000) p 5:0:1#00\n5#00"}},
};

TEST(Text, IsRefusedInASentenceThatNamesIt) {
  for (const auto& [read, texts] : refused) {
    for (const std::string& text : texts) {
      const std::string named = read == replay ? "line 2: " : read == filter ? "'" : quote(text) + ": ";
      try {
        ADD_FAILURE() << text << " was taken as " << read(text);
      } catch (const InputError& error) {
        EXPECT_EQ(std::string(error.what()).substr(0, named.size()), named);
      }
    }
  }
}

}  // namespace
}  // namespace keltipc
