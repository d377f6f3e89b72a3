#include "pbo/PboOutputFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <filesystem>
#include <system_error>

#include "core/Generic_Errors.h"
#include "pbo/PboErrors.h"

PboOutputFolder::~PboOutputFolder() { pof_Close(); }

void PboOutputFolder::pof_Set(std::string root, std::vector<std::string> base) {
  pof_Close();
  _root = std::move(root);
  _base = std::move(base);
}

void PboOutputFolder::_close_folders() {
  for (auto const& f : _folders) ::close(f.second);
  _folders.clear();
}

void PboOutputFolder::pof_Close() {
  _close_folders();
  if (_base_fd >= 0 && _base_fd != _root_fd) ::close(_base_fd);
  if (_root_fd >= 0) ::close(_root_fd);
  _base_fd = _root_fd = -1;
}

bool PboOutputFolder::pof_SplitRelative(char const* name, std::vector<std::string>& out) {
  out.clear();
  if (!name || !*name) return false;
  auto is_sep = [](char c) { return c == '\\' || c == '/'; };
  if (is_sep(name[0])) return false;  // rooted
  if (std::isalpha(static_cast<unsigned char>(name[0])) && name[1] == ':') return false;  // drive
  char const* p = name;
  while (*p) {
    char const* start = p;
    while (*p && !is_sep(*p)) ++p;
    std::string comp(start, static_cast<size_t>(p - start));
    if (*p) ++p;
    if (comp.empty() || comp == ".") continue;
    if (comp == "..") {
      if (out.empty()) return false;
      out.pop_back();
      continue;
    }
    out.push_back(std::move(comp));
  }
  return !out.empty();
}

int PboOutputFolder::_open_root() {
  if (_root_fd >= 0) return 0;
  std::error_code ec;
  std::string root = _root.empty() ? std::string(".") : _root;
  if (!std::filesystem::is_directory(root, ec)) {
    std::filesystem::create_directories(root, ec);
    if (ec) {
      _errno = ec.value();
      return PBO_CANNOT_MAKE_FOLDER;
    }
  }
  _root_fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (_root_fd < 0) {
    _errno = errno;
    return PBO_CANNOT_MAKE_FOLDER;
  }
  return 0;
}

