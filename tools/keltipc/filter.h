#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace keltipc {

struct Filter {
  std::uint32_t id;
  std::uint32_t mask;
  bool keeps;  ///< "ID:MASK" keeps signals whose identifier matches under the mask, "ID~MASK" drops them
};

/// Whether an identifier passes: matched by one of those that keep, where there are any, and by none that drop.
bool passes(const std::vector<Filter>& filters, std::uint32_t id);

struct FilteredDevice {
  std::string device;
  std::vector<Filter> filters;
};

/// What `dump` reads from. A device whose name has a comma cannot be given: everything behind the first one is
/// filters. Throws InputError.
///
///     /dev/qp0              ->  all of /dev/qp0
///     /dev/qp0,5:f,100~7f0  ->  identifiers that end in 5, but none from 100 to 10f
FilteredDevice parse_filtered_device(std::string_view text);

}  // namespace keltipc
