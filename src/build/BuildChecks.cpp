#include "build/BuildChecks.h"

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <set>

#include "config/rap_entry.h"

namespace {

std::string lower(std::string s) {
  for (char& c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// Game paths are written with backslashes and may start with one.
std::string game_path(std::string s) {
  for (char& c : s)
    if (c == '/') c = '\\';
  while (!s.empty() && s.front() == '\\') s.erase(0, 1);
  return lower(s);
}

bool is_path_key(std::string const& key) {
  std::string k = lower(key);
  for (char const* word : {"model", "picture", "texture", "sound", "icon", "file"})
    if (k.find(word) != std::string::npos) return true;
  return false;
}

void walk(rap_entry const* node, std::string const& path, std::string const& key, BuildState::Facts& facts) {
  for (rap_entry const* e = node->rpe_get_first_child(); e; e = e->rpe_get_next_sibling()) {
    std::string name = e->name();
    switch (e->rpe_GetType()) {
      case rap_entry::RPE_CLASS: {
        std::string at = path.empty() ? lower(name) : path + "/" + lower(name);
        facts.defines.push_back(at);
        if (path == "cfgpatches") {
          facts.patches.push_back(name);
          if (rap_entry const* req = e->rpe_get_array_contents("requiredAddons"))
            for (rap_entry const* r = req; r; r = r->rpe_get_next_sibling())
              if (r->rpe_GetType() == rap_entry::RPE_STRING) facts.required.push_back(r->value());
        }
        std::string parent = e->value();
        if (!parent.empty()) {
          // A parent declared external in the enclosing class comes from another addon.
          for (rap_entry const* s = node->rpe_get_first_child(); s; s = s->rpe_get_next_sibling())
            if (s->rpe_GetType() == rap_entry::RPE_EXTERN && strcasecmp(s->name(), parent.c_str()) == 0) {
              facts.inherits.emplace_back(at, path.empty() ? lower(parent) : path + "/" + lower(parent));
              break;
            }
        }
        walk(e, at, {}, facts);
        break;
      }
      case rap_entry::RPE_ARRAY:
      case rap_entry::RPE_APPEND:
        walk(e, path, name.empty() ? key : name, facts);
        break;
      case rap_entry::RPE_STRING: {
        std::string k = name.empty() ? key : name;
        std::string v = e->value();
        if (is_path_key(k) && v.find('\\') != std::string::npos) facts.paths.emplace_back(path + "." + k, v);
        break;
      }
      default:
        break;
    }
  }
}

// `rest` below `folder`, each part matched without case as the game does.
bool exists_nocase(std::string folder, std::string const& rest) {
  size_t at = 0;
  while (at <= rest.size()) {
    size_t end = rest.find('\\', at);
    std::string part = rest.substr(at, end == std::string::npos ? std::string::npos : end - at);
    at = end == std::string::npos ? rest.size() + 1 : end + 1;
    if (part.empty()) continue;
    DIR* d = ::opendir(folder.c_str());
    if (!d) return false;
    std::string match;
    while (dirent* e = ::readdir(d))
      if (strcasecmp(e->d_name, part.c_str()) == 0) {
        match = e->d_name;
        break;
      }
    ::closedir(d);
    if (match.empty()) return false;
    folder += "/" + match;
  }
  struct stat st;
  return ::stat(folder.c_str(), &st) == 0;
}

// The config texts an addon was made from, lower case, read once for all its warnings.
struct Texts {
  std::vector<std::pair<std::string, std::vector<std::string>>> files;

  explicit Texts(BuildState::Record const& record) {
    for (auto const& in : record.inputs) {
      std::string ext = lower(in.path.substr(in.path.find_last_of('.') + 1));
      if (ext != "cpp" && ext != "hpp" && ext != "h" && ext != "inc" && ext != "cfg") continue;
      std::ifstream f(in.path, std::ios::binary);
      std::vector<std::string> lines;
      for (std::string line; std::getline(f, line);) lines.push_back(lower(line));
      files.emplace_back(in.path, std::move(lines));
    }
  }

  // Where `text` first stands: "file:line", or `fallback` when macros built it and it stands
  // nowhere as written.
  std::string where(std::string const& text, std::string const& fallback) const {
    std::string wanted = lower(text);
    for (auto const& [path, lines] : files)
      for (size_t n = 0; n < lines.size(); ++n)
        if (lines[n].find(wanted) != std::string::npos) return path + ":" + std::to_string(n + 1);
    return fallback;
  }
};

}  // namespace

void BuildChecks::gather(rap_entry const* root, BuildState::Facts& facts) {
  if (root) walk(root, {}, {}, facts);
}

std::vector<std::string> BuildChecks::across(BuildState const& state, std::vector<ModBuild::Addon> const& addons,
                                             std::string const& project, std::string const& project_prefix) {
  std::vector<std::string> warnings;
  // Who provides what.
  std::map<std::string, size_t> patch_owner;  // CfgPatches class, lower case -> addon
  std::map<std::string, size_t> class_owner;  // class path -> first addon defining it with a body
  std::vector<BuildState::Record const*> records(addons.size(), nullptr);
  for (size_t i = 0; i < addons.size(); ++i) {
    auto it = state.addons.find(addons[i].folder);
    if (it == state.addons.end()) continue;
    records[i] = &it->second;
    for (auto const& p : it->second.facts.patches) patch_owner.emplace(lower(p), i);
  }
  for (size_t i = 0; i < addons.size(); ++i)
    if (records[i])
      for (auto const& d : records[i]->facts.defines) class_owner.emplace(d, i);

  for (size_t i = 0; i < addons.size(); ++i) {
    BuildState::Record const* r = records[i];
    if (!r) continue;
    std::unique_ptr<Texts> texts;  // read only when there is something to report
    auto where = [&](std::string const& text, std::string const& fallback) {
      if (!texts) texts = std::make_unique<Texts>(*r);
      return texts->where(text, fallback);
    };
    std::string config = project + "/" + addons[i].folder + "/config.cpp";
    // The addons this one may rely on: its requiredAddons, and theirs within the project.
    std::set<size_t> reach;
    std::vector<size_t> todo;
    auto require = [&](std::string const& name) {
      auto o = patch_owner.find(lower(name));
      if (o != patch_owner.end() && reach.insert(o->second).second) todo.push_back(o->second);
    };
    for (auto const& n : r->facts.required) require(n);
    while (!todo.empty()) {
      size_t k = todo.back();
      todo.pop_back();
      if (records[k])
        for (auto const& n : records[k]->facts.required) require(n);
    }
    for (auto const& [cls, parent] : r->facts.inherits) {
      auto o = class_owner.find(parent);
      if (o == class_owner.end() || o->second == i || reach.count(o->second)) continue;
      std::string patch = records[o->second]->facts.patches.empty() ? addons[o->second].name
                                                                      : records[o->second]->facts.patches.front();
      std::string name = cls.substr(cls.find_last_of('/') + 1);
      std::string base = parent.substr(parent.find_last_of('/') + 1);
      warnings.push_back(where("class " + name, config) + ": class " + name + " inherits from " + base +
                         " of addon " + addons[o->second].name + ", but requiredAddons[] does not list " + patch);
    }
    // Game paths under the project's prefix that no addon holds.
    std::string ours = game_path(project_prefix) + "\\";
    for (auto const& [key, value] : r->facts.paths) {
      std::string p = game_path(value);
      if (p.rfind(ours, 0) != 0) continue;
      bool found = false;
      bool under_addon = false;
      for (auto const& a : addons) {
        std::string pre = game_path(a.prefix) + "\\";
        if (p.rfind(pre, 0) != 0) continue;
        under_addon = true;
        std::string rest = p.substr(pre.size());
        std::string folder = project + "/" + a.folder;
        bool has_ext = rest.find('.', rest.find_last_of('\\') + 1) != std::string::npos;
        found = exists_nocase(folder, rest);
        if (!has_ext)
          for (char const* ext : {".p3d", ".paa", ".wss", ".ogg", ".wav"}) found = found || exists_nocase(folder, rest + ext);
        if (found) break;
      }
      if (!found)
        warnings.push_back(where(value, config) + ": " + key + " names " + value + ", which " +
                           (under_addon ? "no addon of the project holds" : "is under no addon of the project"));
    }
  }
  return warnings;
}
