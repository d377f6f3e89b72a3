#include "pbo/PboOutputFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
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

int PboOutputFolder::pof_WriteFile(std::vector<std::string> const& rel, void const* data, uint64_t size,
                                   time_t stamp) {
  if (rel.empty()) return PBO_NAME_ESCAPES;
  if (int r = pof_MakeFolder()) return r;

  std::string key;
  for (size_t i = 0; i + 1 < rel.size(); ++i) {
    key += rel[i];
    key += '/';
  }
  int dir_fd = _base_fd;
  if (!key.empty()) {
    auto found = _folders.find(key);
    if (found != _folders.end()) {
      dir_fd = found->second;
    } else {
      // A bounded set of open folders: archives keep a folder's files together, but not always.
      if (_folders.size() >= kMaxOpenFolders) _close_folders();
      if (int r = _walk(_base_fd, rel, rel.size() - 1, dir_fd)) return r;
      _folders.emplace(std::move(key), dir_fd);
    }
  }

  // A fresh file rather than a truncated one: an existing hard link keeps its old bytes, and a
  // link standing where the file goes is refused rather than followed.
  char const* leaf = rel.back().c_str();
  int const mode = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  int fd = ::openat(dir_fd, leaf, mode, 0666);
  if (fd < 0 && errno == EEXIST) {
    struct stat st;
    if (::fstatat(dir_fd, leaf, &st, AT_SYMLINK_NOFOLLOW) == 0) {
      if (S_ISLNK(st.st_mode)) return PBO_NAME_ESCAPES;
      if (S_ISDIR(st.st_mode)) {
        _errno = EISDIR;
        return GE_CANNOT_WRITE;
      }
      ::unlinkat(dir_fd, leaf, 0);
    }
    fd = ::openat(dir_fd, leaf, mode, 0666);
  }
  if (fd < 0) {
    _errno = errno;
    return errno == ELOOP ? static_cast<int>(PBO_NAME_ESCAPES) : static_cast<int>(GE_CANNOT_WRITE);
  }
  auto const* p = static_cast<uint8_t const*>(data);
  uint64_t left = size;
  while (left) {
    size_t chunk = left > (1u << 30) ? (1u << 30) : static_cast<size_t>(left);
    ssize_t w = ::write(fd, p, chunk);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) {
      _errno = w < 0 ? errno : EIO;
      ::close(fd);
      return GE_CANNOT_WRITE;
    }
    p += w;
    left -= static_cast<uint64_t>(w);
  }
  struct timespec times[2];
  times[0].tv_sec = times[1].tv_sec = stamp;
  times[0].tv_nsec = times[1].tv_nsec = 0;
  int dated = ::futimens(fd, times);
  int saved = errno;
  if (::close(fd) != 0 || dated != 0) {
    _errno = dated != 0 ? saved : errno;
    return GE_CANNOT_WRITE;
  }
  return 0;
}
