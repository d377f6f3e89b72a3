#include "text/FileStringA.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <strings.h>

#include "core/LinuxCompat.h"

struct FileStringA::Side {
  GenString scratch;
  bool is_temp = false;
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
    if (fs_IsSlash(*p)) last = p;
  return last;
}

bool FileStringA::fs_HasDrive() const {
  char const* t = c_str();
  return std::isalpha(static_cast<unsigned char>(t[0])) && t[1] == ':';
}

char const* FileStringA::fs_GetNoHardPath() const { return fs_HasDrive() ? c_str() + 2 : c_str(); }

char const* FileStringA::fs_GetFilenameAndExt() const {
  char const* s = fs_GetLastSlash();
  return s ? s + 1 : fs_GetNoHardPath();
}

char const* FileStringA::fs_GetExt() const {
  char const* name = fs_GetFilenameAndExt();
  return std::strrchr(name, '.');
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

void FileStringA::fs_AddExt(char const* ext, bool force) {
  if (!ext || !*ext) return;
  if (!force && fs_CompareExt(ext)) return;
  if (*ext == '.') ++ext;
  if (str_last_char() != '.') str_cat(".");
  str_cat(ext);
}

void FileStringA::fs_GetDriveAndPath(GenString& out) const {
  char const* s = fs_GetLastSlash();
  if (s)
    out.str_MemDup(c_str(), static_cast<size_t>(s - c_str() + 1));
  else if (fs_HasDrive())
    out.str_MemDup(c_str(), 2);
  else
    out.Clear();
}

char const* FileStringA::fs_QuoteFile() {
  side().scratch.Format("\"%s\"", c_str());
  return side().scratch.c_str();
}

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

long long FileStringA::fs_GetFileSize() const {
  struct stat st;
  return fs_stat(&st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

FILE* FileStringA::fs_fopen(char const* mode) const {
  GenString n;
  fs_system_name(c_str(), n);
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
    // UTF-16 little-endian: convert the rest to UTF-8 in place. The UTF-8 form of a code unit
    // never takes more than its UTF-16 form takes plus one byte, and a surrogate pair (4 bytes)
    // becomes 4 bytes, so the text fits where it was once the mark is gone... except for units
    // above 0x7FF which grow to 3 bytes from 2. Convert through a scratch copy.
    size_t units = 0;
    auto const* u = reinterpret_cast<char16_t const*>(buffer + 2);
    while (u[units]) ++units;
    std::unique_ptr<char16_t[]> copy(new char16_t[units + 1]);
    std::memcpy(copy.get(), u, units * 2);
    copy[units] = 0;
    char* utf8 = nullptr;
    int n = linuxcompat_utf16_to_utf8(copy.get(), &utf8);
    if (!utf8) return -1;
    size_t room = units * 2 + 2;  // the bytes the UTF-16 text occupied, mark included
    size_t len = static_cast<size_t>(n) < room ? static_cast<size_t>(n) : room;
    std::memcpy(buffer, utf8, len);
    std::memset(buffer + len, 0, room - len);
    std::free(utf8);
    return 1;
  }
  return 0;
}

void FileStringA::fs_ReplaceExt(char const* ext) {
  char const* dot = fs_GetExt();
  if (dot) {
    GenString t;
    t.str_MemDup(c_str(), static_cast<size_t>(dot - c_str()));
    GenString::operator=(std::move(t));
  }
  fs_AddExt(ext, true);
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
