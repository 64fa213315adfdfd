#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace keltipc {

/// What a command line asks for; gives the exit status. Each subcommand below sets it when it is the one chosen.
using Run = std::function<int()>;

void add_send_command(CLI::App& app, Run& run);
void add_dump_command(CLI::App& app, Run& run);
void add_unit_command(CLI::App& app, Run& run);
void add_target_command(CLI::App& app, Run& run);

}  // namespace keltipc
