#include <CLI/CLI.hpp>

#include <cstdio>

#include "Command.h"
#include "core/BisDLL.h"

std::vector<CommandEntry>& command_registry() {
  static std::vector<CommandEntry> registry;
  return registry;
}

int main(int argc, char** argv) {
  CLI::App app{"vendrak: read, write, convert and check the game engine's file formats"};
  app.require_subcommand(0, 1);
  bool version = false;
  app.add_flag("--version", version, "Print the version and exit");

  std::function<int()> run;
  for (auto& entry : command_registry()) {
    CLI::App* sub = app.add_subcommand(entry.name, entry.summary);
    auto fn = entry.setup(*sub);
    sub->callback([&run, fn] { run = fn; });
  }

  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& e) {
    return app.exit(e);
  }
  if (version) {
    std::printf("vendrak %s\n", BisDLL::dll_GetVersionStr());
    return 0;
  }
  if (!run) {
    std::printf("%s", app.help().c_str());
    return 0;
  }
  return run();
}
