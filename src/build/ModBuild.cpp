#include "build/ModBuild.h"

#include <dirent.h>
#include <fnmatch.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "build/BuildChecks.h"
#include "build/BuildState.h"
#include "build/ProjectFile.h"
#include "config/Sembric.h"
#include "core/BisDLL.h"
#include "core/BisMessage.h"
#include "core/GuardedCall.h"
#include "pbo/ArchiveSigner.h"
#include "pbo/Vendrak.h"

namespace fs = std::filesystem;

namespace {

// Each addon is built on one thread; what its tools say is kept in that thread's buffer and
// shown as one block when the addon is done, so that parallel builds do not interleave.
thread_local std::string* t_said = nullptr;

bool keep_error(char const* format, ...) {
  if (!t_said) return true;
  va_list ap;
  va_start(ap, format);
  *t_said += bis_vformat(format, ap);
  va_end(ap);
  return true;
}

bool drop(char const*, ...) { return true; }

// The library's messages end their lines with CR LF; a build log is read on a terminal.
std::string plain_lines(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

std::vector<std::string> split_path(std::string const& prefix) {
  std::vector<std::string> parts;
  std::string part;
  for (char c : prefix) {
    if (c == '\\' || c == '/') {
      if (!part.empty()) parts.push_back(part);
      part.clear();
    } else {
      part += c;
    }
  }
  if (!part.empty()) parts.push_back(part);
  return parts;
}

// The prefix an addon's own prefix file gives (first line, or its "prefix=" property).
std::string prefix_file_value(fs::path const& folder) {
  for (char const* name : {"$PBOPREFIX$", "$PBOPREFIX$.txt", "PboPrefix.txt"}) {
    std::error_code ec;
    if (!fs::is_regular_file(folder / name, ec)) continue;
    std::vector<std::string> lines;
    FILE* f = std::fopen((folder / name).c_str(), "rb");
    if (!f) continue;
    char buf[1024];
    std::string first;
    while (std::fgets(buf, sizeof buf, f)) {
      std::string line = buf;
      while (!line.empty() && (line.back() == '\n' || line.back() == '\r' || line.back() == ' ')) line.pop_back();
      if (line.size() >= 3 && static_cast<unsigned char>(line[0]) == 0xEF) line.erase(0, 3);  // byte-order mark
      if (line.empty()) continue;
      if (line.rfind("prefix=", 0) == 0) {
        first = line.substr(7);
        break;
      }
      if (line.find('=') == std::string::npos && first.empty()) first = line;
    }
    std::fclose(f);
    while (!first.empty() && (first.front() == '\\' || first.front() == '/')) first.erase(0, 1);
    return first;
  }
  return {};
}

int mode_of(ModBuild::Options const& o) {
  // Editable models are packed as they are until models are binarised with the rest.
  return Vendrak::MAKE_STYLE_ARMA | Vendrak::MAKE_PROCESS_CONTENT | Vendrak::MAKE_ACCEPT_MLOD | (o.compress ? Vendrak::MAKE_COMPRESS : 0) |
         (o.reproducible ? Vendrak::MAKE_REPRODUCIBLE : 0) | (o.warnings_as_errors ? Vendrak::MAKE_WARNINGS_ARE_ERRORS : 0);
}

}  // namespace

// What one build knows besides its options.
struct ModBuild::Run {
  Options const& options;
  fs::path project;
  fs::path out;
  fs::path paths_root;  // game paths of the project's addons, as links to their folders
  std::vector<std::string> roots;
  std::string signature;  // the options and tool version every archive was made with
  BuildState state;
  std::mutex lock;
};

ModBuild::ModBuild() { _io.io_SetErrCallBack(drop); }
ModBuild::~ModBuild() = default;

char const* ModBuild::ErrorString(int code) {
  switch (code) {
    case BUILD_NO_PROJECT: return "project folder not found";
    case BUILD_BAD_PROJECT_FILE: return "project file cannot be read";
    case BUILD_NO_ADDONS: return "no addons in the project";
    case BUILD_ADDONS_FAILED: return "addon(s) failed to build";
    case BUILD_WARNINGS: return "warnings treated as errors";
    case BUILD_CANNOT_WRITE: return "cannot write the build output";
    case BUILD_SIGNING_FAILED: return "archives cannot be signed";
    default: return Vendrak::ErrorString(code);
  }
}

int ModBuild::build(Options const& options, BisCallback callback) {
  _io.io_SetStdioCallBack(callback ? callback : drop);
  return bis_guarded_call<BuildErrors>(_io, GE_UNKNOWN_EXCEPTION, GE_UNKNOWN_EXCEPTION,
                                       [&] { return _build(options); });
}

int ModBuild::_build(Options const& o) {
  auto started = std::chrono::steady_clock::now();
  _addons.clear();
  _warnings = 0;
  std::error_code ec;
  fs::path project = fs::canonical(o.project, ec);
  if (ec || !fs::is_directory(project)) {
    _io.io_callbackerr("%s: %s\n", o.project.c_str(), ErrorString(BUILD_NO_PROJECT));
    return BUILD_NO_PROJECT;
  }

  ProjectFile file;
  fs::path toml = project / ".hemtt" / "project.toml";
  if (fs::exists(toml, ec)) {
    std::string why = ProjectFile::read(toml.string(), file);
    if (!why.empty()) {
      _io.io_callbackerr("%s: %s\n", toml.c_str(), why.c_str());
      return BUILD_BAD_PROJECT_FILE;
    }
    if (!file.ignored.empty()) {
      std::string keys;
      for (auto const& k : file.ignored) keys += (keys.empty() ? "" : ", ") + k;
      _io.io_callback("%s: ignored keys: %s\n", toml.c_str(), keys.c_str());
    }
  }
  if (!o.name.empty()) file.name = o.name;
  if (!o.prefix.empty()) file.prefix = o.prefix;
  if (!o.mainprefix.empty()) file.mainprefix = o.mainprefix;
  if (file.prefix.empty()) file.prefix = project.filename().string();
  if (file.name.empty()) file.name = file.prefix;

  Run run{o, project, o.out.empty() ? project / ".vendrak" / "build" : fs::absolute(o.out), {}, {}, {}, {}, {}};
  std::string mod = "@" + (file.release_folder.empty() ? file.name : file.release_folder);
  _mod_folder = (run.out / mod).string();

  // The addons: every folder of addons/ and optionals/, in name order.
  for (char const* kind : {"addons", "optionals"}) {
    fs::path dir = project / kind;
    if (!fs::is_directory(dir, ec)) continue;
    std::vector<std::string> names;
    for (auto const& e : fs::directory_iterator(dir, ec))
      if (e.is_directory() && e.path().filename().string()[0] != '.') names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    for (auto const& n : names) {
      Addon a;
      a.folder = std::string(kind) + "/" + n;
      a.name = n;
      a.optional = std::strcmp(kind, "optionals") == 0;
      a.prefix = prefix_file_value(dir / n);
      if (a.prefix.empty()) {
        a.prefix = file.mainprefix.empty() ? "" : file.mainprefix + "\\";
        a.prefix += file.prefix + "\\addons\\" + n;
      }
      a.archive = (run.out / mod / kind / (file.prefix + "_" + n + ".pbo")).string();
      _addons.push_back(std::move(a));
    }
  }
  if (_addons.empty()) {
    _io.io_callbackerr("%s: %s\n", project.c_str(), ErrorString(BUILD_NO_ADDONS));
    return BUILD_NO_ADDONS;
  }

  // Game paths of the project: a tree of links, one per addon, where its prefix puts it.
  run.paths_root = run.out / ".paths";
  fs::remove_all(run.paths_root, ec);
  for (auto const& a : _addons) {
    auto parts = split_path(a.prefix);
    if (parts.empty()) continue;
    fs::path link = run.paths_root;
    for (size_t i = 0; i + 1 < parts.size(); ++i) link /= parts[i];
    fs::create_directories(link, ec);
    fs::create_directory_symlink(project / a.folder, link / parts.back(), ec);
  }
  if (!fs::is_directory(run.paths_root, ec)) fs::create_directories(run.paths_root, ec);
  if (ec && !fs::is_directory(run.paths_root)) {
    _io.io_callbackerr("%s: %s\n", run.paths_root.c_str(), ec.message().c_str());
    return BUILD_CANNOT_WRITE;
  }
  run.roots.push_back(run.paths_root.string());
  if (fs::is_directory(project / "include", ec)) run.roots.push_back((project / "include").string());
  for (auto const& i : o.includes) run.roots.push_back(fs::absolute(i).string());

  run.signature = std::string("vendrak 6.54;mode=") + std::to_string(mode_of(o));
  for (auto const& r : run.roots) run.signature += ";I=" + r;
  fs::path state_path = run.out / ".vendrak-build.json";
  run.state.load(state_path.string());

  // Build on every core; each worker takes the next addon.
  unsigned jobs = o.jobs ? o.jobs : std::max(1u, std::thread::hardware_concurrency());
  jobs = std::min<unsigned>(jobs, unsigned(_addons.size()));
  std::atomic<size_t> next{0};
  size_t done = 0;
  auto work = [&] {
    for (size_t i = next++; i < _addons.size(); i = next++) {
      Addon& a = _addons[i];
      _build_addon(run, a);
      std::lock_guard<std::mutex> guard(run.lock);
      ++done;
      if (_hook) _hook(_hook_context, a, done, _addons.size());
    }
  };
  std::vector<std::thread> threads;
  for (unsigned t = 1; t < jobs; ++t) threads.emplace_back(work);
  work();
  for (auto& t : threads) t.join();

  int result = 0;
  size_t built = 0, skipped = 0, failed = 0;
  for (auto const& a : _addons) {
    built += a.outcome == Outcome::Built;
    skipped += a.outcome == Outcome::Skipped;
    failed += a.outcome == Outcome::Failed;
  }

  // Checks across addons: what one names and another provides. When nothing was rebuilt, nothing
  // they look at changed, and the last build's findings stand.
  if (built || failed || !run.state.has_warnings || run.state.addons.size() != _addons.size()) {
    std::string project_prefix = (file.mainprefix.empty() ? "" : file.mainprefix + "\\") + file.prefix;
    run.state.warnings = BuildChecks::across(run.state, _addons, project.string(), project_prefix);
  }
  for (auto const& w : run.state.warnings) _io.io_callbackerr("warning: %s\n", w.c_str());
  _warnings = unsigned(run.state.warnings.size());
  if (failed) result = BUILD_ADDONS_FAILED;

  if (!run.state.save(state_path.string())) {
    _io.io_callbackerr("%s: cannot be written\n", state_path.c_str());
    if (!result) result = BUILD_CANNOT_WRITE;
  }
  if (!result) result = _finish_mod(run, file.include_globs);
  if (!result && o.warnings_as_errors && _warnings) result = BUILD_WARNINGS;

  _seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  _io.io_callback("%zu addon(s): %zu built, %zu skipped, %zu failed, %u warning(s) in %.2f s\n", _addons.size(),
                  built, skipped, failed, _warnings, _seconds);
  return result;
}

namespace {

// Every regular file below `folder`, absolute and sorted; links are not followed out of it.
std::vector<std::string> files_below(fs::path const& folder) {
  std::vector<std::string> out;
  std::error_code ec;
  for (auto it = fs::recursive_directory_iterator(folder, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec))
    if (it->is_regular_file(ec) && !it->is_symlink(ec)) out.push_back(it->path().string());
  std::sort(out.begin(), out.end());
  return out;
}

// A fault's place, "In File F: circa Line N", gets the source line itself, so the modder sees it
// without opening the file.
std::string with_source_lines(std::string const& said) {
  std::string out;
  size_t at = 0;
  while (at < said.size()) {
    size_t end = said.find('\n', at);
    std::string line = said.substr(at, end == std::string::npos ? std::string::npos : end - at);
    at = end == std::string::npos ? said.size() : end + 1;
    out += line + "\n";
    size_t file = line.find("In File ");
    size_t circa = line.find(": circa Line ");
    if (file == std::string::npos || circa == std::string::npos || circa < file) continue;
    std::string path = line.substr(file + 8, circa - file - 8);
    int number = std::atoi(line.c_str() + circa + 13);
    std::ifstream in(path, std::ios::binary);
    std::string text;
    for (int n = 1; number > 0 && std::getline(in, text); ++n)
      if (n == number) {
        text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
        out += "    " + std::to_string(n) + " | " + text + "\n";
        break;
      }
  }
  return plain_lines(out);
}

}  // namespace

void ModBuild::_build_addon(Run& run, Addon& a) {
  fs::path source = run.project / a.folder;
  std::vector<std::string> files = files_below(source);
  {
    std::lock_guard<std::mutex> guard(run.lock);
    auto it = run.state.addons.find(a.folder);
    if (it != run.state.addons.end() && BuildState::current(it->second, run.signature, a.archive, files)) {
      a.outcome = Outcome::Skipped;
      return;
    }
  }

  std::string said;
  t_said = &said;
  struct Unhook {
    ~Unhook() { t_said = nullptr; }
  } unhook;
  BisDLL dll;
  Vendrak* pbo = dll.dll_GetVendrak();
  pbo->pbo_GetIO()->io_SetErrCallBack(keep_error);
  for (auto const& r : run.roots) pbo->pbo_AddIncludeFolder(r.c_str());
  std::error_code ec;
  fs::create_directories(fs::path(a.archive).parent_path(), ec);
  int r = pbo->pbo_Make(source.c_str(), mode_of(run.options), a.prefix.c_str(), drop, a.archive.c_str(), nullptr,
                        nullptr);
  if (r != 0) {
    a.outcome = Outcome::Failed;
    a.code = r;
    a.messages = with_source_lines(said);
    if (!a.messages.empty()) a.messages += "\n";
    a.messages += a.folder + ": " + Vendrak::ErrorString(r) + " (" + std::to_string(r) + ")";
    return;
  }

  // The configs once more, for what they include from outside the addon and what the checks
  // across addons need.
  BuildState::Record record;
  record.signature = run.signature;
  record.archive = a.archive;
  std::set<std::string> inputs(files.begin(), files.end());
  Sembric* rap = dll.dll_GetRap();
  for (auto const& root : run.roots) rap->rap_AddIncludeFolder(root.c_str());
  for (auto const& f : files) {
    if (strcasecmp(fs::path(f).filename().c_str(), "config.cpp") != 0) continue;
    if (rap->rap_Create(f.c_str(), 0, drop) == 0) {
      BuildChecks::gather(rap->rap_get_root(), record.facts);
      for (BisToken* t = rap->rap_get_included_files()->GetFirstToken(); t; t = t->GetNext()) {
        fs::path real = fs::canonical(t->c_str(), ec);
        if (!ec) inputs.insert(real.string());
      }
    }
    rap->Close();
  }
  for (auto const& path : inputs) {
    BuildState::Input in;
    if (BuildState::describe(path, in)) record.inputs.push_back(std::move(in));
  }
  BuildState::Input archive;
  if (BuildState::describe(a.archive, archive)) {
    record.archive_size = archive.size;
    record.archive_mtime_ns = archive.mtime_ns;
  }
  a.outcome = Outcome::Built;
  a.messages = plain_lines(said);
  std::lock_guard<std::mutex> guard(run.lock);
  run.state.addons[a.folder] = std::move(record);
}

int ModBuild::_finish_mod(Run& run, std::vector<std::string> const& include_globs) {
  // The project's own files of the mod folder (mod.cpp, logos, licences), copied when they differ.
  std::error_code ec;
  for (auto const& entry : fs::recursive_directory_iterator(run.project, fs::directory_options::none, ec)) {
    if (!entry.is_regular_file()) continue;
    std::string rel = fs::relative(entry.path(), run.project, ec).string();
    if (rel.rfind(".", 0) == 0 || rel.rfind("addons/", 0) == 0 || rel.rfind("optionals/", 0) == 0) continue;
    bool wanted = false;
    for (auto const& g : include_globs) wanted = wanted || ::fnmatch(g.c_str(), rel.c_str(), FNM_PATHNAME) == 0;
    if (!wanted) continue;
    fs::path target = fs::path(_mod_folder) / rel;
    fs::create_directories(target.parent_path(), ec);
    BuildState::Input now, there;
    if (BuildState::describe(target.string(), there) && BuildState::describe(entry.path().string(), now) &&
        now.hash == there.hash)
      continue;
    fs::path temp = target.string() + ".tmp";
    fs::copy_file(entry.path(), temp, fs::copy_options::overwrite_existing, ec);
    if (!ec) fs::rename(temp, target, ec);
    if (ec) {
      fs::remove(temp, ec);
      _io.io_callbackerr("%s: cannot be written\n", target.c_str());
      return BUILD_CANNOT_WRITE;
    }
  }
  if (!run.options.key.empty()) return _sign_mod(run);
  return 0;
}

namespace {

bool read_all(std::string const& path, std::vector<uint8_t>& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  out.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

// Written through a temporary file beside the target, and only when the bytes differ.
bool write_if_changed(fs::path const& target, std::vector<uint8_t> const& bytes) {
  std::vector<uint8_t> old;
  if (read_all(target.string(), old) && old == bytes) return true;
  std::error_code ec;
  fs::create_directories(target.parent_path(), ec);
  fs::path temp = target.string() + ".tmp";
  {
    std::ofstream out(temp, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<char const*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out.flush()) return false;
  }
  fs::rename(temp, target, ec);
  if (ec) fs::remove(temp, ec);
  return !ec;
}

}  // namespace

int ModBuild::_sign_mod(Run& run) {
  std::vector<uint8_t> bytes;
  ArchiveKey key;
  int r = read_all(run.options.key, bytes) ? ArchiveSigner::parse_key(bytes.data(), bytes.size(), key) : SIGN_BAD_KEY;
  if (r || !key.is_private()) {
    _io.io_callbackerr("%s: %s\n", run.options.key.c_str(),
                       r ? ArchiveSigner::ErrorString(r) : "a public key cannot sign; give the .biprivatekey");
    return BUILD_SIGNING_FAILED;
  }
  fs::path public_key = fs::path(_mod_folder) / "keys" / (key.authority + ".bikey");
  if (!write_if_changed(public_key, ArchiveSigner::key_bytes(key, false))) {
    _io.io_callbackerr("%s: cannot be written\n", public_key.c_str());
    return BUILD_CANNOT_WRITE;
  }
  // An archive that was rebuilt, or has no signature by this key yet, is signed; the signature of
  // an unchanged archive by the same key would come out the same.
  ArchiveSigner signer;
  for (auto const& a : _addons) {
    fs::path signature = a.archive + "." + key.authority + ".bisign";
    if (a.outcome == Outcome::Failed || (a.outcome == Outcome::Skipped && fs::exists(signature))) continue;
    ArchiveSignature sig;
    if (int s = signer.sign(key, a.archive, 3, sig)) {
      _io.io_callbackerr("%s: %s\n", a.archive.c_str(), ArchiveSigner::ErrorString(s));
      return BUILD_SIGNING_FAILED;
    }
    if (!write_if_changed(signature, ArchiveSigner::signature_bytes(sig))) {
      _io.io_callbackerr("%s: cannot be written\n", signature.c_str());
      return BUILD_CANNOT_WRITE;
    }
  }
  return 0;
}
