// Making archives: a source folder scanned into entries, the header in the chosen style, the data
// block streamed from the files (or from an open archive), and the trailer the style calls for.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <thread>
#include <vector>

#include "core/GenericError.h"
#include "io/LzssCodec.h"
#include "pbo/VendrakImpl.h"
#include "pbo/VendrakMaker.h"
#include "text/FileTreeEx.h"

namespace {
char const kDefaultExclude[] = "thumbs.db,*.txt,*.h,*.dep,*.cpp,*.bak,*.png,*.log,*.pew, *.hpp,source";
char const kDefaultIgnoreCompression[] = "*.wss,*.ogg,.jpg,.wav,.fsm,.pa*";
char const* const kArchiveExtensions[] = {"pbo", "ifa", "xbo"};

std::string host_path(char const* name) {
  std::string s(name ? name : "");
  std::replace(s.begin(), s.end(), '\\', '/');
  return s;
}

std::string parent_of(std::string const& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string real_path(std::string const& path) {
  char buf[PATH_MAX];
  return ::realpath(path.c_str(), buf) ? std::string(buf) : std::string();
}

char const* extension_for(int mode) {
  int ext = mode & Vendrak::MAKE_EXT_MASK;
  return ext == 0x1000 || ext == 0x2000 ? "xbo" : "pbo";
}

uint32_t style_of(int mode) {
  uint32_t style = static_cast<uint32_t>(mode & Vendrak::MAKE_STYLE_MASK);
  switch (style) {
    case Vendrak::MAKE_STYLE_RESISTANCE:
    case Vendrak::MAKE_STYLE_ARMA_NO_SHA:
    case Vendrak::MAKE_STYLE_ELITE:
    case Vendrak::MAKE_STYLE_ARMA:
      return style;
    default:
      return 0;
  }
}

// The Resistance and the oldest style have no prefix property; every later style may carry one.
bool style_takes_prefix(uint32_t style) { return style >= Vendrak::MAKE_STYLE_ARMA_NO_SHA; }

// The name PboName.h (else PboName.hpp) gives between its first two double quotes, if any.
std::string name_from_header(std::string const& folder) {
  for (char const* header : {"PboName.h", "PboName.hpp"}) {
    FileStringA text;
    if (!text.fs_ReadTextFile((folder + "/" + header).c_str())) continue;
    char const* open = std::strchr(text.c_str(), '"');
    char const* close = open ? std::strchr(open + 1, '"') : nullptr;
    if (!close) return {};
    // Only a file name: a name with folders in it would place the archive elsewhere.
    std::string name(open + 1, close);
    FileStringA last(name.c_str());
    return last.fs_GetFilenameAndExt();
  }
  return {};
}

// Reads a whole file into a new[] buffer; false (errno set) when it cannot.
bool read_whole(std::string const& path, uint64_t size, uint8_t*& out) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  auto* buf = new (std::nothrow) uint8_t[size + 1];
  bool ok = buf != nullptr;
  for (uint64_t done = 0; ok && done < size;) {
    ssize_t n = ::read(fd, buf + done, static_cast<size_t>(std::min<uint64_t>(size - done, 1u << 30)));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;  // the file shrank since it was scanned
      ok = false;
    } else {
      done += static_cast<uint64_t>(n);
    }
  }
  ::close(fd);
  if (!ok) {
    delete[] buf;
    return false;
  }
  out = buf;
  return true;
}

// A model or terrain judged by its first bytes: 0 binarised, 1 editable, 2 unknown.
int judge_binarised(std::string const& path, bool terrain) {
  char magic[4] = {};
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ssize_t n = fd >= 0 ? ::read(fd, magic, 4) : -1;
  if (fd >= 0) ::close(fd);
  if (n != 4) return 2;
  auto is = [&](char const* m) { return std::memcmp(magic, m, 4) == 0; };
  if (terrain) return is("OPRW") ? 0 : is("4WVR") || is("8WVR") ? 1 : 2;
  return is("ODOL") ? 0 : is("MLOD") || is("SP3X") || is("SP3D") ? 1 : 2;
}
}  // namespace

// ===== the maker's state =======================================================

