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

/// Whether a signal passes: it must match one of the filters that keep, if there are any, and none that drop. The
/// status stands above the 28 bits of the identifier, as on the wire.
bool passes(const std::vector<Filter>& filters, std::uint32_t id, std::uint8_t status);

struct FilteredDevice {
  std::string device;
  std::vector<Filter> filters;
};

/// What `dump` reads from. Everything after the first comma is a filter, so the path itself cannot contain one.
/// Throws InputError.
///
///     /dev/qp0              ->  all of /dev/qp0
///     /dev/qp0,5:f,100~7f0  ->  identifiers that end in 5, but none from 100 to 10f
///     /dev/qp0,10000000:f0000000  ->  status 1
FilteredDevice parse_filtered_device(std::string_view text);

}  // namespace keltipc
