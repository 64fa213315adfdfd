#pragma once

#include <string>

namespace keltipc {

/// Says on standard error which other processes have the device open, simulators left out, and whether this user can
/// see all processes.
void name_port_users(const std::string& device);

}  // namespace keltipc
