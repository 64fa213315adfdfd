#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "filter.h"
#include "hex.h"
#include "input_error.h"
#include "log_record.h"
#include "replay_plan.h"
#include "signal_text.h"

// Any text to every parser of the tools: what one takes comes back from its printed form as it was, and what it
// refuses it refuses as it says.
namespace keltipc {
namespace {

std::string print(const SignalText& signal) {
  std::string text = to_hex(signal.word) + "#";
  append_payload(text, signal.payload);
  return signal.file.empty() ? text : text + "@" + signal.file;
}
std::string print(const FilteredDevice& filtered) {
  std::string text = filtered.device;
  for (const Filter& f : filtered.filters) text += "," + to_hex(f.id) + (f.keeps ? ":" : "~") + to_hex(f.mask);
  return text;
}
std::string print(const LogRecord& record) {
  return to_json_line(record).empty() || utc_text(record.time).empty() ? "" : to_log_line(record);
}
std::string print(const FrameStart& start) { return to_hex(start.id) + "=" + to_hex(start.stamp); }

template <typename Parse>
void comes_back(std::string_view text, Parse parse) {
  std::string printed;
  try {
    printed = print(parse(text));
  } catch (const InputError&) {
    return;
  }
  if (print(parse(printed)) != printed) std::abort();
}

/// Never back in time, and behind a start frame.
void is_sendable(const std::string& text) {
  std::istringstream log(text);
  const std::vector<Outgoing> plan = plan_replay(log, 0x10);
  if (!plan.empty() && plan.front().signal.signal_id != 0x10) std::abort();
  for (const Outgoing& next : plan) {
    if (next.pause.count() < 0) std::abort();
  }
}

bool has_control(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

void stays_one_word(const std::string& text) {
  const std::string word = escape_word(text);
  if (has_control(word + quote(text) + json_string(text)) || word.find(' ') != std::string::npos) std::abort();
  if (unescape_word(word) != text) std::abort();
}

}  // namespace
}  // namespace keltipc

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace keltipc;
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  comes_back(text, parse_signal_text);
  comes_back(text, parse_filtered_device);
  comes_back(text, parse_log_line);
  comes_back(text, parse_frame_start);
  stays_one_word(text);
  try {
    is_sendable(text);
  } catch (const InputError&) {
  }
  return 0;
}
