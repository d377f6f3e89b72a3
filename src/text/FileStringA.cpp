#include "text/FileStringA.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <strings.h>

#include "text/BisTokens.h"
#include "text/CString8.h"
#include "text/CStringU.h"

struct FileStringA::Side {
  GenString scratch;
  bool is_temp = false;
  GenString pushed;  // the folder fs_PushDirAndDrive left
};

FileStringA::FileStringA() = default;
FileStringA::FileStringA(char const* text) : GenString(text) {}
FileStringA::FileStringA(FileStringA const& other) : GenString(other) {}
FileStringA& FileStringA::operator=(FileStringA const& other) {
  GenString::operator=(other);
  return *this;
}
FileStringA& FileStringA::operator=(char const* text) {
  GenString::operator=(text);
  return *this;
}
FileStringA::~FileStringA() = default;

FileStringA::Side& FileStringA::side() {
  if (!_side) _side = std::make_unique<Side>();
  return *_side;
}

namespace {

bool is_slash(char c) { return c == '\\' || c == '/'; }

bool has_drive(char const* t) { return std::isalpha(static_cast<unsigned char>(t[0])) && t[1] == ':'; }

// Replaces the whole text of `s` by [b, e), which may point into `s` itself.
void assign(GenString& s, char const* b, size_t n) {
  GenString t;
  t.str_MemDup(b, n);
  s = std::move(t);
}

}  // namespace

// ===== separators ============================================================

void FileStringA::fs_ConvertToSystemSlash() { str_replace_char('\\', '/'); }
void FileStringA::fs_ConvertToBackSlash() { str_replace_char('/', '\\'); }
void FileStringA::fs_ConvertToForwardSlash() { str_replace_char('\\', '/'); }

void FileStringA::fs_system_name(char const* name, GenString& out) {
  out.str_dup(name);
  out.str_replace_char('\\', '/');
}

char const* FileStringA::fs_GetLastSlash() const {
  char const* last = nullptr;
  for (char const* p = c_str(); *p; ++p)
    if (is_slash(*p)) last = p;
  return last;
}

char const* FileStringA::fs_GetFirstSlash() const { return fs_GetNextSlash(c_str()); }

char const* FileStringA::fs_GetNextSlash(char const* from) {
  for (char const* p = from; p && *p; ++p)
    if (is_slash(*p)) return p;
  return nullptr;
}

// ===== drive =================================================================

bool FileStringA::fs_HasDrive() const { return has_drive(c_str()); }
char const* FileStringA::fs_skip_drive() const { return fs_HasDrive() ? c_str() + 2 : c_str(); }
bool FileStringA::fs_HasRoot() const { return is_slash(*fs_skip_drive()); }
char const* FileStringA::fs_GetNoHardPath() const { return fs_skip_drive(); }

void FileStringA::fs_RemoveHardPath() {
  if (fs_HasDrive()) assign(*this, c_str() + 2, str_len() - 2);
}

// Codes as the family's tools know them: 0 cannot tell, 1 no such root, 3 a fixed disk. A host
// without drive letters has one file tree, so any existing root is "fixed".
int FileStringA::fs_DriveType() const {
  if (str_IsEmpty()) return 0;
  GenString root;
  if (fs_HasRoot())
    root = "/";
  else
    root.str_dup(c_str());
  FileStringA r(root.c_str());
  return r.fs_FolderExists() ? 3 : 1;
}

// ===== ends ==================================================================

void FileStringA::fs_RemoveFilename() {
  char const* s = fs_GetLastSlash();
  if (s)
    assign(*this, c_str(), static_cast<size_t>(s - c_str() + 1));
  else if (fs_HasDrive())
    assign(*this, c_str(), 2);
  else
    str_dup("");
}

void FileStringA::fs_RemoveTrailingFolder() {
  fs_RemoveTrailingSlash();
  fs_RemoveFilename();
}

bool FileStringA::fs_GetTrailingSlash() const { return is_slash(str_last_char()); }

void FileStringA::fs_RemoveTrailingSlash() {
  size_t n = str_len();
  while (n > 1 && is_slash(_text[n - 1])) --n;
  if (n != str_len()) assign(*this, c_str(), n);
}

void FileStringA::fs_AppendTrailingSlash() {
  if (!str_IsEmpty() && !fs_GetTrailingSlash()) str_cat("\\");
}