Vendrak::Maker::~Maker() {
  abandon();
  if (sha) EVP_MD_CTX_free(sha);
}

void Vendrak::Maker::abandon() {
  if (!writing) return;
  io->io_CloseOutput();
  ::unlink(temp_path.c_str());
  writing = false;
}

char const* Vendrak::pbo_GetDefaultExcludeList() { return kDefaultExclude; }
char const* Vendrak::pbo_GetDefaultIgnoreCompressionList(int) { return kDefaultIgnoreCompression; }
char const* Vendrak::pbo_GetMadeName() const { return _maker ? _maker->made.c_str() : ""; }

void Vendrak::Maker::reset_lists() {
  exclude.Clear();
  ignore_compression.Clear();
  lists_ready = false;
}

namespace {
void build_lists(BisTokens& exclude, BisTokens& ignore, char const* exclude_list, char const* ignore_list) {
  exclude.tkn_convert_csv(exclude_list && *exclude_list ? exclude_list : kDefaultExclude);
  exclude.tkn_add("PboName.*");
  bool fallback = !ignore_list || !*ignore_list || strcasecmp(ignore_list, "default.txt") == 0 ||
                  strcasecmp(ignore_list, "default") == 0;
  ignore.tkn_convert_csv(fallback ? kDefaultIgnoreCompression : ignore_list);
  ignore.tkn_add("init*.*");
}

}  // namespace

// ===== output naming ===========================================================

char const* Vendrak::pbo_MakeOutputName(char const* source, int mode, char const* destination) {
  Maker& m = _make_state();
  std::string folder = host_path(source);
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  std::string ext = extension_for(mode);
  std::string dest = host_path(destination);
  struct stat st;
  bool into_folder = dest.empty() || dest.back() == '/' || (::stat(dest.c_str(), &st) == 0 && S_ISDIR(st.st_mode));
  if (!into_folder) {
    // An archive name: its own extension gives way to the one the mode chooses.
    if (pbo_HasPboExt(dest.c_str())) dest.resize(dest.find_last_of('.'));
    m.scratch = dest + "." + ext;
    return m.scratch.c_str();
  }
  std::string name = folder.substr(folder.find_last_of('/') + 1);
  if (name.empty() || name == "." || name == "..") {
    std::string real = real_path(folder);
    name = real.substr(real.find_last_of('/') + 1);
  }
  std::string renamed = name_from_header(folder);
  if (!renamed.empty()) name = renamed;
  if (dest.empty()) dest = parent_of(real_path(folder).empty() ? folder : real_path(folder));
  while (dest.size() > 1 && dest.back() == '/') dest.pop_back();
  FileStringA n(name.c_str());
  if (pbo_HasPboExt(n.c_str())) n.fs_RemoveExt();
  m.scratch = dest + "/" + n.c_str() + "." + ext;
  return m.scratch.c_str();
}

// ===== adding files ============================================================

int Vendrak::pbo_AddOrReplaceFile(char const* entry_name, char const* path, unsigned int mode, pbo_entry** result) {
  return _guarded([&] { return _add_file(entry_name, path, mode, result, true); });
}

