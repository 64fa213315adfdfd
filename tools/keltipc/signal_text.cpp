#include "signal_text.h"

#include <cstring>
#include <limits>

#include "hex.h"
#include "input_error.h"

namespace keltipc {

SignalText parse_signal_text(std::string_view text) {
  const std::size_t hash = text.find('#');
  if (hash == std::string_view::npos) throw InputError("not a signal: write ID#HEX");
  constexpr auto any = std::numeric_limits<std::uint32_t>::max();
  SignalText result{static_cast<std::uint32_t>(parse_hex_field(text.substr(0, hash), any, "identifier")), {}, {}};
  const std::string_view payload = text.substr(hash + 1);
  if (payload.empty() || payload.front() != '@') {
    result.payload = parse_payload(payload);
  } else if (payload.size() == 1) {
    throw InputError("no file name after '@'");
  } else {
    result.file = payload.substr(1);
  }
  return result;
}

FrameStart parse_frame_start(std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) throw InputError("not a sampling frame: write ID=STAMP");
  constexpr auto any = std::numeric_limits<std::uint64_t>::max();
  return {parse_frame_start_id(text.substr(0, equals)), parse_hex_field(text.substr(equals + 1), any, "stamp")};
}

std::uint32_t parse_frame_start_id(std::string_view text) {
  return static_cast<std::uint32_t>(parse_hex_field(text, id_limit, "identifier"));
}

ecu::vorn::ipc::IpcSignal start_signal(const FrameStart& start) {
  ecu::vorn::ipc::IpcSignal signal{start.id, 0, 0, std::vector<char>(sizeof start.stamp)};
  std::memcpy(signal.data.data(), &start.stamp, sizeof start.stamp);
  return signal;
}

}  // namespace keltipc