void FileStringA::fs_remove_leading_slash() {
  char const* p = c_str();
  while (is_slash(*p)) ++p;
  if (p != c_str()) assign(*this, p, std::strlen(p));
}

void FileStringA::fs_prepend_slash() {
  if (is_slash(*c_str())) return;
  GenString t("\\");
  t.str_cat(c_str());
  GenString::operator=(std::move(t));
}

// ===== extension =============================================================

char const* FileStringA::fs_GetExt() const {
  char const* name = fs_GetFilenameAndExt();
  return std::strrchr(name, '.');
}

void FileStringA::fs_RemoveExt() {
  if (!_text) throw "Vendrak.dll coding error: FileStringEx";
  char const* dot = fs_GetExt();
  if (dot) assign(*this, c_str(), static_cast<size_t>(dot - c_str()));
}

void FileStringA::fs_ReplaceExt(char const* ext) {
  char const* dot = fs_GetExt();
  if (dot) assign(*this, c_str(), static_cast<size_t>(dot - c_str()));
  fs_AddExt(ext, true);
}

void FileStringA::fs_ReplaceFilenameAndExt(char const* with) {
  if (!with || !*with) throw "Vendrak.dll coding error: FileStringEx: 'no with'";
  GenString t;
  t.str_ncat(c_str(), static_cast<size_t>(fs_GetFilenameAndExt() - c_str()));
  t.str_cat(with);
  GenString::operator=(std::move(t));
}

bool FileStringA::fs_CompareExt(char const* ext, char const* name) {
  if (!ext || !name) return false;
  if (*ext == '*') ++ext;
  if (*ext == '.') ++ext;
  FileStringA n(name);
  char const* mine = n.fs_GetExt();
  if (!mine) return false;
  return strcasecmp(mine + 1, ext) == 0;
}

bool FileStringA::fs_CompareExt(char const* ext) const { return fs_CompareExt(ext, c_str()); }

// A name keeps an extension equal to the default and gets the default appended otherwise, even
// behind another extension: a.bak opened as a model is a.bak.p3d.
void FileStringA::fs_AddExt(char const* ext, bool force) {
  if (!ext || !*ext) return;
  if (!force && fs_CompareExt(ext)) return;
  if (*ext == '.') ++ext;
  if (str_last_char() != '.') str_cat(".");
  str_cat(ext);
}

// ===== parts =================================================================

char const* FileStringA::fs_GetFilenameAndExt() const {
  char const* s = fs_GetLastSlash();
  return s ? s + 1 : fs_GetNoHardPath();
}

void FileStringA::fs_GetDriveAndPath(GenString& out) const {
  char const* name = fs_GetFilenameAndExt();
  out.str_MemDup(c_str(), static_cast<size_t>(name - c_str()));
}

void FileStringA::fs_GetDriveAndPathOnly(GenString& out) const {
  fs_GetDriveAndPath(out);
  size_t n = out.str_len();
  // Keep a bare root ("\" or "c:\") whole: without its separator it would name another place.
  size_t keep = has_drive(out.c_str()) ? 3 : 1;
  if (n > keep && is_slash(out.str_last_char())) {
    GenString t;
    t.str_MemDup(out.c_str(), n - 1);
    out = std::move(t);
  }
}

void FileStringA::fs_GetDriveFileAndPathNoExt(GenString& out) const {
  char const* dot = fs_GetExt();
  out.str_MemDup(c_str(), dot ? static_cast<size_t>(dot - c_str()) : str_len());
}

void FileStringA::fs_split(GenString* folder, GenString* name, GenString* ext) const {
  char const* file = fs_GetFilenameAndExt();
  char const* dot = fs_GetExt();
  char const* end = c_str() + str_len();
  if (folder) folder->str_MemDup(c_str(), static_cast<size_t>(file - c_str()));
  if (name) name->str_MemDup(file, static_cast<size_t>((dot ? dot : end) - file));
  if (ext) ext->str_MemDup(dot ? dot : end, dot ? static_cast<size_t>(end - dot) : 0);
}

