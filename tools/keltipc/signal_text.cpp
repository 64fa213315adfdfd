#include "signal_text.h"

#include <cstring>
#include <limits>

#include "hex.h"
#include "input_error.h"

namespace keltipc {
namespace {

std::uint32_t parse_word(std::string_view text, const char* name) {
  return static_cast<std::uint32_t>(parse_hex_field(text, std::numeric_limits<std::uint32_t>::max(), name));
}

Filter parse_filter(std::string_view text) {
  const std::size_t sign = text.find_first_of(":~");
  if (sign == std::string_view::npos) throw InputError("not a filter: write ID:MASK or ID~MASK");
  return {parse_word(text.substr(0, sign), "identifier"), parse_word(text.substr(sign + 1), "mask"),
          text[sign] == ':'};
}

}  // namespace

SignalText parse_signal_text(std::string_view text) {
  const std::size_t hash = text.find('#');
  if (hash == std::string_view::npos) throw InputError("not a signal: write ID#HEX");
  SignalText result{parse_word(text.substr(0, hash), "identifier"), {}, {}};
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

bool passes(const std::vector<Filter>& filters, std::uint32_t id, std::uint8_t status) {
  const std::uint32_t word = id | (std::uint32_t{status} << status_shift);
  bool some_keep = false;
  bool kept = false;
  for (const Filter& filter : filters) {
    const bool matches = ((word ^ filter.id) & filter.mask) == 0;
    if (matches && !filter.keeps) return false;
    some_keep = some_keep || filter.keeps;
    kept = kept || matches;
  }
  return kept || !some_keep;
}

FilteredDevice parse_filtered_device(std::string_view text) {
  FilteredDevice result;
  std::size_t comma = text.find(',');
  result.device = text.substr(0, comma);
  while (comma != std::string_view::npos) {
    text.remove_prefix(comma + 1);
    comma = text.find(',');
    const std::string_view part = text.substr(0, comma);
    result.filters.push_back(parse_named(parse_filter, part));
  }
  return result;
}

}  // namespace keltipc
