#include "filter.h"

#include <limits>

#include "hex.h"
#include "input_error.h"
#include "signal_text.h"

namespace keltipc {
namespace {

std::uint32_t number(std::string_view text, const char* name) {
  return static_cast<std::uint32_t>(parse_hex_field(text, std::numeric_limits<std::uint32_t>::max(), name));
}

Filter filter(std::string_view text) {
  const std::size_t sign = text.find_first_of(":~");
  if (sign == std::string_view::npos) throw InputError("not a filter: write ID:MASK or ID~MASK");
  return {number(text.substr(0, sign), "identifier"), number(text.substr(sign + 1), "mask"), text[sign] == ':'};
}

}  // namespace

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
    result.filters.push_back(parse_named(filter, part));
  }
  return result;
}

}  // namespace keltipc