int Vendrak::_add_file(char const* entry_name, char const* path, unsigned mode, pbo_entry** result,
                       bool compress_now) {
  Maker& m = _make_state();
  if (!entry_name || !*entry_name) return PBO_NO_ENTRY_NAME;
  std::string host = host_path(path);
  struct stat st;
  errno = 0;
  if (host.empty() || ::stat(host.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    _impl->io.io_callbackerr("%s: %s\r\n", host.c_str(), std::strerror(errno ? errno : EISDIR));
    return PBO_CANNOT_READ_ENTRY_FILE;
  }
  if (static_cast<uint64_t>(st.st_size) > UINT32_MAX) {
    _impl->io.io_callbackerr("%s: too large for an archive entry\r\n", host.c_str());
    return PBO_CANNOT_READ_ENTRY_FILE;
  }

  while (*entry_name == '/' || *entry_name == '\\') ++entry_name;
  if (!*entry_name) return PBO_NO_ENTRY_NAME;
  FileString name(entry_name);
  name.fs_ConvertToBackSlash();

  if ((mode & MAKE_PROCESS_CONTENT) && strcasecmp(name.fs_GetFilenameAndExt(), "RoadsLib.cfg") == 0 &&
      !pbo_ValidateRoadLibrary(host.c_str()))
    return PBO_ROADSLIB_ERROR;

  // A config binarised is packed as config.bin beside where its text was.
  bool binarise = (mode & MAKE_PROCESS_CONTENT) && name.fs_FileIs() == 1;
  if (binarise) name.fs_ReplaceFilenameAndExt("config.bin");

  int code = 0;
  pbo_entry* entry = nullptr;
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext())
    if (strcasecmp(e->pbe_GetFilename(), name.c_str()) == 0) {
      entry = e;
      break;
    }
  if (entry) {
    _impl->io.io_callback("replacing existing content %s\r\n", name.c_str());
    code = 3;
  } else {
    entry = new pbo_entry;
    AddChain(entry);
  }
  entry->_release();
  entry->pbe_SetFilename(name.c_str());
  auto size = static_cast<uint32_t>(st.st_size);
  entry->_set_record(pbo_entry::kStored, size, 0, static_cast<uint32_t>(st.st_mtime), size, 0);
  m.sources.erase(entry);
  if (binarise) {
    if (int r = _binarise_config(entry, host.c_str())) {
      if (code == 0) DeleteChain(entry);
      return r;
    }
  } else {
    m.sources[entry] = host;
  }
  if (result) *result = entry;
  if ((mode & MAKE_COMPRESS) && compress_now) _compress_entry(entry);
  return code;
}

// ===== compression =============================================================

namespace {
struct Packed {
  uint8_t* data = nullptr;  // new[], exactly `size` bytes, null when not smaller than the source
  uint64_t size = 0;
  int error = 0;  // errno of a failed read
};

Packed pack_bytes(uint8_t const* in, uint64_t size) {
  Packed p;
  if (size == 0) return p;
  std::unique_ptr<uint8_t[]> out(new uint8_t[LzssCodec::lzss_MaxCompressedSize(size)]);
  uint64_t n = LzssCodec::lzss_Compress(in, size, out.get(), false);
  if (n < 1) throw GE_NO_MEMORY;
  if (n >= size) return p;
  p.data = new uint8_t[n + 1];
  std::memcpy(p.data, out.get(), n);
  p.data[n] = 0;
  p.size = n;
  return p;
}

// An entry's bytes are on disk (`path`) or, once binarised, in memory (`in`).
Packed pack_entry(std::string const& path, uint8_t const* in, uint64_t size) {
  if (in || size == 0) return pack_bytes(in, size);
  uint8_t* source = nullptr;
  if (!read_whole(path, size, source)) {
    Packed p;
    p.error = errno ? errno : EIO;
    return p;
  }
  std::unique_ptr<uint8_t[]> owned(source);
  return pack_bytes(source, size);
}
}  // namespace

void Vendrak::_compress_entry(pbo_entry* entry) {
  Maker& m = _make_state();
  if (!m.lists_ready) {
    build_lists(m.exclude, m.ignore_compression, nullptr, nullptr);
    m.lists_ready = true;
  }
  auto src = m.sources.find(entry);
  bool in_memory = entry->pbe_HasData() && entry->_method == pbo_entry::kStored;
  if ((src == m.sources.end() && !in_memory) ||
      FileStringA::fs_CompareTokens(entry->pbe_GetFilename(), &m.ignore_compression))
    return;
  std::string path = src == m.sources.end() ? std::string() : src->second;
  Packed p = pack_entry(path, in_memory ? entry->pbe_GetData() : nullptr, entry->_original_size);
  if (p.error) {
    _impl->io.io_callbackerr("%s: %s\r\n", path.c_str(), std::strerror(p.error));
    throw PBO_CANNOT_READ_ENTRY_FILE;
  }
  if (!p.data) {
    _impl->io.io_callback("%s rejected\r\n", entry->pbe_GetFilename());
    return;
  }
  entry->_adopt(p.data, p.size);
  entry->_method = entry->_file_method = pbo_entry::kCompressed;
  entry->_stored_size = p.size;
  m.sources.erase(entry);
}

