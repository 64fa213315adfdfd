#include <cstdlib>

#include "input_error.h"
#include "log_record.h"
#include "replay.h"
#include "signal_text.h"

using namespace keltipc;

/// A parser may throw an InputError, and nothing else.
template <typename Parse>
static void try_to(Parse parse) {
  try {
    parse();
  } catch (const InputError&) {
  }
}

static void require(bool holds) {
  if (!holds) std::abort();
}

// Gives any text to every parser of the tools.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  try_to([&] { parse_signal_text(text); });
  try_to([&] { parse_filtered_device(text); });
  try_to([&] { parse_frame_start(text); });
  try_to([&] {
    const std::string line = to_log_line(parse_log_line(text));
    require(to_log_line(parse_log_line(line)) == line);
  });
  try_to([&] {
    for (const Outgoing& next : Replay(0x10, 1, std::chrono::hours(1)).next(text)) require(next.pause.count() >= 0);
  });
  const std::string word = escape_word(text);
  require(unescape_word(word) == text && word.find_first_of(" \n\r\t\x1b") == std::string::npos);
  return 0;
}
