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

/// "keltipc unit start"
inline std::string command_path(const CLI::App& command) {
  std::string path = command.get_name();
  for (const CLI::App* parent = command.get_parent(); parent != nullptr; parent = parent->get_parent()) {
    path.insert(0, parent->get_name() + " ");
  }
  return path;
}

/// "; see 'keltipc unit start --help'"
inline std::string help_hint(const CLI::App& command) { return "; see '" + command_path(command) + " --help'"; }

/// What stands for the option's value in its help: "BYTES"
inline std::string value_name(const CLI::Option& option) {
  const std::string& text = option.get_option_text();
  return text.empty() ? option.get_type_name() : text.substr(0, text.find('='));
}

/// "--frame is given twice" for the "--frame: At Most 1 required but received 2" of CLI11, and so on.
inline std::string in_plain_words(const CLI::App& command, const CLI::ParseError& error) {
  std::string text = error.what();
  const CLI::Option* const option = command.get_option_no_throw(text.substr(0, text.find(':')));
  if (error.get_name() != "ArgumentMismatch" || option == nullptr) return text;
  const std::string name = option->get_name();
  return option->count() > 1 ? name + " is given twice" : name + " needs " + value_name(*option);
}

/// For a word that begins with a dash
inline std::string option_complaint(const CLI::App& command, const std::string& word) {
  const bool is_early = command.get_option_no_throw(word.substr(0, word.find('='))) != nullptr;
  const std::string place = quote(command_path(command));
  if (is_early) return quote(word) + " is an option of " + place + ": put it behind that";
  const bool may_be_name = word.rfind("--", 0) != 0;
  return quote(word) + " is not an option of " + place +
         (may_be_name ? "; put -- before a name that begins with -" : "");
}

/// What is wrong, naming the word where CLI11 does not: "'strat' is not a command (state, start, stop)"
inline std::string complaint(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& command = chosen_command(app);
  const auto unexpected = app.remaining(true);
  const auto first =
      std::find_if(unexpected.begin(), unexpected.end(), [](const auto& text) { return text != "--"; });
  const std::string word = first == unexpected.end() ? "" : *first;
  if (word.rfind('-', 0) == 0) return option_complaint(command, word);
  std::string names;
  for (const CLI::App* known : command.get_subcommands({})) names += (names.empty() ? "" : ", ") + known->get_name();
  if (!names.empty()) {
    return (word.empty() ? "no command is given" : quote(word) + " is not a command") + " (" + names + ")";
  }
  return word.empty() ? in_plain_words(command, error) : quote(word) + " is one argument too many";
}

/// Prints help or the version, or what is wrong with the command line. Gives the exit status: CLI11 has codes of its
/// own, where users expect 0 and 2.
inline int report(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) {
    app.exit(error);
    if (std::cout.flush()) return exit_done;
    std::cerr << app.get_name() << ": cannot write to standard output" << std::endl;
    return exit_failed;
  }
  std::cerr << app.get_name() + ": " + complaint(app, error) + help_hint(chosen_command(app)) + "\n";
  return exit_usage;
}

/// Help and version at every level, below each command's own options.
inline void add_help(CLI::App& app, const std::string& version) {
  app.set_help_flag("-h,--help", "Print this help")->group("Help");
  app.set_version_flag("-V,--version", version, "Print the version")->group("Help");
  for (CLI::App* const command : app.get_subcommands({})) add_help(*command, version);
}

}  // namespace keltipc