// Parts by mask: 1 drive, 2 folder (with its trailing separator), 4 name, 8 extension (with its
// dot). So 12 is the file name with extension and 15 the whole path.
char const* FileStringA::fs_Extract(int mask, char const* name) {
  FileStringA src(name ? name : c_str());
  char const* t = src.c_str();
  char const* folder = src.fs_skip_drive();
  char const* file = src.fs_GetFilenameAndExt();
  char const* dot = src.fs_GetExt();
  char const* end = t + src.str_len();
  if (!dot) dot = end;
  GenString& out = side().scratch;
  out.str_dup("");
  if (mask & 1) out.str_ncat(t, static_cast<size_t>(folder - t));
  if (mask & 2) out.str_ncat(folder, static_cast<size_t>(file - folder));
  if (mask & 4) out.str_ncat(file, static_cast<size_t>(dot - file));
  if (mask & 8) out.str_ncat(dot, static_cast<size_t>(end - dot));
  return out.c_str();
}

// ===== comparisons ===========================================================

bool FileStringA::fs_Compare(char const* text, int exact) const {
  if (str_IsEmpty() || !text || !*text) return false;
  if (exact) return std::strcmp(c_str(), text) == 0;
  char const* a = c_str();
  for (; *a && *text; ++a, ++text) {
    unsigned char x = static_cast<unsigned char>(*a), y = static_cast<unsigned char>(*text);
    if (x != y && std::tolower(x) != std::tolower(y)) return false;
  }
  return *a == *text;
}

bool FileStringA::fs_CompareFilenameOnly(char const* other) const {
  GenString mine, theirs;
  fs_split(nullptr, &mine, nullptr);
  FileStringA(other).fs_split(nullptr, &theirs, nullptr);
  return mine.Compare(theirs.c_str());
}

bool FileStringA::fs_CompareFilenameExtOnly(char const* other) const {
  FileStringA o(other);
  return GenString(fs_GetFilenameAndExt()).Compare(o.fs_GetFilenameAndExt());
}

bool FileStringA::fs_CompareFiles(char const* other) const {
  if (str_IsEmpty() || !other || !*other) return false;
  char const* a = c_str();
  for (; *a && *other; ++a, ++other) {
    if (is_slash(*a) && is_slash(*other)) continue;
    if (std::tolower(static_cast<unsigned char>(*a)) != std::tolower(static_cast<unsigned char>(*other)))
      return false;
  }
  return *a == *other;
}

// '*' any run of characters (separators included), '?' any one character; letters without regard
// to case. Backtracks to the last star only, so the cost stays linear in practice.
bool FileStringA::fs_CompareWild(char const* name, char const* pattern) {
  if (!name || !pattern) return false;
  char const* star = nullptr;
  char const* resume = nullptr;
  auto same = [](char a, char b) {
    if (is_slash(a) && is_slash(b)) return true;
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
  };
  while (*name) {
    if (*pattern == '*') {
      star = pattern++;
      resume = name;
    } else if (*pattern && (*pattern == '?' || same(*pattern, *name))) {
      ++pattern;
      ++name;
    } else if (star) {
      pattern = star + 1;
      name = ++resume;
    } else {
      return false;
    }
  }
  while (*pattern == '*') ++pattern;
  return !*pattern;
}

bool FileStringA::fs_CompareWild(char const* pattern) const { return fs_CompareWild(c_str(), pattern); }

// A name against a list of wanted or unwanted files: "*.txt" and "a?c*" are wildcards, ".wss" an
// extension, anything else a name (the whole relative path or its last component).
bool FileStringA::fs_CompareTokens(char const* name, BisTokens const* tokens) {
  if (!name || !tokens) return false;
  FileStringA n(name);
  char const* last = n.fs_GetFilenameAndExt();
  bool nested = last != n.c_str();
  char const* ext = n.fs_GetExt();
  for (BisToken* t = tokens->GetFirstToken(); t; t = t->GetNext()) {
    char const* tok = t->c_str();
    if (!*tok) continue;
    if (std::strpbrk(tok, "*?")) {
      if (fs_CompareWild(name, tok) || (nested && fs_CompareWild(last, tok))) return true;
    } else if (tok[0] == '.' && !std::strpbrk(tok + 1, ".\\/")) {
      if (ext && strcasecmp(ext, tok) == 0) return true;
    } else if (n.fs_CompareFiles(tok) || (nested && FileStringA(last).fs_CompareFiles(tok))) {
      return true;
    }
  }
  return false;
}

// ===== kinds =================================================================

