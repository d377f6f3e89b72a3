#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "core/BisCallback.h"
#include "io/BisFileIO.h"

// Result codes of a project build, after the shared ones (0-9).
enum BuildErrors : int {
  BUILD_NO_PROJECT = 10,         // the project folder does not exist
  BUILD_BAD_PROJECT_FILE = 11,   // .hemtt/project.toml cannot be read
  BUILD_NO_ADDONS = 12,          // no addons/ (or optionals/) folder with an addon in it
  BUILD_ADDONS_FAILED = 13,      // one addon or more failed; the others were built
  BUILD_WARNINGS = 14,           // warnings, and warnings count as errors
  BUILD_CANNOT_WRITE = 15,       // the output folder, the state or a copied file cannot be written
  BUILD_SIGNING_FAILED = 16,     // the key cannot be read or an archive cannot be signed
};

// A mod project built into a mod folder: every addon folder of PROJECT/addons (and optionals)
// packed into OUT/@<mod>/addons/<prefix>_<addon>.pbo with its configs binarised, on every core,
// skipping addons whose inputs did not change since the last build; the project's include
// files copied beside them and, with a key, the public key in keys/ and a signature per archive.
class ModBuild {
 public:
  struct Options {
    std::string project = ".";
    std::string out;                    // default PROJECT/.vendrak/build
    std::string key;                    // a private key: sign every archive
    std::vector<std::string> includes;  // more roots for game paths
    std::string name, prefix, mainprefix;  // override the project file
    unsigned jobs = 0;                  // 0: one per core
    bool compress = false;
    bool reproducible = false;
    bool warnings_as_errors = false;
  };

  enum class Outcome { Built, Skipped, Failed };
  struct Addon {
    std::string folder;   // addons/<name> or optionals/<name>, relative to the project
    std::string name;
    std::string prefix;   // the archive's prefix
    std::string archive;  // the archive's path
    bool optional = false;
    Outcome outcome = Outcome::Skipped;
    int code = 0;
    std::string messages;  // what its build said, kept together
  };

  // Called once per addon as it finishes (from the thread that built it, one at a time).
  using AddonHook = void (*)(void* context, Addon const& addon, size_t done, size_t total);

  ModBuild();
  ~ModBuild();
  ModBuild(ModBuild const&) = delete;
  ModBuild& operator=(ModBuild const&) = delete;

  // Builds the project. Messages (the ignored project keys, warnings of the checks, the summary)
  // go to `callback`, errors to the error sink. 0, or a code of BuildErrors or the shared table.
  int build(Options const& options, BisCallback callback);
  void set_error_sink(BisCallback errors) { _io.io_SetErrCallBack(errors); }
  void set_addon_hook(AddonHook hook, void* context) {
    _hook = hook;
    _hook_context = context;
  }

  std::vector<Addon> const& addons() const { return _addons; }
  std::string const& mod_folder() const { return _mod_folder; }
  unsigned warnings() const { return _warnings; }
  double seconds() const { return _seconds; }

  static char const* ErrorString(int code);

 private:
  struct Run;
  int _build(Options const& options);
  void _build_addon(Run& run, Addon& addon);
  int _finish_mod(Run& run, std::vector<std::string> const& include_globs);
  int _sign_mod(Run& run);

  BisFileIO _io;
  AddonHook _hook = nullptr;
  void* _hook_context = nullptr;
  std::vector<Addon> _addons;
  std::string _mod_folder;
  unsigned _warnings = 0;
  double _seconds = 0;
};
