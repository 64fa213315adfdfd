#include <cstdlib>
#include <sstream>

#include "text/filter.h"
#include "text/hex.h"
#include "text/input_error.h"
#include "text/log_record.h"
#include "text/replay_plan.h"
#include "text/signal_text.h"

// Any text to every parser of the tools: what one takes comes back from its printed form as it was, and what it
// refuses it refuses as it says.
namespace keltipc {
namespace {

template <typename Refusal, typename Parse, typename Print>
void comes_back(std::string_view text, Parse parse, Print print) {
  std::string printed;
  try {
    printed = print(parse(text));
  } catch (const Refusal&) {
    return;
  }
  if (print(parse(printed)) != printed) std::abort();
}

std::string hex(const std::vector<char>& payload) {
  std::string text;
  append_payload(text, payload);
  return text;
}

std::string print_signal(const SignalText& signal) {
  return to_hex(signal.word) + "#" + (signal.file.empty() ? hex(signal.payload) : "@" + signal.file);
}

std::string print_device(const FilteredDevice& filtered) {
  std::string text = filtered.device;
  for (const Filter& f : filtered.filters) text += "," + to_hex(f.id) + (f.keeps ? ":" : "~") + to_hex(f.mask);
  (void)passes(filtered.filters, static_cast<std::uint32_t>(text.size()));
  return text;
}

std::string print_record(const LogRecord& record) {
  (void)to_json_line(record);
  (void)utc_text(record.time);
  return to_log_line(record);
}

/// Never back in time, and behind a start frame.
void is_sendable(const std::string& text) {
  constexpr std::uint32_t start_id = 0x10;
  std::istringstream log(text);
  const std::vector<Outgoing> plan = plan_replay(log, start_id);
  if (!plan.empty() && plan.front().signal.signal_id != start_id) std::abort();
  for (const Outgoing& next : plan) {
    if (next.pause.count() < 0) std::abort();
  }
}

void stays_one_word(const std::string& text) {
  const std::string word = escape_word(text);
  const bool is_word = word.find_first_of(" \t\n") == std::string::npos;
  if (!is_word || unescape_word(word) != text) std::abort();
  for (const char c : quote(text) + json_string(text)) {
    if (static_cast<unsigned char>(c) < 0x20) std::abort();
  }
}

}  // namespace
}  // namespace keltipc

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace keltipc;
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  comes_back<InputError>(text, parse_signal_text, print_signal);
  comes_back<InputError>(text, parse_filtered_device, print_device);
  comes_back<InputError>(text, parse_log_line, print_record);
  comes_back<InputError>(text, parse_frame_start,
                         [](const FrameStart& start) { return to_hex(start.id) + "=" + to_hex(start.stamp); });
  comes_back<InputError>(text, parse_frame_start_id, [](std::uint32_t id) { return to_hex(id); });
  comes_back<BadText>(text, parse_payload, hex);
  stays_one_word(text);
  try {
    is_sendable(text);
  } catch (const InputError&) {
  }
  return 0;
}
