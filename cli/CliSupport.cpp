#include "CliSupport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

void cli_error(std::string const& path, std::string const& reason) {
  std::fflush(stdout);
  std::fprintf(stderr, "vendrak: %s: %s\n", path.c_str(), reason.c_str());
}

int cli_check_input(std::string const& path) {
  if (path == "-") return 0;
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) {
    cli_error(path, std::strerror(errno));
    return 3;
  }
  if (S_ISDIR(st.st_mode)) {
    cli_error(path, std::strerror(EISDIR));
    return 3;
  }
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    cli_error(path, std::strerror(errno));
    return 3;
  }
  ::close(fd);
  return 0;
}

namespace {
bool read_all(int fd, std::vector<unsigned char>& bytes) {
  unsigned char chunk[1 << 16];
  for (;;) {
    ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.insert(bytes.end(), chunk, chunk + n);
  }
}

bool write_all(int fd, unsigned char const* data, size_t size) {
  while (size) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}
}  // namespace

int cli_read_input(std::string const& path, std::vector<unsigned char>& bytes) {
  bytes.clear();
  if (path == "-") {
    if (!read_all(STDIN_FILENO, bytes)) {
      cli_error("(standard input)", std::strerror(errno));
      return 3;
    }
    return 0;
  }
  if (int r = cli_check_input(path)) return r;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  bool ok = fd >= 0 && read_all(fd, bytes);
  int err = errno;
  if (fd >= 0) ::close(fd);
  if (!ok) {
    cli_error(path, std::strerror(err));
    return 3;
  }
  return 0;
}

std::vector<unsigned char> cli_read_head(std::string const& path, size_t n) {
  std::vector<unsigned char> head(n);
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  ssize_t got = ::pread(fd, head.data(), n, 0);
  ::close(fd);
  head.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return head;
}

bool cli_same_content(std::string const& a, std::string const& b) {
  FILE* fa = std::fopen(a.c_str(), "rb");
  FILE* fb = fa ? std::fopen(b.c_str(), "rb") : nullptr;
  bool same = fa && fb;
  static thread_local char ba[1 << 16], bb[1 << 16];
  while (same) {
    size_t na = std::fread(ba, 1, sizeof ba, fa), nb = std::fread(bb, 1, sizeof bb, fb);
    if (na != nb || std::memcmp(ba, bb, na) != 0) same = false;
    if (na == 0) break;
  }
  if (fa) std::fclose(fa);
  if (fb) std::fclose(fb);
  return same;
}

// ===== OutputFile ============================================================

OutputFile::OutputFile(std::string target, bool force) : _target(std::move(target)), _force(force) {}

OutputFile::~OutputFile() { discard(); }

void OutputFile::discard() {
  if (_open) ::unlink(_temp.c_str());
  _open = false;
}

int OutputFile::open() {
  discard();
  fs::path folder;
  std::string stem = "stdout", ext;
  if (!is_stdout()) {
    fs::path t(_target);
    struct stat st {};
    if (::stat(_target.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
      cli_error(_target, std::strerror(EISDIR));
      return 6;
    }
    folder = t.parent_path();
    stem = t.stem().string();
    ext = t.extension().string();
  } else {
    char const* tmp = std::getenv("TMPDIR");
    folder = tmp && *tmp ? tmp : "/tmp";
  }
  // The temporary file keeps the target's extension: the library adds a default extension to a
  // name that has none.
  fs::path name = folder / ("." + stem + ".vendrak-XXXXXX" + ext);
  std::string templ = name.string();
  int fd = ::mkstemps(templ.data(), static_cast<int>(ext.size()));
  if (fd < 0) {
    int err = errno;
    cli_error(is_stdout() ? folder.string() : _target, std::strerror(err));
    return 6;
  }
  // mkstemps makes the file private; the finished output gets the permissions of a new file.
  mode_t mask = ::umask(0);
  ::umask(mask);
  ::fchmod(fd, 0666 & ~mask);
  ::close(fd);
  _temp = templ;
  _open = true;
  return 0;
}

int OutputFile::commit() {
  if (!_open) return 6;
  if (is_stdout()) {
    std::vector<unsigned char> bytes;
    int fd = ::open(_temp.c_str(), O_RDONLY | O_CLOEXEC);
    bool ok = fd >= 0 && read_all(fd, bytes);
    if (fd >= 0) ::close(fd);
    std::fflush(stdout);
    ok = ok && write_all(STDOUT_FILENO, bytes.data(), bytes.size());
    int err = errno;
    discard();
    if (!ok) {
      cli_error("(standard output)", std::strerror(err));
      return 6;
    }
    return 0;
  }
  struct stat st {};
  if (::lstat(_target.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) {
      cli_error(_target, std::strerror(EISDIR));
      discard();
      return 6;
    }
    if (cli_same_content(_temp, _target)) {
      discard();  // nothing changes: keep the file and its time stamp
      return 0;
    }
    if (!_force) {
      cli_error(_target, "exists and differs from the new output; use -f/--force to replace it");
      discard();
      return 6;
    }
  }
  if (::rename(_temp.c_str(), _target.c_str()) != 0) {
    int err = errno;
    cli_error(_target, std::strerror(err));
    discard();
    return 6;
  }
  _open = false;
  return 0;
}

// ===== info registry and suggestions ========================================

std::vector<InfoHandler>& info_handlers() {
  static std::vector<InfoHandler> handlers;
  return handlers;
}

namespace {
size_t edit_distance(std::string const& a, std::string const& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diag = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t up = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diag + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diag = up;
    }
  }
  return row[b.size()];
}
}  // namespace

std::string cli_closest(std::string const& word, std::vector<std::string> const& candidates) {
  std::string best;
  size_t best_distance = std::max<size_t>(2, word.size() / 3) + 1;
  for (auto const& c : candidates) {
    size_t d = edit_distance(word, c);
    if (c.rfind(word, 0) == 0 && word.size() >= 2) d = std::min<size_t>(d, 1);  // a prefix of a name
    if (d < best_distance) {
      best_distance = d;
      best = c;
    }
  }
  return best;
}
