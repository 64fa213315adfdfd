#pragma once

#include <string>

/// Names of units as a user may type them.
namespace keltipc {

bool is_service(const std::string& unit);

/// "radio" -> "radio.service"; "radio.socket" as it is
std::string service_unit(const std::string& name);

/// "multi-user" -> "multi-user.target"; "multi-user.target" as it is
std::string target_unit(const std::string& name);

/// What is wrong with the full name of a unit; empty if the manager can load a unit of that name.
std::string unit_name_fault(const std::string& unit);

}  // namespace keltipc