int FileStringA::fs_FileIs(char const* name) {
  struct Kind {
    char const* text;
    int code;
  };
  static Kind const names[] = {
      {"config.cpp", 1}, {"config.bin", 2}, {"texHeaders.bin", 30}, {"mission.sqm", 3}, {"description.ext", 4},
  };
  static Kind const exts[] = {
      {".bin", 29},    {".rvmat", 5}, {".fsm", 6},   {".fxy", 22},  {".p3d", 20},  {".pac", 19},  {".paa", 19},
      {".tga", 23},    {".png", 23},  {".wss", 14},  {".ogg", 13},  {".ogv", 36},  {".rtm", 15},  {".bikb", 16},
      {".bimpas", 7},  {".bisurf", 8}, {".sqs", 9},  {".sqf", 9},   {".cfg", 11},  {".hpp", 12},  {".h", 18},
      {".cpp", 17},    {".wrp", 21},  {".wav", 24},  {".lip", 25},  {".txt", 26},  {".lst", 26},  {".xml", 27},
      {".htm", 27},    {".html", 27}, {".csv", 28},  {".dbf", 31},  {".prj", 32},  {".shp", 33},  {".shx", 34},
      {".pew", 35},    {".jpg", 37},  {".ignore", 38},
  };
  if (!name) return 0;
  FileStringA n(name);
  char const* file = n.fs_GetFilenameAndExt();
  for (auto const& k : names)
    if (strcasecmp(file, k.text) == 0) return k.code;
  char const* ext = n.fs_GetExt();
  if (!ext) return 0;
  for (auto const& k : exts)
    if (strcasecmp(ext, k.text) == 0) return k.code;
  return 0;
}

// ===== joining ===============================================================

// Folder and file become one path; every ".." takes away the component before it. A ".." that
// would climb to or above the first component is refused, so a name taken from an archive can
// never lead out of the folder it is joined to.
char const* FileStringA::fs_format_folder_and_file(char const* folder, char const* file) {
  if (!file) file = "";
  if (is_slash(*file)) ++file;
  std::string t = folder ? folder : "";
  if (!t.empty() && !is_slash(t.back())) t.push_back('\\');
  t += file;

  size_t start = 0;  // where the component under test begins
  while (start <= t.size()) {
    size_t end = start;
    while (end < t.size() && !is_slash(t[end])) ++end;
    if (end - start == 2 && t[start] == '.' && t[start + 1] == '.') {
      // The parent: the nearest non-empty component before, which itself must follow a separator.
      size_t p = start;
      while (p > 0 && is_slash(t[p - 1])) --p;  // the separators before ".."
      if (p == 0) throw "FileStringEx: ../ has no parent";
      size_t parent = p;
      while (parent > 0 && !is_slash(t[parent - 1])) --parent;
      if (parent == 0) throw "FileStringEx: ../ has no parent";
      size_t cut_end = end < t.size() ? end + 1 : end;  // the ".." with its own separator
      t.erase(parent, cut_end - parent);
      start = parent;
      continue;
    }
    start = end + 1;
  }
  str_MemDup(t.data(), t.size());
  return c_str();
}

void FileStringA::fs_build_destination(char const* destination, char const* source) {
  str_dup(destination);
  if (!fs_FolderExists()) return;
  FileStringA src(source);
  fs_AppendTrailingSlash();
  str_cat(src.fs_GetFilenameAndExt());
}

char const* FileStringA::fs_QuoteFile() {
  side().scratch.Format("\"%s\"", c_str());
  return side().scratch.c_str();
}

// ===== file system =============================================================

