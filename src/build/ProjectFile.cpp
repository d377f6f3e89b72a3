#include "build/ProjectFile.h"

#include <toml++/toml.h>

#include <set>

namespace {

// Every leaf key under `node`, as dotted names, except those in `read`.
void list_ignored(toml::table const& table, std::string const& at, std::set<std::string> const& read,
                  std::vector<std::string>& out) {
  for (auto const& [key, value] : table) {
    std::string name = at.empty() ? std::string(key.str()) : at + "." + std::string(key.str());
    if (read.count(name)) continue;
    if (auto const* sub = value.as_table()) {
      bool any_read = false;
      for (auto const& r : read) any_read |= r.rfind(name + ".", 0) == 0;
      if (any_read) {
        list_ignored(*sub, name, read, out);
        continue;
      }
    }
    out.push_back(name);
  }
}

std::string text_of(toml::node const* node, char const* key, std::string& error) {
  if (!node) return {};
  if (auto s = node->value<std::string>()) return *s;
  error = std::string("'") + key + "' must be a string";
  return {};
}

}  // namespace

std::string ProjectFile::read(std::string const& path, ProjectFile& out) {
  out = ProjectFile{};
  toml::table table;
  try {
    table = toml::parse_file(path);
  } catch (toml::parse_error const& e) {
    return std::string(e.description()) + " (line " + std::to_string(e.source().begin.line) + ")";
  } catch (std::exception const& e) {
    return e.what();
  }
  std::string error;
  out.name = text_of(table.get("name"), "name", error);
  out.prefix = text_of(table.get("prefix"), "prefix", error);
  out.mainprefix = text_of(table.get("mainprefix"), "mainprefix", error);
  if (auto const* version = table.get("version")) {
    if (auto const* t = version->as_table()) {
      if (auto file = text_of(t->get("path"), "version.path", error); !file.empty()) out.version_file = file;
    }
  }
  if (auto const* files = table.at_path("files.include").as_array()) {
    for (auto const& item : *files) {
      if (auto s = item.value<std::string>())
        out.include_globs.push_back(*s);
      else
        error = "'files.include' must be a list of strings";
    }
  }
  out.release_folder = text_of(table.at_path("hemtt.release.folder").node(), "hemtt.release.folder", error);
  if (!error.empty()) return error;
  static std::set<std::string> const kRead = {"name", "prefix", "mainprefix", "version.path", "files.include",
                                              "hemtt.release.folder"};
  list_ignored(table, "", kRead, out.ignored);
  return {};
}