// Entries are independent: they are packed on every core, and the results applied (and reported)
// in entry order so that the archive does not depend on which thread finished first.
void Vendrak::_compress_pending() {
  Maker& m = *_maker;
  std::vector<pbo_entry*> work;
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) {
    bool in_memory = e->pbe_HasData() && e->_method == pbo_entry::kStored;
    if ((m.sources.count(e) || in_memory) && !FileStringA::fs_CompareTokens(e->pbe_GetFilename(), &m.ignore_compression))
      work.push_back(e);
  }
  std::vector<Packed> results(work.size());
  std::vector<std::string> paths(work.size());
  for (size_t i = 0; i < work.size(); ++i)
    if (m.sources.count(work[i])) paths[i] = m.sources[work[i]];
  uint64_t total = 0;
  for (pbo_entry* e : work) total += e->_original_size;
  std::atomic<size_t> next{0};
  std::atomic<bool> failed{false};
  std::atomic<uint64_t> done{0};
  std::thread::id reporter = std::this_thread::get_id();
  Impl& s = *_impl;
  auto worker = [&] {
    for (size_t i; !failed && (i = next++) < work.size();) {
      try {
        uint8_t const* in = paths[i].empty() ? work[i]->pbe_GetData() : nullptr;
        results[i] = pack_entry(paths[i], in, work[i]->_original_size);
      } catch (...) {
        failed = true;
      }
      done += work[i]->_original_size;
      // The caller's progress hook is not made for several threads: only this one reports.
      if (s.hook && std::this_thread::get_id() == reporter)
        s.hook(s.hook_context, done, total, work[i]->pbe_GetFilename());
    }
  };
  unsigned threads = std::clamp(std::thread::hardware_concurrency(), 1u, 8u);
  threads = static_cast<unsigned>(std::min<size_t>(threads, std::max<size_t>(work.size(), 1)));
  std::vector<std::thread> pool;
  for (unsigned t = 1; t < threads; ++t) pool.emplace_back(worker);
  worker();
  for (auto& t : pool) t.join();

  bool error = failed;
  for (size_t i = 0; i < work.size(); ++i) {
    Packed& p = results[i];
    if (error || p.error) {
      if (!error) _impl->io.io_callbackerr("%s: %s\r\n", paths[i].c_str(), std::strerror(p.error));
      error = true;
      delete[] p.data;
      continue;
    }
    pbo_entry* e = work[i];
    if (!p.data) {
      _impl->io.io_callback("%s rejected\r\n", e->pbe_GetFilename());
      continue;
    }
    e->_adopt(p.data, p.size);
    e->_method = e->_file_method = pbo_entry::kCompressed;
    e->_stored_size = p.size;
    m.sources.erase(e);
  }
  if (failed) throw GE_NO_MEMORY;
  if (error) throw PBO_CANNOT_READ_ENTRY_FILE;
}

// ===== the whole job ===========================================================

struct Vendrak::Scan {
  std::string root;  // the source folder as the file system knows it
  std::vector<std::pair<dev_t, ino_t>> never;  // the archive being made, under every extension
  bool config = false, mission = false, campaign = false;
  int editable_models = 0, editable_terrains = 0, unknown_models = 0;
};

int Vendrak::pbo_Make(char const* source, int mode, char const* prefix, BisCallback callback, char const* destination,
                      char const* ignore_compression, char const* exclude) {
  _impl->callback = callback;
  _impl->io.io_SetStdioCallBack(callback);
  int r = _guarded([&] { return _make(source, mode, prefix, destination, ignore_compression, exclude); });
  if (_maker) {
    if (r) _maker->abandon();
    _maker->sources.clear();
    _maker->defer_compression = false;
    _maker->reset_lists();
  }
  return r;
}

