#pragma once
#include <string>
#include <vector>

// The description of a mod project that most projects of the community already carry in
// `.hemtt/project.toml`: its name, the prefixes its addons
// are mounted under, the files copied into the finished mod and the file holding its version
// macros. Only that common subset is read; every other key is listed as ignored.
struct ProjectFile {
  std::string name;
  std::string prefix;
  std::string mainprefix;
  std::vector<std::string> include_globs;  // [files] include: copied into the mod folder
  std::string version_file = "addons/main/script_version.hpp";
  std::string release_folder;              // [hemtt.release] folder: the mod folder's name
  std::vector<std::string> ignored;        // dotted names of the keys not read

  // Reads `path`. Returns "" on success, otherwise the reason (with the line where the TOML
  // reader stopped).
  static std::string read(std::string const& path, ProjectFile& out);
};
