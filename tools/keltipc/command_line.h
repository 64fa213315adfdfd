#pragma once

#include <functional>

namespace keltipc {

/// What the command line asks for; running it gives the exit status. What CLI11 answers by itself (help, the version,
/// a sentence on what it cannot take) is printed when this returns, and running gives the status alone.
std::function<int()> parse_command_line(int argc, char** argv);

}  // namespace keltipc
