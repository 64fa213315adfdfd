#pragma once

#include <CLI/CLI.hpp>
#include <functional>

// What CLI11 is told. It stands in two files, because CLI11 costs a compiler more than the rest of the tool.
namespace keltipc {

/// Set by the subcommand that is chosen.
using Run = std::function<int()>;

/// send, dump, watch and check
void add_port_commands(CLI::App& app, Run& run);

}  // namespace keltipc
