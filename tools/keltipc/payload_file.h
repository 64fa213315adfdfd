#pragma once

#include <string>
#include <vector>

namespace keltipc {

/// All bytes of a file. Throws InputError where it cannot be read or holds more than a signal can.
std::vector<char> read_payload_file(const std::string& path);

}  // namespace keltipc