bool FileStringA::fs_FolderExists(int) const {
  GenString n;
  fs_system_name(c_str(), n);
  if (n.str_IsEmpty()) return false;
  struct stat st;
  return ::stat(n.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool FileStringA::fs_FileExists() const {
  GenString n;
  fs_system_name(c_str(), n);
  if (n.str_IsEmpty()) return false;
  struct stat st;
  return ::stat(n.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

int FileStringA::fs_stat(struct stat* st) const {
  GenString n;
  fs_system_name(c_str(), n);
  return ::stat(n.c_str(), st);
}

time_t FileStringA::fs_GetFileDate() const {
  struct stat st;
  return fs_stat(&st) == 0 ? st.st_mtime : 0;
}

bool FileStringA::fs_SetFileDate(time_t t) const {
  GenString n;
  fs_system_name(c_str(), n);
  struct timespec times[2];
  times[0].tv_sec = times[1].tv_sec = t;
  times[0].tv_nsec = times[1].tv_nsec = 0;
  return ::utimensat(AT_FDCWD, n.c_str(), times, 0) == 0;
}

long long FileStringA::fs_GetFileSize() const {
  struct stat st;
  return fs_stat(&st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

FILE* FileStringA::fs_fopen(char const* mode) const {
  GenString n;
  fs_system_name(c_str(), n);
  if (n.str_IsEmpty()) return nullptr;
  return std::fopen(n.c_str(), mode);
}

int FileStringA::fs_mkdir() const {
  GenString n;
  fs_system_name(c_str(), n);
  return ::mkdir(n.c_str(), 0777);
}

int FileStringA::fs_rmdir() const {
  GenString n;
  fs_system_name(c_str(), n);
  return ::rmdir(n.c_str());
}

int FileStringA::fs_unlink() const {
  GenString n;
  fs_system_name(c_str(), n);
  return ::unlink(n.c_str());
}

int FileStringA::fs_rename(char const* to) const {
  GenString from, dest;
  fs_system_name(c_str(), from);
  fs_system_name(to, dest);
  return std::rename(from.c_str(), dest.c_str());
}

char const* FileStringA::fs_get_cwd() {
  std::error_code ec;
  auto p = std::filesystem::current_path(ec);
  str_dup(ec ? "" : p.string().c_str());
  return c_str();
}

int FileStringA::fs_set_dir() const {
  GenString n;
  fs_system_name(c_str(), n);
  return ::chdir(n.c_str());
}

int FileStringA::fs_PushDirAndDrive() {
  FileStringA here;
  here.fs_get_cwd();
  side().pushed.str_dup(here.c_str());
  return fs_set_dir();
}

int FileStringA::fs_PopDirAndDrive() {
  if (!_side || _side->pushed.str_IsEmpty()) return -1;
  int r = ::chdir(_side->pushed.c_str());
  _side->pushed.Clear();
  return r;
}

void FileStringA::fs_SetFullPathName() {
  GenString n;
  fs_system_name(c_str(), n);
  std::error_code ec;
  auto p = std::filesystem::absolute(n.c_str(), ec);
  if (!ec) str_dup(p.lexically_normal().string().c_str());
}

char const* FileStringA::fs_create_temp_name(char const* ext) {
  Side& s = side();
  if (s.is_temp && !str_IsEmpty()) fs_unlink();
  s.is_temp = false;
  std::error_code ec;
  std::string dir = std::filesystem::temp_directory_path(ec).string();
  if (ec || dir.empty()) dir = "/tmp";
  std::string pattern = dir + "/vendrakXXXXXX";
  int fd = ::mkstemp(pattern.data());
  if (fd < 0) {
    str_dup("");
    return c_str();
  }
  ::close(fd);
  ::unlink(pattern.c_str());  // the name was unique when made; the caller creates name + extension
  str_dup(pattern.c_str());
  fs_AddExt(ext);
  s.is_temp = true;
  return c_str();
}

// ===== text files and byte-order marks =========================================

namespace {

size_t utf16_units(uint8_t const* p, size_t max_units) {
  size_t n = 0;
  while (n < max_units && (p[2 * n] | p[2 * n + 1])) ++n;
  return n;
}

std::string utf16le_to_utf8(uint8_t const* p, size_t units) {
  std::u16string u(units, u'\0');
  for (size_t i = 0; i < units; ++i) u[i] = static_cast<char16_t>(p[2 * i] | (p[2 * i + 1] << 8));
  return CString8::from_utf16(u.data(), u.size());
}

// The end of the longest run of whole UTF-8 characters within `room` bytes.
size_t utf8_cut(std::string const& s, size_t room) {
  if (s.size() <= room) return s.size();
  size_t n = room;
  while (n > 0 && (static_cast<unsigned char>(s[n]) & 0xC0) == 0x80) --n;
  return n;
}

}  // namespace

int FileStringA::fs_RemoveBom(char* buffer) {
  if (!buffer) return -1;
  auto* b = reinterpret_cast<unsigned char*>(buffer);
  if (b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) {
    size_t n = std::strlen(buffer + 3);
    std::memmove(buffer, buffer + 3, n);
    std::memset(buffer + n, 0, 3);
    return 1;
  }
  if (b[0] == 0xFE && b[1] == 0xFF) return -1;
  if (b[0] == 0xFF && b[1] == 0xFE) {
    size_t units = utf16_units(b + 2, SIZE_MAX / 4);
    std::string utf8 = utf16le_to_utf8(b + 2, units);
    // The mark, the units and their zero unit: all the room this buffer is known to have.
    size_t room = 2 + units * 2 + 2;
    size_t len = utf8_cut(utf8, room - 1);
    std::memcpy(buffer, utf8.data(), len);
    std::memset(buffer + len, 0, room - len);
    return 1;
  }
  return 0;
}

int FileStringA::fs_RemoveBom(uint8_t*& buffer, uint64_t& size) {
  if (!buffer) return -1;
  uint8_t* b = buffer;
  if (size >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) {
    std::memmove(b, b + 3, size - 3);
    std::memset(b + size - 3, 0, 3);
    size -= 3;
    return 1;
  }
  if (size >= 2 && b[0] == 0xFE && b[1] == 0xFF) return -1;
  if (size >= 2 && b[0] == 0xFF && b[1] == 0xFE) {
    std::string utf8 = utf16le_to_utf8(b + 2, utf16_units(b + 2, (size - 2) / 2));
    uint64_t capacity = size + 4;
    if (utf8.size() + 4 > capacity) {
      auto* grown = new (std::nothrow) uint8_t[utf8.size() + 4];
      if (!grown) throw "No Memory";
      delete[] buffer;
      buffer = grown;
      capacity = utf8.size() + 4;
    }
    std::memcpy(buffer, utf8.data(), utf8.size());
    std::memset(buffer + utf8.size(), 0, capacity - utf8.size());
    size = utf8.size();
    return 1;
  }
  return 0;
}

FILE* FileStringA::fs_CreateTextFile(char const* name, int encoding) {
  static unsigned char const marks[4][3] = {{0, 0, 0}, {0xEF, 0xBB, 0xBF}, {0xFF, 0xFE, 0}, {0xFE, 0xFF, 0}};
  static size_t const lengths[4] = {0, 3, 2, 2};
  if (encoding < 0 || encoding > 3) throw "Coding Error: FileStringEx::_WriteBom() AsUnicode";
  if (name) str_dup(name);
  FILE* f = fs_fopen("wb");
  if (!f) return nullptr;
  size_t n = lengths[encoding];
  if (n && std::fwrite(marks[encoding], 1, n, f) != n) {
    std::fclose(f);
    return nullptr;
  }
  return f;
}

bool FileStringA::fs_ReadTextFile(char const* name) {
  Clear();
  FileStringA n(name);
  FILE* f = n.fs_fopen("rb");
  if (!f) return false;
  struct stat st;
  if (::fstat(fileno(f), &st) != 0 || !S_ISREG(st.st_mode)) {
    std::fclose(f);
    return false;
  }
  uint64_t size = static_cast<uint64_t>(st.st_size);
  auto* buf = new (std::nothrow) uint8_t[size + 4];
  if (!buf) {
    std::fclose(f);
    return false;
  }
  bool ok = std::fread(buf, 1, size, f) == size;
  std::fclose(f);
  std::memset(buf + size, 0, 4);
  if (ok) {
    try {
      ok = fs_RemoveBom(buf, size) >= 0;
    } catch (...) {
      ok = false;
    }
  }
  if (ok) str_dup(reinterpret_cast<char const*>(buf));
  delete[] buf;
  return ok;
}

bool FileStringA::fs_isUtf8(char const* text) {
  if (!text) return true;
  auto const* p = reinterpret_cast<unsigned char const*>(text);
  while (*p) {
    unsigned char c = *p++;
    if (c < 0x80) continue;
    int more = c >= 0xF0 ? 3 : c >= 0xE0 ? 2 : c >= 0xC0 ? 1 : -1;
    if (more < 0) return false;
    for (int i = 0; i < more; ++i, ++p)
      if ((*p & 0xC0) != 0x80) return false;  // a zero byte ends the text and fails here too
  }
  return true;
}

std::wstring FileStringA::fs_convert_to_unicode(char const* utf8) { return CStringU::from_utf8(utf8); }

std::string FileStringA::fs_convert_to_utf8(wchar_t const* wide) { return CString8::from_wide(wide); }
