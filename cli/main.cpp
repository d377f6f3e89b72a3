#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstring>
#include <map>

#include "CliSupport.h"
#include "Command.h"
#include "core/BisDLL.h"

std::vector<CommandEntry>& command_registry() {
  static std::vector<CommandEntry> registry;
  return registry;
}

namespace {
// Groups of commands per format; a group without a summary here gets a plain one.
std::map<std::string, std::string> const kGroupSummaries = {
    {"cfg", "Configs: decode binarised configs to text, binarise config text"},
    {"p3d", "P3D models: describe, list properties, repair"},
    {"paa", "PAA/PAC textures: describe, copy"},
    {"sound", "Sounds (WSS, WAV, OGG): describe, convert, lip-sync"},
    {"wrp", "WRP terrains: describe, convert"},
    {"rtm", "RTM animations: describe, convert, pose"},
    {"pew", "Terrain-editor projects: describe, build from a terrain"},
};

// Names users know from other tools and habits, each standing for one of our commands.
std::map<std::string, std::vector<std::string>> const kAliases = {
    {"unpack", {"extract"}},
    {"inspect", {"info"}},
    {"decode", {"cfg", "decode"}},
    {"binarise", {"cfg", "binarise"}},
    {"binarize", {"cfg", "binarise"}},
};

std::string command_path(CLI::App const& app) {
  std::string path = "vendrak";
  CLI::App const* at = &app;
  for (;;) {
    CLI::App const* next = nullptr;
    for (CLI::App const* sub : at->get_subcommands([](CLI::App const*) { return true; }))
      if (sub->parsed()) next = sub;
    if (!next) return path;
    path += " " + next->get_name();
    at = next;
  }
}

int usage_error(std::string const& message, std::string const& hint_path) {
  std::fflush(stdout);
  std::fprintf(stderr, "vendrak: %s (see '%s --help')\n", message.c_str(), hint_path.c_str());
  return kExitUsage;
}
}  // namespace

int main(int argc, char** argv) {
  // Aliases are rewritten before parsing so that they take every option of the real command.
  std::vector<std::string> args(argv + 1, argv + argc);
  if (!args.empty()) {
    auto alias = kAliases.find(args[0]);
    if (alias != kAliases.end()) {
      args.erase(args.begin());
      args.insert(args.begin(), alias->second.begin(), alias->second.end());
    }
  }

  CLI::App app{"vendrak: read, write, convert and check the game engine's file formats"};
  app.require_subcommand(0, 1);
  bool version = false;
  app.add_flag("-v,--version", version, "Print the version and exit");

  std::function<int()> run;
  std::map<std::string, CLI::App*> groups;
  std::vector<std::string> names;
  for (auto& entry : command_registry()) {
    CLI::App* parent = &app;
    std::string name = entry.name;
    if (auto space = name.find(' '); space != std::string::npos) {
      std::string group = name.substr(0, space);
      name = name.substr(space + 1);
      CLI::App*& g = groups[group];
      if (!g) {
        auto summary = kGroupSummaries.find(group);
        g = app.add_subcommand(group, summary != kGroupSummaries.end() ? summary->second : group + " commands");
        g->require_subcommand(1);
        names.push_back(group);
      }
      parent = g;
    } else {
      names.push_back(name);
    }
    CLI::App* sub = parent->add_subcommand(name, entry.summary);
    auto fn = entry.setup(*sub);
    sub->callback([&run, fn] { run = fn; });
  }
  for (auto const& a : kAliases) names.push_back(a.first);

  // An unknown word where a command belongs gets a suggestion instead of CLI11's generic text.
  if (!args.empty() && args[0][0] != '-' && std::find(names.begin(), names.end(), args[0]) == names.end()) {
    std::string guess = cli_closest(args[0], names);
    std::string message = "unknown command '" + args[0] + "'";
    if (!guess.empty()) message += "; did you mean '" + guess + "'?";
    return usage_error(message, "vendrak");
  }

  std::vector<std::string> reversed(args.rbegin(), args.rend());
  try {
    app.parse(reversed);
  } catch (CLI::CallForHelp const& e) {
    return app.exit(e);
  } catch (CLI::CallForAllHelp const& e) {
    return app.exit(e);
  } catch (CLI::ParseError const& e) {
    if (e.get_exit_code() == 0) return app.exit(e);
    std::string path = command_path(app);
    std::string message = e.what();
    // A group needs one of its commands: name them, and suggest one for a near miss.
    if (auto g = groups.find(path.substr(path.find(' ') + 1)); path != "vendrak" && g != groups.end()) {
      std::vector<std::string> subs;
      for (CLI::App const* s : g->second->get_subcommands([](CLI::App const*) { return true; }))
        subs.push_back(s->get_name());
      std::string tried;
      for (size_t i = 0; i + 1 < args.size(); ++i)
        if (args[i] == g->first) tried = args[i + 1];
      std::string guess = tried.empty() ? std::string() : cli_closest(tried, subs);
      if (!tried.empty() && tried[0] != '-')
        message = "unknown command '" + g->first + " " + tried + "'";
      else
        message = "'" + g->first + "' needs a command";
      if (!guess.empty()) message += "; did you mean '" + g->first + " " + guess + "'?";
    }
    return usage_error(message, path);
  }
  if (version) {
    std::printf("vendrak %s\n", BisDLL::dll_GetVersionStr());
    return 0;
  }
  if (!run) return usage_error("no command given", "vendrak");
  return run();
}
