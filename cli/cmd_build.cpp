// vendrak build: a project of addons into a mod folder, on every core and incrementally.
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "CliSupport.h"
#include "Command.h"
#include "Console.h"
#include "build/ModBuild.h"

namespace {
struct BuildCommandOptions {
  ModBuild::Options build;
  bool quiet = false;
};

struct Shown {
  ProgressBar* bar;
  bool quiet;
};

// Each addon's block of messages is printed once, when it is done, so parallel builds read in order.
void on_addon(void* context, ModBuild::Addon const& a, size_t done, size_t total) {
  auto* shown = static_cast<Shown*>(context);
  shown->bar->finish();
  if (a.outcome == ModBuild::Outcome::Failed) {
    cli_print_stderr("%s: failed\n%s\n", a.folder.c_str(), a.messages.c_str());
  } else if (!shown->quiet) {
    if (!a.messages.empty()) cli_print_stderr("%s\n", a.messages.c_str());
    cli_print_stdout("%s %s -> %s\n", a.outcome == ModBuild::Outcome::Built ? "built  " : "skipped", a.folder.c_str(),
                     a.archive.c_str());
  }
  shown->bar->update(done, total, a.folder.c_str());
}

int run_build(BuildCommandOptions const& o) {
  bool bar_shown = !o.quiet && isatty(STDERR_FILENO);
  ProgressBar bar(bar_shown);
  Shown shown{&bar, o.quiet};
  ModBuild build;
  build.set_error_sink(cli_print_stderr);
  build.set_addon_hook(on_addon, &shown);
  int r = build.build(o.build, o.quiet ? cli_print_nothing : cli_print_stdout);
  bar.finish();
  if (r != 0 && r != BUILD_ADDONS_FAILED && r != BUILD_WARNINGS)
    cli_error(o.build.project, std::string(ModBuild::ErrorString(r)) + " (" + std::to_string(r) + ")");
  return r;
}

CommandRegistrar build_command(
    {"build", "Build a project of addons into a mod folder, signed, on every core and incrementally",
     [](CLI::App& sub) {
       auto o = std::make_shared<BuildCommandOptions>();
       sub.add_option("PROJECT", o->build.project,
                      "The project folder (addons/, optionals/, include/, .hemtt/project.toml); default: .");
       sub.add_option("-o,--out", o->build.out, "Where the mod folder goes; default: PROJECT/.vendrak/build");
       sub.add_option("--key", o->build.key, "A private key (.biprivatekey): sign every archive, its key to keys/");
       sub.add_option("-I,--include", o->build.includes, "Another root of game paths (repeatable, in order)")
           ->allow_extra_args(false);
       sub.add_option("-j,--jobs", o->build.jobs, "Addons built at once; default: one per core");
       sub.add_option("--name", o->build.name, "The mod's name when the project file gives none");
       sub.add_option("--prefix", o->build.prefix, "The project's prefix when the project file gives none");
       sub.add_option("--mainprefix", o->build.mainprefix, "The folder above the prefix (z, x, ...)");
       sub.add_flag("--compress", o->build.compress, "Compress entries");
       sub.add_flag("--reproducible", o->build.reproducible, "Byte-identical archives for identical sources");
       sub.add_flag("--warnings-as-errors", o->build.warnings_as_errors, "Fail on warnings");
       sub.add_flag("-q,--quiet", o->quiet, "Only failures, warnings and the summary");
       return std::function<int()>([o] { return run_build(*o); });
     }});
}  // namespace