int Vendrak::_make(char const* source, int mode, char const* prefix, char const* destination, char const* ignore,
                   char const* exclude) {
  Impl& s = *_impl;
  BisFileIO& io = s.io;
  io.io_set_warnings_are_errors((mode & MAKE_WARNINGS_ARE_ERRORS) != 0);
  ClosePbo();
  Maker& m = _make_state();
  m.abandon();
  m.sources.clear();
  m.prefix = "";
  m.mode = mode;
  m.made.clear();
  m.missing.clear();

  Scan scan;
  scan.root = host_path(source);
  while (scan.root.size() > 1 && scan.root.back() == '/') scan.root.pop_back();
  struct stat st;
  if (scan.root.empty() || ::stat(scan.root.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return PBO_NO_SOURCE_FOLDER;

  build_lists(m.exclude, m.ignore_compression, exclude, ignore);
  m.lists_ready = true;

  std::string target = pbo_MakeOutputName(source, mode, destination);
  std::string dest = host_path(destination);
  bool named_by_caller = !dest.empty() && dest.back() != '/' && !(::stat(dest.c_str(), &st) == 0 && S_ISDIR(st.st_mode));
  std::string renamed = named_by_caller ? std::string() : name_from_header(scan.root);
  if (!renamed.empty()) io.io_callback("Renaming output to %s\r\n", renamed.c_str());
  m.target = target;
  std::string stem = target.substr(0, target.rfind('.'));
  std::string base = stem.substr(stem.find_last_of('/') + 1);
  for (char const* ext : kArchiveExtensions)
    if (::stat((stem + "." + ext).c_str(), &st) == 0) scan.never.emplace_back(st.st_dev, st.st_ino);

  m.defer_compression = true;
  if (int r = _scan_folder(scan, scan.root.c_str(), "")) return r;
  if (int r = _judge_scan(scan)) return r;
  if (mode & MAKE_PROCESS_CONTENT)
    if (int r = _index_textures()) return r;
  if (mode & MAKE_COMPRESS) _compress_pending();

  io.io_callback("<adding entries:...>\r\n");
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) io.io_callback("%s\r\n", e->pbe_GetFilename());
  io.io_callback("</end entries>\r\n");
  if (!m.missing.empty()) {
    io.io_callback("Missing File Summary\r\n");
    for (auto const& [config, file] : m.missing) io.io_callback("%s : %s\r\n", config.c_str(), file.c_str());
  }

  // The prefix: the prefix file's, else the caller's, else the folder's own path.
  if (!style_takes_prefix(style_of(mode))) {
    m.prefix = "";
  } else if (m.prefix.str_IsEmpty()) {
    FileStringA chosen(prefix && *prefix ? prefix : source);
    m.prefix = chosen.fs_skip_drive();
    m.prefix.fs_ConvertToBackSlash();
    if (!(prefix && *prefix)) {
      // A rooted folder path is no virtual folder: the game's paths never begin with a separator.
      while (m.prefix.c_str()[0] == '\\') m.prefix.fs_remove_leading_slash();
      m.prefix.fs_RemoveTrailingSlash();
    }
  }
  if ((mode & MAKE_DROP_NAME_PREFIX) && !m.prefix.str_IsEmpty() && !std::strchr(m.prefix.c_str(), '\\')) {
    std::string file = target.substr(target.find_last_of('/') + 1);
    if (strcasecmp(m.prefix.c_str(), file.c_str()) == 0 || strcasecmp(m.prefix.c_str(), base.c_str()) == 0)
      m.prefix = "";
  }

  if (!_create(nullptr, mode)) return PBO_CANNOT_CREATE;
  io.io_set_msg_indent(1, "<writing header entries>\r\n");
  for (pbo_entry* e = pbo_GetFirstEntry(); e; e = e->GetNext()) {
    pbo_WriteHeaderEntry(e);
    io.io_callback("%s%s\r\n", e->pbe_GetFilename(), e->pbe_iscompressed() ? "(compressed)" : "");
  }
  uint8_t end[21] = {};
  _emit(end, sizeof end);
  m.end_record_written = true;
  io.io_set_msg_indent(-1, "</end header>\r\n");

  io.io_callback("Writing data blocks...\r\n");
  if (int r = _finish_archive()) return r;
  // Archives of the same name under another extension would be found before or instead of this one.
  for (char const* ext : kArchiveExtensions) {
    std::string other = stem + "." + ext;
    if (other != target) ::unlink(other.c_str());
  }
  io.io_callback("File written to %s\r\n", target.c_str());
  double ratio = m.total_original ? static_cast<double>(m.total_data) / static_cast<double>(m.total_original) : 1.0;
  io.io_callback("Overall compression from %d to %d (%2.2f%c reduction)\r\n", static_cast<int>(m.total_original),
                 static_cast<int>(m.total_data), 100.0 - 100.0 * ratio, '%');
  return 0;
}

int Vendrak::_scan_folder(Scan& scan, char const* folder, char const* relative) {
  Maker& m = *_maker;
  BisFileIO& io = _impl->io;
  FileTreeEx tree;
  int opened = tree.ft_OpenDirNew(folder, nullptr, 1);
  if (opened < 0) return PBO_CANNOT_TRAVERSE;
  struct Item {
    std::string name;
    bool dir;
  };
  std::vector<Item> items;
  for (int more = opened; more; more = tree.ft_Next()) items.push_back({tree.ft_GetEntry(), tree.ft_IsDir()});
  // The system's listing order differs between copies of a folder; a reproducible archive must not.
  if (m.mode & MAKE_REPRODUCIBLE)
    std::sort(items.begin(), items.end(), [](Item const& a, Item const& b) { return a.name < b.name; });

  bool at_root = !*relative;
  for (Item const& item : items) {
    std::string rel = at_root ? item.name : std::string(relative) + "\\" + item.name;
    std::string full = std::string(folder) + "/" + item.name;
    if (item.dir) {
      if (int r = _scan_folder(scan, full.c_str(), rel.c_str())) return r;
      continue;
    }
    if (pbo_fname_is_a_properties_file(item.name.c_str())) {
      io.io_callback("%s :", rel.c_str());
      if (!at_root) {
        io.io_callback("ignoring child prefix.txt\r\n");
        continue;
      }
      io.io_callback("configuring\r\n");
      if (!pbo_ParsePrefixFile(full.c_str())) return PBO_BAD_PREFIX_FILE;
      continue;
    }
    int kind = FileStringA::fs_FileIs(item.name.c_str());
    bool config = kind == 1 || kind == 2;
    bool excluded = !config && FileStringA::fs_CompareTokens(rel.c_str(), &m.exclude);
    // Nothing outside the folder is packed through a link, nor the archive being made.
    struct stat st;
    if (!excluded && ::lstat(full.c_str(), &st) == 0) {
      if (S_ISLNK(st.st_mode)) {
        std::string real = real_path(full), root = real_path(scan.root) + "/";
        excluded = real.compare(0, root.size(), root) != 0 || ::stat(full.c_str(), &st) != 0;
      }
      for (auto const& [dev, ino] : scan.never) excluded |= st.st_dev == dev && st.st_ino == ino;
    }
    if (excluded) {
      io.io_callback("%s :excluded\r\n", rel.c_str());
      continue;
    }
    io.io_callback("%s :scanning\r\n", rel.c_str());
    if (at_root) {
      scan.config |= config;
      scan.mission |= kind == 3;
      scan.campaign |= kind == 4;
    }
    if (kind == 20 || kind == 21) {
      int judged = judge_binarised(full, kind == 21);
      if (judged == 2) ++scan.unknown_models;
      if (judged == 1) ++(kind == 21 ? scan.editable_terrains : scan.editable_models);
    }
    int r = _add_file(rel.c_str(), full.c_str(), static_cast<unsigned>(m.mode), nullptr, !m.defer_compression);
    if (r != 0 && r != 3) return r;
  }
  return 0;
}

int Vendrak::_judge_scan(Scan const& scan) {
  int mode = _maker->mode;
  if (scan.unknown_models) return PBO_FAULTY_WRP_OR_P3D;
  if (!scan.config && !scan.mission && !scan.campaign) return PBO_NO_PRIMARY_CONTENT;
  if (scan.editable_terrains) return PBO_UNBINARISED_WRP;
  if (scan.editable_models && (!(mode & MAKE_ACCEPT_MLOD) || (mode & MAKE_COMPRESS))) return PBO_UNBINARISED_P3D;
  if (!GetCount()) return PBO_EMPTY;
  return 0;
}
