// vendrak check PATH... [--keys DIR] [--key BIKEY]... [--json] [-j N]
//
// Whether a mod folder is sound: every file under the paths is recognised by its first bytes and
// read whole by the reader of its kind, every entry of every archive too, each archive's SHA-1
// trailer is checked and, with trusted keys, its signatures. One line per problem, then a summary.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <climits>
#include <cmath>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "CliSupport.h"
#include "Command.h"
#include "Console.h"
#include "TextOut.h"
#include "anim/KinterNew.h"
#include "config/Kaltor.h"
#include "config/rap_entry.h"
#include "core/BisDLL.h"
#include "core/GenericError.h"
#include "font/Glyvard.h"
#include "p3d/Morvane.h"
#include "pbo/ArchiveSigner.h"
#include "pbo/Vendrak.h"
#include "sound/BisSound.h"
#include "terrain/Grindel.h"
#include "terrain/Tessak.h"
#include "texture/Hollin.h"
#include "texture/Lorvix.h"

namespace fs = std::filesystem;

namespace {

struct CheckOptions {
  std::vector<std::string> paths;
  std::vector<std::string> keys;
  std::string key_dir;
  bool json = false;
  unsigned jobs = 0;
};

struct Problem {
  std::string path, entry, reason;
  int code = 0;
};

// What one file gave: its kind ("" when no reader knows it), its entries when it is an archive,
// and its problems.
struct FileResult {
  std::string kind;
  uint64_t entries = 0;
  std::vector<Problem> problems;
};

// The readers report through message sinks that are plain functions; each worker thread keeps
// what they said in its own buffer, and a problem's reason is the first line of it.
thread_local std::string t_said;

bool capture(char const* format, ...) {
  char line[512];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (n > 0 && t_said.size() < 4096) t_said.append(line, std::min<size_t>(size_t(n), sizeof line - 1));
  return true;
}

// Progress and descriptions the readers print as they go are not problems.
bool quiet(char const*, ...) { return true; }

// The first line the reader said, else the text of its code.
std::string reason_for(int code, char const* text) {
  std::string reason;
  size_t at = 0;
  while (at < t_said.size() && reason.empty()) {
    size_t end = t_said.find_first_of("\r\n", at);
    if (end == std::string::npos) end = t_said.size();
    std::string line = t_said.substr(at, end - at);
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
    size_t lead = line.find_first_not_of(" \t");
    if (lead != std::string::npos) reason = line.substr(lead);
    at = end + 1;
  }
  if (reason.empty() && text) reason = text;
  if (reason.empty()) reason = GenericError::ErrorString(code);
  return reason + " (" + std::to_string(code) + ")";
}

// Each reader opens the bytes it is given as the commands of its kind do, and closes them.
using Reader = int (*)(BisDLL& dll, uint8_t const* data, size_t size, std::string const& name, char const*& text);

int read_config(BisDLL& dll, uint8_t const* data, size_t size, std::string const&, char const*& text) {
  Kaltor* k = dll.dll_GetKaltor();
  k->drp_GetIO()->io_SetErrCallBack(capture);
  k->drp_GetIO()->io_SetStdioCallBack(quiet);
  rap_entry root;
  int r = size > ULONG_MAX ? int(GE_INVALID_FILE) : k->drp_Decode(data, static_cast<unsigned long>(size), &root);
  text = Kaltor::ErrorString(r);
  return r;
}

int read_model(BisDLL& dll, uint8_t const* data, size_t size, std::string const&, char const*& text) {
  Morvane* m = dll.dll_GetMorvane();
  m->p3d_GetIO()->io_SetErrCallBack(capture);
  m->p3d_GetIO()->io_SetStdioCallBack(quiet);
  int r = size > UINT32_MAX ? int(GE_INVALID_FILE) : m->p3d_Open(data, static_cast<unsigned>(size), 0, quiet);
  text = Morvane::ErrorString(r);
  return r;
}

int read_texture(BisDLL& dll, uint8_t const* data, size_t size, std::string const&, char const*& text) {
  Lorvix* t = dll.dll_GetLorvix();
  t->pax_GetIO()->io_SetErrCallBack(capture);
  int r = t->pax_Open(data, size, quiet);
  text = Lorvix::ErrorString(r);
  return r;
}

int read_terrain(BisDLL& dll, uint8_t const* data, size_t size, std::string const&, char const*& text) {
  Tessak* t = dll.dll_GetTessak();
  t->wrp_GetIO()->io_SetErrCallBack(capture);
  t->wrp_GetIO()->io_SetStdioCallBack(quiet);
  int r = t->wrp_Open(data, size);
  text = Tessak::ErrorString(r);
  return r;
}

int read_project(BisDLL& dll, uint8_t const* data, size_t size, std::string const&, char const*& text) {
  Grindel* g = dll.dll_GetGrindel();
  g->pew_GetIO()->io_SetErrCallBack(capture);
  int r = size > UINT32_MAX ? int(GE_INVALID_FILE) : g->pew_Open(data, static_cast<unsigned>(size), quiet);
  text = r >= 0 && r <= 255 ? Grindel::ErrorString(static_cast<unsigned char>(r)) : nullptr;
  return r;
}

int read_animation(BisDLL& dll, uint8_t const* data, size_t size, std::string const&, char const*& text) {
  KinterNew* k = dll.dll_GetKinter();
  k->rtm_GetIO()->io_SetErrCallBack(capture);
  int r = size > UINT32_MAX ? int(GE_INVALID_FILE) : k->rtm_Open(data, static_cast<unsigned>(size), quiet, nullptr);
  text = KinterNew::ErrorString(r);
  return r;
}

int read_sound(BisDLL& dll, uint8_t const* data, size_t size, std::string const& name, char const*& text) {
  BisSound* s = dll.dll_GetSonmar();
  s->wss_GetFileIO()->io_SetErrCallBack(capture);
  int r = s->wss_Open(data, size, quiet, 0, name.c_str());
  text = BisSound::ErrorString(r);
  return r;
}

int read_font(BisDLL& dll, uint8_t const* data, size_t size, std::string const& name, char const*& text) {
  Glyvard* g = dll.dll_GetGlyvard();
  g->fxy_GetIO()->io_SetErrCallBack(capture);
  int r = size > ULONG_MAX ? int(GE_INVALID_FILE) : g->fxy_Open(name.c_str(), data, static_cast<unsigned long>(size));
  text = Glyvard::ErrorString(r);
  return r;
}

int read_texheaders(BisDLL& dll, uint8_t const* data, size_t size, std::string const&, char const*& text) {
  Hollin* h = dll.dll_GetHollin();
  h->tex_GetIO()->io_SetErrCallBack(capture);
  int r = size > ULONG_MAX ? int(GE_INVALID_FILE)
                           : h->tex_Open(static_cast<char const*>(nullptr), quiet, data, static_cast<unsigned long>(size));
  text = Hollin::ErrorString(r);
  return r;
}

// A key or a signature: whichever of the two it parses as.
int read_key(BisDLL&, uint8_t const* data, size_t size, std::string const&, char const*& text) {
  ArchiveKey key;
  if (ArchiveSigner::parse_key(data, size, key) == 0) return 0;
  ArchiveSignature sig;
  int r = ArchiveSigner::parse_signature(data, size, sig);
  text = ArchiveSigner::ErrorString(r);
  return r;
}

// An archive inside an archive is taken as read: its own entries are not opened, so that hostile
// nesting costs nothing.
int read_nothing(BisDLL&, uint8_t const*, size_t, std::string const&, char const*&) { return 0; }

struct KindReader {
  char const* kind;  // as `vendrak info` names it
  Reader read;
  char const* extensions;  // names that promise this kind, for files no signature matched
};

KindReader const kReaders[] = {
    {"PBO archive", read_nothing, ".pbo.ebo.xbo"},
    {"binarised config", read_config, ".bin"},
    {"P3D model", read_model, ".p3d"},
    {"PAA/PAC texture", read_texture, ".paa.pac"},
    {"WRP terrain", read_terrain, ".wrp"},
    {"terrain-editor project", read_project, ".pew"},
    {"RTM animation", read_animation, ".rtm"},
    {"sound", read_sound, ".wss.wav.ogg"},
    {"FXY font", read_font, ".fxy"},
    {"texture header index", read_texheaders, ""},
    {"archive-signing key or signature", read_key, ".bikey.bisign.biprivatekey"},
};

KindReader const* reader_of(std::string const& kind) {
  for (auto const& k : kReaders)
    if (kind == k.kind) return &k;
  return nullptr;
}

std::string lower_extension(std::string const& name) {
  size_t slash = name.find_last_of("/\\"), dot = name.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  std::string ext = name.substr(dot);
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

// The kind whose signature the bytes carry; formats known only by their name come last. A
// config.bin-like name is not enough on its own: many .bin files are other things.
std::string recognise(uint8_t const* data, size_t size, std::string const& name) {
  size_t n = std::min<size_t>(size, 64);
  for (int pass = 0; pass < 2; ++pass)
    for (InfoHandler const& h : info_handlers())
      if (h.by_name_only == (pass == 1) && h.matches(data, n, name)) return h.kind;
  return "";
}

// The kind a name promises when no signature matched; "" for names that promise nothing.
char const* promised_kind(std::string const& name) {
  std::string ext = lower_extension(name);
  if (ext.empty() || ext == ".bin") return nullptr;
  for (auto const& k : kReaders)
    for (char const* e = std::strstr(k.extensions, ext.c_str()); e; e = std::strstr(e + 1, ext.c_str()))
      if (e[ext.size()] == 0 || e[ext.size()] == '.') return k.kind;
  return nullptr;
}

// Reads one file's bytes (a loose file or an archive's entry) with the reader of its kind.
std::string check_bytes(uint8_t const* data, size_t size, std::string const& name, std::string const& path,
                        std::string const& entry, std::vector<Problem>& problems) {
  std::string kind = recognise(data, size, name);
  KindReader const* k = reader_of(kind);
  if (!k) {
    if (char const* promised = promised_kind(name))
      problems.push_back({path, entry, std::string("its name says ") + promised + " but its first bytes are not one (3)",
                          GE_INVALID_FILE});
    return kind;
  }
  BisDLL dll;
  t_said.clear();
  char const* text = nullptr;
  int r = k->read(dll, data, size, name, text);
  if (r) problems.push_back({path, entry, reason_for(r, text), r});
  return kind;
}

// An archive: its header and SHA-1 trailer, then every entry expanded and read.
// Returns the bytes it counted as done, entry by entry.
uint64_t check_archive(std::string const& path, FileResult& out, std::atomic<uint64_t>& done) {
  uint64_t counted = 0;
  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  tool->pbo_GetIO()->io_SetErrCallBack(capture);
  tool->pbo_GetIO()->io_SetStdioCallBack(quiet);
  t_said.clear();
  int r = tool->pbo_Open(path.c_str(), quiet, Vendrak::OPEN_NO_REPORT | Vendrak::OPEN_NO_PACK_NOTES);
  if (r == PBO_CORRUPTED_SHA) {
    out.problems.push_back(
        {path, "", "its SHA-1 trailer does not match its contents: the archive was changed or damaged (19)", r});
  } else if (r) {
    out.problems.push_back({path, "", reason_for(r, Vendrak::ErrorString(r)), r});
    return counted;
  }
  for (pbo_entry* e = tool->pbo_GetFirstEntry(); e; e = static_cast<pbo_entry*>(e->GetNext())) {
    if (e->pbe_GetPackingMethod() == pbo_entry::kProperties) continue;
    ++out.entries;
    std::string name = e->pbe_GetFilename();
    int size = 0;
    t_said.clear();
    uint8_t const* data = tool->pbo_ReadEntryData(e, &size, 0);
    if (!data && e->pbe_GetDataSize() > 0) {
      int err = tool->pbo_GetLastError();
      if (!err) err = GE_EOF;
      out.problems.push_back({path, name, reason_for(err, Vendrak::ErrorString(err)), err});
      continue;
    }
    if (data && size > 0) check_bytes(data, static_cast<size_t>(size), name, path, name, out.problems);
    tool->pbo_FreeData(e);
    done += e->pbe_GetStoredDataSize();
    counted += e->pbe_GetStoredDataSize();
  }
  tool->ClosePbo();
  return counted;
}

void check_file(std::string const& path, uint64_t file_size, FileResult& out, std::atomic<uint64_t>& done) {
  std::vector<unsigned char> head = cli_read_head(path, 64);
  std::string kind = recognise(head.data(), head.size(), path);
  if (kind == "PBO archive") {
    out.kind = kind;
    uint64_t counted = check_archive(path, out, done);
    done += file_size - std::min(file_size, counted);
    return;
  }
  if (!reader_of(kind) && !promised_kind(path)) {
    done += file_size;  // not a format of the games: counted, not read
    return;
  }
  std::vector<unsigned char> bytes;
  t_said.clear();
  if (int r = cli_read_input(path, bytes)) {
    out.problems.push_back({path, "", "cannot be read (" + std::to_string(r) + ")", r});
    return;
  }
  out.kind = check_bytes(bytes.data(), bytes.size(), path, path, "", out.problems);
  done += file_size;
}

struct Work {
  std::string path;
  uint64_t size = 0;
};

// The files under the paths, in name order so that reports compare between runs; a path that is
// missing is a problem of its own.
void collect(std::vector<std::string> const& paths, std::vector<Work>& files, std::vector<Problem>& missing) {
  for (auto const& p : paths) {
    std::error_code ec;
    auto st = fs::status(p, ec);
    if (ec || !fs::exists(st)) {
      missing.push_back({p, "", "no such file or folder (3)", GE_INVALID_FILE});
      continue;
    }
    if (fs::is_regular_file(st)) {
      files.push_back({p, fs::file_size(p, ec)});
      continue;
    }
    std::vector<Work> found;
    fs::recursive_directory_iterator it(p, fs::directory_options::skip_permission_denied, ec), end;
    for (; !ec && it != end; it.increment(ec)) {
      std::error_code fe;
      if (it->is_regular_file(fe)) found.push_back({it->path().string(), it->file_size(fe)});
    }
    if (ec) missing.push_back({p, "", ec.message() + " (3)", GE_INVALID_FILE});
    std::sort(found.begin(), found.end(), [](Work const& a, Work const& b) { return a.path < b.path; });
    files.insert(files.end(), found.begin(), found.end());
  }
}

std::string size_text(uint64_t bytes) {
  char buf[32];
  if (bytes >= (uint64_t{1} << 30))
    std::snprintf(buf, sizeof buf, "%.2f GB", double(bytes) / double(uint64_t{1} << 30));
  else if (bytes >= (uint64_t{1} << 20))
    std::snprintf(buf, sizeof buf, "%.1f MB", double(bytes) / double(uint64_t{1} << 20));
  else
    std::snprintf(buf, sizeof buf, "%llu bytes", static_cast<unsigned long long>(bytes));
  return buf;
}

int run_check(CheckOptions const& o) {
  auto start = std::chrono::steady_clock::now();
  std::vector<ArchiveKey> trusted;
  bool verify = !o.keys.empty() || !o.key_dir.empty();
  if (verify)
    if (int r = cli_read_trusted_keys(o.keys, o.key_dir, trusted)) return r;

  std::vector<Work> files;
  std::vector<Problem> missing;
  collect(o.paths, files, missing);
  uint64_t total = 0;
  for (auto const& f : files) total += f.size;

  std::vector<FileResult> results(files.size());
  std::atomic<size_t> next{0}, finished{0};
  std::atomic<uint64_t> done{0};
  unsigned jobs = o.jobs ? o.jobs : std::max(1u, std::thread::hardware_concurrency());
  jobs = static_cast<unsigned>(std::min<size_t>(jobs, std::max<size_t>(files.size(), 1)));
  std::mutex m;
  std::condition_variable cv;
  auto worker = [&] {
    for (size_t i; (i = next++) < files.size();) {
      check_file(files[i].path, files[i].size, results[i], done);
      if (verify && results[i].kind == "PBO archive") {
        std::string signature, authority;
        unsigned version = 0;
        if (int r = cli_verify_archive(files[i].path, trusted, signature, authority, version))
          results[i].problems.push_back({files[i].path, signature.empty() ? "" : fs::path(signature).filename().string(),
                                         std::string(ArchiveSigner::ErrorString(r)) + " (" + std::to_string(r) + ")",
                                         r});
      }
      ++finished;
      std::lock_guard<std::mutex> g(m);
      cv.notify_one();
    }
  };
  std::vector<std::thread> pool;
  for (unsigned j = 0; j < jobs; ++j) pool.emplace_back(worker);
  {
    ProgressBar bar(true);
    std::unique_lock<std::mutex> g(m);
    while (finished < files.size()) {
      cv.wait_for(g, std::chrono::milliseconds(200));
      bar.update(std::min<uint64_t>(done, total), total, "checking");
    }
    bar.finish();
  }
  for (auto& t : pool) t.join();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  std::vector<Problem> problems = missing;
  uint64_t archives = 0, entries = 0, known = 0;
  std::map<std::string, uint64_t> kinds;
  for (auto& r : results) {
    if (!r.kind.empty()) ++known, ++kinds[r.kind];
    if (r.kind == "PBO archive") ++archives;
    entries += r.entries;
    problems.insert(problems.end(), r.problems.begin(), r.problems.end());
  }
  int code = problems.empty() ? 0 : problems.front().code;

  if (o.json) {
    nlohmann::ordered_json j;
    j["files"] = files.size();
    j["recognised"] = known;
    j["archives"] = archives;
    j["entries"] = entries;
    j["bytes"] = total;
    j["seconds"] = std::round(seconds * 1000) / 1000;
    j["kinds"] = kinds;
    j["problems"] = nlohmann::ordered_json::array();
    for (auto const& p : problems)
      j["problems"].push_back({{"path", p.path}, {"entry", p.entry}, {"code", p.code}, {"reason", p.reason}});
    cli_print_stdout("%s\n", json_text(j, 1).c_str());
    return code;
  }
  for (auto const& p : problems)
    cli_print_stdout("%s: %s%s\n", p.path.c_str(), p.entry.empty() ? "" : (p.entry + ": ").c_str(), p.reason.c_str());
  cli_print_stdout("%zu files (%llu read by their reader, %llu archives with %llu entries), %s in %.1f s: %zu problem%s\n",
                   files.size(), static_cast<unsigned long long>(known), static_cast<unsigned long long>(archives),
                   static_cast<unsigned long long>(entries), size_text(total).c_str(), seconds, problems.size(),
                   problems.size() == 1 ? "" : "s");
  return code;
}

CommandRegistrar check_command(
    {"check", "Read every file of a mod folder with its reader and report what is wrong",
     [](CLI::App& sub) -> std::function<int()> {
       auto o = std::make_shared<CheckOptions>();
       sub.add_option("PATH", o->paths, "Files or folders to check (folders are walked)")->required();
       sub.add_option("--keys", o->key_dir, "Also verify each archive's signatures against the .bikey files of DIR")
           ->type_name("DIR");
       sub.add_option("--key", o->keys, "A trusted key (.bikey) to verify signatures with (repeatable)")
           ->type_name("BIKEY");
       sub.add_flag("--json", o->json, "Print the summary and the problems as one JSON object");
       sub.add_option("-j,--jobs", o->jobs, "Files read at once (default: one per core)")->type_name("N");
       return [o] { return run_check(*o); };
     }});

}  // namespace
