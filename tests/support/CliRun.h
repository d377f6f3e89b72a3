#pragma once
// Runs the built tool through the shell as a user would, with its output streams caught.
#include <cstdlib>
#include <string>
#include <vector>

#include "cli/ToolRun.h"

namespace clirun {
using CliRun = toolrun::Result;

inline std::string slurp(std::string const& path) { return toolrun::slurp(path); }

// `args` follows the tool's name as a shell line (quoted by the caller); the streams go to `stem`.stdout and
// `stem`.stderr, where `stem` lies in the caller's own folder: test processes may run at once. A `folder`
// given is where the tool runs.
inline CliRun run_tool(std::string const& args, std::string const& stem, std::string const& folder = "") {
  std::string out = stem + ".stdout", err = stem + ".stderr";
  std::string cd = folder.empty() ? "" : "cd '" + folder + "' && ";
  int st = std::system((cd + "'" VENDRAK_CLI_PATH "' " + args + " >'" + out + "' 2>'" + err + "' </dev/null").c_str());
  return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, slurp(out), slurp(err)};
}

// Every argument in single quotes (none may hold one).
inline std::string quoted(std::vector<std::string> const& args) {
  std::string line;
  for (auto const& a : args) line += (line.empty() ? "'" : " '") + a + "'";
  return line;
}

}  // namespace clirun
