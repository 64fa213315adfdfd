#pragma once

#include <map>
#include <set>
#include <string>

/// The connection settings that all libraries of this family share. Nothing in this library reads them; they are kept
/// because the header is shared. Each source file that includes it has its own copy, built when the library is
/// loaded.
namespace ecu::vorn::ipc {

static const std::map<std::string, std::string> default_connection_settings = {{"host", "localhost"},
                                                                               {"port", "1883"}};
static const std::set<std::string> accepted_connection_settings = {"host", "port", "client_name"};

}  // namespace ecu::vorn::ipc
