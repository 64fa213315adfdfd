#pragma once

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <string>

#include "escape.h"
#include "exit_status.h"

namespace keltipc {

/// The innermost command that was recognised: `keltipc unit start` for "keltipc unit start --foo".
inline const CLI::App& chosen_command(const CLI::App& app) {
  const auto chosen = app.get_subcommands();
  return chosen.empty() ? app : chosen_command(*chosen.front());
}

/// "; see 'keltipc unit start --help'"
inline std::string help_hint(const CLI::App& command) {
  std::string path = command.get_name();
  for (const CLI::App* parent = command.get_parent(); parent != nullptr; parent = parent->get_parent()) {
    path.insert(0, parent->get_name() + " ");
  }
  return "; see '" + path + " --help'";
}

/// What is wrong, naming the word where CLI11 does not: "'strat' is not a command (state, start, stop)"
inline std::string complaint(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = chosen_command(app);
  const auto unexpected = app.remaining(true);
  const auto first =
      std::find_if(unexpected.begin(), unexpected.end(), [](const auto& text) { return text != "--"; });
  const std::string word = first == unexpected.end() ? "" : quote(*first);
  if (word.rfind("'-", 0) == 0) return word + " is not an option here; put -- before a name that begins with -";
  std::string names;
  for (const CLI::App* known : command.get_subcommands({})) names += (names.empty() ? "" : ", ") + known->get_name();
  if (!names.empty()) return (word.empty() ? "no command is given" : word + " is not a command") + " (" + names + ")";
  return word.empty() ? error.what() : word + " is one argument too many";
}

/// Prints help or the version, or what is wrong with the command line. Gives the exit status: CLI11 has codes of its
/// own, where users expect 0 and 2.
inline int report(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) {
    app.exit(error);
    return exit_done;
  }
  std::cerr << app.get_name() << ": " << complaint(app, error) << help_hint(chosen_command(app)) << std::endl;
  return exit_usage;
}

/// Help and version at every level, below each command's own options.
inline void add_help(CLI::App& app, const std::string& version) {
  app.set_help_flag("-h,--help", "Print this help")->group("Help");
  app.set_version_flag("-V,--version", version, "Print the version")->group("Help");
  for (CLI::App* const command : app.get_subcommands({})) add_help(*command, version);
}

}  // namespace keltipc
