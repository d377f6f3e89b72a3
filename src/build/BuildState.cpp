#include "build/BuildState.h"

#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

std::string sha1_hex(std::string const& path) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return {};
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  EVP_DigestInit_ex(ctx, EVP_sha1(), nullptr);
  std::vector<unsigned char> buf(1 << 16);
  size_t n;
  while ((n = std::fread(buf.data(), 1, buf.size(), f)) > 0) EVP_DigestUpdate(ctx, buf.data(), n);
  bool failed = std::ferror(f);
  std::fclose(f);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned len = 0;
  EVP_DigestFinal_ex(ctx, digest, &len);
  EVP_MD_CTX_free(ctx);
  if (failed) return {};
  static char const kHex[] = "0123456789abcdef";
  std::string hex;
  for (unsigned i = 0; i < len; ++i) {
    hex += kHex[digest[i] >> 4];
    hex += kHex[digest[i] & 15];
  }
  return hex;
}

bool stat_of(std::string const& path, uint64_t& size, int64_t& mtime_ns) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  size = uint64_t(st.st_size);
  mtime_ns = int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
  return true;
}

json pairs_json(std::vector<std::pair<std::string, std::string>> const& pairs) {
  json a = json::array();
  for (auto const& [x, y] : pairs) a.push_back({x, y});
  return a;
}

std::vector<std::pair<std::string, std::string>> pairs_of(json const& a) {
  std::vector<std::pair<std::string, std::string>> out;
  if (!a.is_array()) return out;
  for (auto const& p : a)
    if (p.is_array() && p.size() == 2 && p[0].is_string() && p[1].is_string())
      out.emplace_back(p[0].get<std::string>(), p[1].get<std::string>());
  return out;
}

std::vector<std::string> strings_of(json const& a) {
  std::vector<std::string> out;
  if (!a.is_array()) return out;
  for (auto const& s : a)
    if (s.is_string()) out.push_back(s.get<std::string>());
  return out;
}

}  // namespace

bool BuildState::describe(std::string const& path, Input& out) {
  out.path = path;
  if (!stat_of(path, out.size, out.mtime_ns)) return false;
  out.hash = sha1_hex(path);
  return !out.hash.empty();
}

bool BuildState::current(Record const& record, std::string const& signature, std::string const& archive,
                         std::vector<std::string> const& files) {
  if (record.signature != signature || record.archive != archive) return false;
  uint64_t size;
  int64_t mtime;
  if (!stat_of(archive, size, mtime) || size != record.archive_size || mtime != record.archive_mtime_ns) return false;
  // The addon's own files: the same set (a new or deleted file rebuilds).
  size_t own = 0;
  for (auto const& in : record.inputs)
    if (std::binary_search(files.begin(), files.end(), in.path)) ++own;
  if (own != files.size()) return false;
  for (auto const& in : record.inputs) {
    if (!stat_of(in.path, size, mtime) || size != in.size) return false;
    // A touched file whose bytes are the same does not rebuild.
    if (mtime != in.mtime_ns && sha1_hex(in.path) != in.hash) return false;
  }
  return true;
}

void BuildState::load(std::string const& path) {
  addons.clear();
  warnings.clear();
  has_warnings = false;
  std::ifstream in(path, std::ios::binary);
  if (!in) return;
  json doc = json::parse(in, nullptr, false);
  if (!doc.is_object() || !doc["addons"].is_object()) return;
  if (doc.contains("warnings") && doc["warnings"].is_array()) {
    warnings = strings_of(doc["warnings"]);
    has_warnings = true;
  }
  for (auto const& [folder, r] : doc["addons"].items()) {
    if (!r.is_object()) continue;
    Record rec;
    rec.signature = r.value("signature", "");
    rec.archive = r.value("archive", "");
    rec.archive_size = r.value("archive_size", uint64_t(0));
    rec.archive_mtime_ns = r.value("archive_mtime_ns", int64_t(0));
    if (r.contains("inputs") && r["inputs"].is_array())
      for (auto const& i : r["inputs"]) {
        if (!i.is_object()) continue;
        rec.inputs.push_back({i.value("path", ""), i.value("size", uint64_t(0)), i.value("mtime_ns", int64_t(0)),
                              i.value("sha1", "")});
      }
    json const& f = r.contains("facts") ? r["facts"] : json::object();
    if (f.is_object()) {
      rec.facts.patches = strings_of(f.value("patches", json::array()));
      rec.facts.required = strings_of(f.value("required", json::array()));
      rec.facts.defines = strings_of(f.value("defines", json::array()));
      rec.facts.inherits = pairs_of(f.value("inherits", json::array()));
      rec.facts.paths = pairs_of(f.value("paths", json::array()));
    }
    addons[folder] = std::move(rec);
  }
}

bool BuildState::save(std::string const& path) const {
  json doc;
  doc["tool"] = "vendrak 6.54";
  doc["warnings"] = warnings;
  json& all = doc["addons"] = json::object();
  for (auto const& [folder, r] : addons) {
    json inputs = json::array();
    for (auto const& i : r.inputs)
      inputs.push_back({{"path", i.path}, {"size", i.size}, {"mtime_ns", i.mtime_ns}, {"sha1", i.hash}});
    all[folder] = {{"signature", r.signature},
                   {"archive", r.archive},
                   {"archive_size", r.archive_size},
                   {"archive_mtime_ns", r.archive_mtime_ns},
                   {"inputs", inputs},
                   {"facts",
                    {{"patches", r.facts.patches},
                     {"required", r.facts.required},
                     {"defines", r.facts.defines},
                     {"inherits", pairs_json(r.facts.inherits)},
                     {"paths", pairs_json(r.facts.paths)}}}};
  }
  // Paths come from the file system and may hold any bytes; they are written as they are.
  std::string text = doc.dump(1, ' ', false, json::error_handler_t::replace);
  std::string temp = path + ".tmp";
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out << text << '\n';
    if (!out.flush()) return false;
  }
  return std::rename(temp.c_str(), path.c_str()) == 0;
}
