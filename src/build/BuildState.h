#pragma once
#include <cstdint>
#include <map>
#include <string>
#include <vector>

// What each archive of a mod build was made from, kept beside the build so that the next build
// skips the addons whose inputs did not change: every file of the addon and every file its configs
// included from elsewhere (size, time and content hash), the options and tool version, the archive
// written, and the facts the cross-addon checks need.
struct BuildState {
  struct Input {
    std::string path;  // absolute
    uint64_t size = 0;
    int64_t mtime_ns = 0;
    std::string hash;  // SHA-1, hex
  };
  // What the checks across addons need to know of one addon's configs.
  struct Facts {
    std::vector<std::string> patches;   // its CfgPatches classes
    std::vector<std::string> required;  // their requiredAddons[]
    std::vector<std::string> defines;   // class paths with a body, "cfgvehicles/man", lower case
    // A class of this addon whose parent is declared external here: class path, parent path.
    std::vector<std::pair<std::string, std::string>> inherits;
    // Game paths its configs name: key path ("CfgVehicles.Car.model"), value.
    std::vector<std::pair<std::string, std::string>> paths;
  };
  struct Record {
    std::string signature;
    std::string archive;
    uint64_t archive_size = 0;
    int64_t archive_mtime_ns = 0;
    std::vector<Input> inputs;
    Facts facts;
  };
  std::map<std::string, Record> addons;  // by the addon's folder, relative to the project
  // The warnings of the checks across addons, kept for a build that rebuilds nothing.
  std::vector<std::string> warnings;
  bool has_warnings = false;

  // A missing or unreadable file is an empty state.
  void load(std::string const& path);
  // Written through a temporary file; false when that failed.
  bool save(std::string const& path) const;

  // The file as it is now; false when it cannot be read.
  static bool describe(std::string const& path, Input& out);
  // True when `record` was made with `signature` into `archive`, the archive is still as it was
  // written, the addon holds exactly the files it held (`files`, absolute, sorted) and no input
  // changed in content.
  static bool current(Record const& record, std::string const& signature, std::string const& archive,
                      std::vector<std::string> const& files);
};
