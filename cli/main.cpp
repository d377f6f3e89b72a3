#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

#include "CliSupport.h"
#include "Command.h"
#include "core/BisDLL.h"
#include "core/Generic_Errors.h"

std::vector<CommandEntry>& command_registry() {
  static std::vector<CommandEntry> registry;
  return registry;
}

namespace {
// Groups of commands per format; a group without a summary here gets a plain one.
std::map<std::string, std::string> const kGroupSummaries = {
    {"cfg", "Configs: decode binarised configs to text, binarise config text"},
    {"p3d", "P3D models: describe, list properties, repair"},
    {"paa", "PAA/PAC textures: describe, copy, convert to and from PNG/TGA pictures"},
    {"sound", "Sounds (WSS, WAV, OGG): describe, convert, lip-sync"},
    {"wrp", "WRP terrains: describe, convert"},
    {"rtm", "RTM animations: describe, convert, pose"},
    {"pew", "Terrain-editor projects: describe, build from a terrain"},
};

// The headings of `vendrak --help`, in the order README presents the formats; a command or group
// not named here is listed under "Other".
std::vector<std::pair<std::string, std::vector<std::string>>> const kSections = {
    {"Archives and mods", {"info", "list", "cat", "extract", "pack", "build", "keygen", "sign", "verify", "check"}},
    {"Configs", {"cfg"}},
    {"Models", {"p3d"}},
    {"Textures", {"paa", "texheaders"}},
    {"Terrains", {"wrp", "pew"}},
    {"Animations", {"rtm"}},
    {"Sounds", {"sound"}},
    {"Fonts", {"fxy"}},
};

// The heading of a command or group, and its place in the help (section, then place in it).
std::pair<size_t, std::string> section_of(std::string const& word) {
  for (size_t i = 0; i < kSections.size(); ++i)
    for (size_t k = 0; k < kSections[i].second.size(); ++k)
      if (kSections[i].second[k] == word) return {i * 100 + k, kSections[i].first};
  return {kSections.size() * 100, "Other"};
}

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

int run_main(int argc, char** argv) {
  // Aliases are rewritten before parsing so that they take every option of the real command.
  std::vector<std::string> args(argv + 1, argv + argc);
  if (!args.empty()) {
    auto alias = kAliases.find(args[0]);
    if (alias != kAliases.end()) {
      args.erase(args.begin());
      args.insert(args.begin(), alias->second.begin(), alias->second.end());
    }
  }

  CLI::App app{"vendrak: read, write, convert and check the game engine's file formats", "vendrak"};
  app.require_subcommand(0, 1);
  bool version = false;
  app.add_flag("-v,--version", version, "Print the version and exit");

  std::function<int()> run;
  std::map<std::string, CLI::App*> groups;
  std::vector<std::string> names;
  // Commands are added section by section, so that the help lists them under their headings.
  std::vector<CommandEntry const*> entries;
  for (auto const& entry : command_registry()) entries.push_back(&entry);
  std::stable_sort(entries.begin(), entries.end(), [](CommandEntry const* a, CommandEntry const* b) {
    return section_of(a->name.substr(0, a->name.find(' '))).first < section_of(b->name.substr(0, b->name.find(' '))).first;
  });
  for (CommandEntry const* e : entries) {
    CommandEntry const& entry = *e;
    CLI::App* parent = &app;
    std::string name = entry.name;
    if (auto space = name.find(' '); space != std::string::npos) {
      std::string group = name.substr(0, space);
      name = name.substr(space + 1);
      CLI::App*& g = groups[group];
      if (!g) {
        auto summary = kGroupSummaries.find(group);
        g = app.add_subcommand(group, summary != kGroupSummaries.end() ? summary->second : group + " commands");
        g->group(section_of(group).second);
        g->require_subcommand(1);
        names.push_back(group);
      }
      parent = g;
    } else {
      names.push_back(name);
    }
    CLI::App* sub = parent->add_subcommand(name, entry.summary);
    if (parent == &app) sub->group(section_of(name).second);
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

  // An unknown command of a group is a usage error even when --help follows it: the help of the
  // group would hide that the command does not exist.
  if (args.size() >= 2 && groups.count(args[0]) && args[1][0] != '-') {
    std::vector<std::string> subs;
    for (CLI::App const* s : groups[args[0]]->get_subcommands([](CLI::App const*) { return true; }))
      subs.push_back(s->get_name());
    if (std::find(subs.begin(), subs.end(), args[1]) == subs.end()) {
      std::string guess = cli_closest(args[1], subs);
      std::string message = "unknown command '" + args[0] + " " + args[1] + "'";
      if (!guess.empty()) message += "; did you mean '" + args[0] + " " + guess + "'?";
      return usage_error(message, "vendrak " + args[0]);
    }
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

int main(int argc, char** argv) {
  // Whatever the guarded library calls did not turn into a result code ends here, with one line
  // and the library's code for an unknown exception, never with the runtime's abort.
  try {
    return run_main(argc, argv);
  } catch (std::exception const& e) {
    std::fflush(stdout);
    std::fprintf(stderr, "vendrak: unexpected error: %s (%d)\n", e.what(), int(GE_UNKNOWN_EXCEPTION));
  } catch (...) {
    std::fflush(stdout);
    std::fprintf(stderr, "vendrak: unexpected error (%d)\n", int(GE_UNKNOWN_EXCEPTION));
  }
  return GE_UNKNOWN_EXCEPTION;
}
