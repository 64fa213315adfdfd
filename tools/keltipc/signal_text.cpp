#include "signal_text.h"

#include <cstring>
#include <limits>

#include "hex.h"
#include "input_error.h"

namespace keltipc {
namespace {

std::uint32_t start_id(std::string_view text) {
  const auto id = parse_hex(text, id_limit);
  if (!id) throw BadText("the identifier is no hexadecimal number of up to 28 bits");
  return static_cast<std::uint32_t>(*id);
}

SignalText signal_text(std::string_view text) {
  const std::size_t hash = text.find('#');
  if (hash == std::string_view::npos) throw BadText("a signal is written ID#HEX");
  const auto word = parse_hex(text.substr(0, hash), std::numeric_limits<std::uint32_t>::max());
  if (!word) throw BadText("the identifier is no hexadecimal number of up to 32 bits");
  SignalText result{static_cast<std::uint32_t>(*word), {}, {}};
  const std::string_view payload = text.substr(hash + 1);
  if (payload.empty() || payload.front() != '@') {
    result.payload = parse_payload(payload);
  } else if (payload.size() == 1) {
    throw BadText("no file name behind '@'");
  } else {
    result.file = payload.substr(1);
  }
  return result;
}

FrameStart frame_start(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) throw BadText("a sampling frame is written ID=STAMP");
  const auto stamp = parse_hex(text.substr(equals + 1), std::numeric_limits<std::uint64_t>::max());
  if (!stamp) throw BadText("the stamp is no hexadecimal number of up to 64 bits");
  return {start_id(text.substr(0, equals)), *stamp};
}

}  // namespace

SignalText parse_signal_text(std::string_view text) {
  return parse_input(text, [&] { return signal_text(text); });
}

FrameStart parse_frame_start(std::string_view text) {
  return parse_input(text, [&] { return frame_start(text); });
}

std::uint32_t parse_frame_start_id(std::string_view text) {
  return parse_input(text, [&] { return start_id(text); });
}

ecu::vorn::ipc::IpcSignal start_signal(const FrameStart& start) {
  ecu::vorn::ipc::IpcSignal signal{start.id, 0, 0, std::vector<char>(sizeof start.stamp)};
  std::memcpy(signal.data.data(), &start.stamp, sizeof start.stamp);
  return signal;
}

}  // namespace keltipc
