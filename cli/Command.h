#pragma once
#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

// Each command file registers itself; main() adds every registered command to the application.
// A name of two words ("cfg decode") adds a subcommand to the group named by the first word, so a
// group's commands may live in several files. A command's run function returns the library's
// result code, which becomes the exit status.
struct CommandEntry {
  std::string name;
  std::string summary;
  // Adds options to `sub` and returns the function that runs the command.
  std::function<std::function<int()>(CLI::App& sub)> setup;
};

std::vector<CommandEntry>& command_registry();

struct CommandRegistrar {
  explicit CommandRegistrar(CommandEntry entry) { command_registry().push_back(std::move(entry)); }
};