// Opens (creating when missing) `count` folder components below `from_fd`, never through a link.
int PboOutputFolder::_walk(int from_fd, std::vector<std::string> const& comps, size_t count, int& out_fd) {
  int fd = from_fd;
  auto fail = [&](int code) {
    if (fd != from_fd) ::close(fd);
    return code;
  };
  for (size_t i = 0; i < count; ++i) {
    char const* c = comps[i].c_str();
    int next = ::openat(fd, c, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0 && errno == ENOENT) {
      if (::mkdirat(fd, c, 0777) != 0 && errno != EEXIST) {
        _errno = errno;
        return fail(PBO_CANNOT_MAKE_FOLDER);
      }
      next = ::openat(fd, c, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }
    if (next < 0) {
      _errno = errno;
      struct stat st;
      bool link = ::fstatat(fd, c, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode);
      return fail(link ? PBO_NAME_ESCAPES : PBO_CANNOT_MAKE_FOLDER);
    }
    if (fd != from_fd) ::close(fd);
    fd = next;
  }
  out_fd = fd;
  return 0;
}

int PboOutputFolder::pof_MakeFolder() {
  if (_base_fd >= 0) return 0;
  if (int r = _open_root()) return r;
  if (_base.empty()) {
    _base_fd = _root_fd;
    return 0;
  }
  int fd = -1;
  if (int r = _walk(_root_fd, _base, _base.size(), fd)) return r;
  _base_fd = fd;
  return 0;
}

int PboOutputFolder::pof_Folder(std::vector<std::string> const& rel, int& dir_fd) {
  if (rel.empty()) return PBO_NAME_ESCAPES;
  if (int r = pof_MakeFolder()) return r;
  std::string key;
  for (size_t i = 0; i + 1 < rel.size(); ++i) {
    key += rel[i];
    key += '/';
  }
  dir_fd = _base_fd;
  if (key.empty()) return 0;
  auto found = _folders.find(key);
  if (found != _folders.end()) {
    dir_fd = found->second;
    return 0;
  }
  // A bounded set of open folders: archives keep a folder's files together, but not always.
  if (_folders.size() >= kMaxOpenFolders) _close_folders();
  if (int r = _walk(_base_fd, rel, rel.size() - 1, dir_fd)) return r;
  _folders.emplace(std::move(key), dir_fd);
  return 0;
}

int PboOutputFolder::pof_WriteFile(std::vector<std::string> const& rel, void const* data, uint64_t size,
                                   time_t stamp, bool force) {
  int dir_fd = -1;
  if (int r = pof_Folder(rel, dir_fd)) return r;
  Put p = pof_Put(dir_fd, rel.back().c_str(), data, size, stamp, force);
  if (p.result) _errno = p.error;
  return p.result;
}

namespace {
int write_all(int fd, uint8_t const* p, uint64_t left, PboOutputFolder::Put& put) {
  while (left) {
    size_t chunk = left > (1u << 30) ? (1u << 30) : static_cast<size_t>(left);
    ssize_t w = ::write(fd, p, chunk);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) {
      // EFAULT: the bytes came from a mapped file that has since lost them.
      put.fault = w < 0 && errno == EFAULT;
      put.error = w < 0 ? errno : EIO;
      return GE_CANNOT_WRITE;
    }
    p += w;
    left -= static_cast<uint64_t>(w);
  }
  return 0;
}

// Whether the regular file `leaf` holds exactly these bytes.
bool same_content(int dir_fd, char const* leaf, uint64_t file_size, uint8_t const* data, uint64_t size) {
  if (file_size != size) return false;
  int fd = ::openat(dir_fd, leaf, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  static constexpr size_t kChunk = 1 << 20;
  std::unique_ptr<uint8_t[]> buf(new uint8_t[kChunk]);
  bool same = true;
  for (uint64_t at = 0; same && at < size;) {
    size_t want = static_cast<size_t>(std::min<uint64_t>(kChunk, size - at));
    ssize_t n = ::pread(fd, buf.get(), want, static_cast<off_t>(at));
    if (n < 0 && errno == EINTR) continue;
    same = n > 0 && std::memcmp(buf.get(), data + at, static_cast<size_t>(n)) == 0;
    at += n > 0 ? static_cast<uint64_t>(n) : 0;
  }
  ::close(fd);
  return same;
}

// A hidden name in the same folder, so that the rename stays on one file system.
int create_temporary(int dir_fd, std::string& name) {
  static std::atomic<uint32_t> counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    char buf[48];
    std::snprintf(buf, sizeof buf, ".vdk-%x-%x.tmp", static_cast<unsigned>(::getpid()),
                  static_cast<unsigned>(counter.fetch_add(1)));
    int fd = ::openat(dir_fd, buf, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST) {
      name = buf;
      return fd;
    }
  }
  return -1;
}
}  // namespace

PboOutputFolder::Put PboOutputFolder::pof_Put(int dir_fd, char const* leaf, void const* data, uint64_t size,
                                              time_t stamp, bool force) {
  Put put;
  auto const* bytes = static_cast<uint8_t const*>(data);
  struct stat st;
  if (::fstatat(dir_fd, leaf, &st, AT_SYMLINK_NOFOLLOW) == 0) {
    // A link standing where the file goes is refused rather than followed or replaced.
    if (S_ISLNK(st.st_mode)) {
      put.result = PBO_NAME_ESCAPES;
      return put;
    }
    if (S_ISDIR(st.st_mode)) {
      put.result = GE_CANNOT_WRITE;
      put.error = EISDIR;
      return put;
    }
    if (S_ISREG(st.st_mode) && same_content(dir_fd, leaf, static_cast<uint64_t>(st.st_size), bytes, size)) {
      put.kept = true;
      return put;
    }
    if (!force) {
      put.result = PBO_WOULD_OVERWRITE;
      return put;
    }
  }

  std::string temp;
  int fd = create_temporary(dir_fd, temp);
  if (fd < 0) {
    put.result = GE_CANNOT_WRITE;
    put.error = errno;
    return put;
  }
  put.result = write_all(fd, bytes, size, put);
  if (!put.result) {
    struct timespec times[2];
    times[0].tv_sec = times[1].tv_sec = stamp;
    times[0].tv_nsec = times[1].tv_nsec = 0;
    if (::futimens(fd, times) != 0) {
      put.result = GE_CANNOT_WRITE;
      put.error = errno;
    }
  }
  if (::close(fd) != 0 && !put.result) {
    put.result = GE_CANNOT_WRITE;
    put.error = errno;
  }
  // The rename replaces a name, never what a name points to: a link put there meanwhile is
  // replaced, not followed.
  if (!put.result && ::renameat(dir_fd, temp.c_str(), dir_fd, leaf) != 0) {
    put.result = GE_CANNOT_WRITE;
    put.error = errno;
  }
  if (put.result) ::unlinkat(dir_fd, temp.c_str(), 0);
  return put;
}
