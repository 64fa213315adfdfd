#pragma once

#include <CLI/App.hpp>
#include <functional>

namespace keltipc {

// What CLI11 is told about `unit` and `target`. The command that is chosen sets `run`, which gives the exit status.

void add_unit(CLI::App& app, std::function<int()>& run);
void add_target(CLI::App& app, std::function<int()>& run);

}  // namespace keltipc
