#include "filter.h"

#include <limits>

#include "hex.h"
#include "input_error.h"
#include "signal_text.h"

namespace keltipc {
namespace {

Filter filter(std::string_view text) {
  const std::size_t sign = text.find_first_of(":~");
  if (sign == std::string_view::npos) throw InputError("not a filter: write ID:MASK or ID~MASK");
  const auto id = parse_hex_field(text.substr(0, sign), id_limit, "identifier");
  const auto mask = parse_hex_field(text.substr(sign + 1), std::numeric_limits<std::uint32_t>::max(), "mask");
  return {static_cast<std::uint32_t>(id), static_cast<std::uint32_t>(mask), text[sign] == ':'};
}

}  // namespace

bool passes(const std::vector<Filter>& filters, std::uint32_t id) {
  bool some_keep = false;
  bool kept = false;
  for (const Filter& filter : filters) {
    const bool matches = ((id ^ filter.id) & filter.mask) == 0;
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
