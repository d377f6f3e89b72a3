// The folder, renaming and command side of BisFileIO: making and removing folders, copying a
// folder's files, renaming over an existing file and running command lines through the shell.
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "io/BisFileIO.h"
#include "io/BisFileIOText.h"

namespace fs = std::filesystem;

using bis_io_text::io_to_utf8;
using bis_io_text::io_vformat;

namespace {
int default_shell_runner(char const* line) {
  // The command line arrives wrapped in one pair of double quotes, the form a Windows command
  // interpreter unwraps; the POSIX shell wants the bare command.
  std::string cmd(line ? line : "");
  if (cmd.size() >= 2 && cmd.front() == '"' && cmd.back() == '"') cmd = cmd.substr(1, cmd.size() - 2);
  return std::system(cmd.c_str());
}
BisFileIO::ShellRunner g_shell_runner = default_shell_runner;

std::string system_name(char const* name) {
  FileStringA f(name);
  f.fs_ConvertToSystemSlash();
  return f.c_str();
}
}  // namespace

// ===== folders, renaming and commands ========================================

int BisFileIO::io_CreateFolders(char const* path) {
  if (!path || !*path) return 0;
  FileStringA p(path);
  p.fs_ConvertToSystemSlash();
  std::string rest = p.fs_GetNoHardPath();
  if (rest.empty()) return 0;
  struct stat st;
  if (::stat(rest.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return 1;
  // Only components followed by a separator are made: a file path yields the folders that will
  // hold the file.
  for (size_t i = 1; i < rest.size(); ++i) {
    if (rest[i] != '/' || rest[i - 1] == '/') continue;
    std::string prefix = rest.substr(0, i);
    if (::stat(prefix.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) continue;
    if (::mkdir(prefix.c_str(), 0777) != 0) {
      int e = errno;
      io_callbackerr("%s\r\n%s\r\n", std::strerror(e), path);
      return 0;
    }
  }
  return 1;
}

int BisFileIO::io_mkdir(char const* folder) {
  FileStringA f(folder);
  f.fs_ConvertToSystemSlash();
  std::error_code ec;
  if (!f.str_IsEmpty() && fs::is_directory(f.c_str(), ec)) return 1;
  bool made = false;
  if (!f.str_IsEmpty()) {
    fs::create_directories(f.c_str(), ec);
    made = !ec && fs::is_directory(f.c_str(), ec);
  }
  if (!made) {
    io_callbackerr("mkdir::cannot make folder(s) %s\r\n", f.fs_QuoteFile());
    return 0;
  }
  return 1;
}

int BisFileIO::io_rmdir(char const* folder) {
  FileStringA f(folder);
  f.fs_ConvertToSystemSlash();
  std::string name = f.c_str();
  while (name.size() > 1 && name.back() == '/') name.pop_back();  // so that a link is seen as a link
  if (name.empty()) return 1;
  fs::path p(name);
  std::error_code ec;
  fs::file_status st = fs::symlink_status(p, ec);
  if (fs::is_symlink(st)) {
    // A link to a folder goes, never what it points at; a link to anything else is no folder.
    if (!fs::is_directory(fs::status(p, ec))) return 1;
    fs::remove(p, ec);
  } else if (!fs::is_directory(st)) {
    return 1;
  } else if (!p.has_relative_path()) {
    ec = std::make_error_code(std::errc::operation_not_permitted);  // never the root of a file system
  } else {
    fs::remove_all(p, ec);
  }
  if (ec) {
    io_callbackerr("\r\ncannot remove one or all of folder(s) %s\r\n", f.fs_QuoteFile());
    io_callbackerr("%s\r\n", ec.message().c_str());
    return 0;
  }
  return 1;
}

int BisFileIO::io_copy_folder(char const* from, char const* to) {
  fs::path src(system_name(from)), dst(system_name(to));
  std::error_code ec;
  if (src.empty() || dst.empty() || !fs::is_directory(src, ec)) return 0;
  // One folder inside the other (or both the same) would copy without end, or removing the
  // target would take the source with it.
  fs::path cs = fs::weakly_canonical(src, ec), cd = fs::weakly_canonical(dst, ec);
  if (ec) return 0;
  auto inside = [](fs::path const& inner, fs::path const& outer) {
    auto r = inner.lexically_relative(outer);
    return !r.empty() && *r.begin() != "..";
  };
  if (inside(cd, cs) || inside(cs, cd)) {
    io_callbackerr("Cannot perform a cyclic copy\r\n");
    return 0;
  }
  if (!io_rmdir(to) || !io_mkdir(to)) return 0;
  // Files of every subfolder; folders are made as their files need them, so empty ones are not
  // copied.
  fs::recursive_directory_iterator it(src, ec), end;
  for (; !ec && it != end; it.increment(ec)) {
    if (!it->is_regular_file(ec)) continue;
    fs::path target = dst / it->path().lexically_relative(src);
    fs::create_directories(target.parent_path(), ec);
    if (!ec) fs::copy_file(it->path(), target, fs::copy_options::overwrite_existing, ec);
  }
  return ec ? 0 : 1;
}

int BisFileIO::io_Rename(char const* from, char const* to) {
  if (!from || !*from || !to || !*to) return -1;
  FileStringA f(from), t(to);
  f.fs_ConvertToSystemSlash();
  t.fs_ConvertToSystemSlash();
  if (f.fs_GetLastSlash() && !t.fs_GetLastSlash()) {
    GenString folder;
    f.fs_GetDriveAndPath(folder);
    folder.str_cat(t.c_str());
    t = folder.c_str();
  }
  if (std::strcmp(f.c_str(), t.c_str()) == 0) return 0;
  // A rename that changes only letter case must not delete its own source first.
  if (strcasecmp(f.c_str(), t.c_str()) != 0) ::unlink(t.c_str());
  if (std::rename(f.c_str(), t.c_str()) != 0) {
    int e = errno;
    io_callbackerr("Rename failed with %s\r\nFrom='%s' To= '%s'\r\n", std::strerror(e), f.c_str(), t.c_str());
    return -1;
  }
  return 1;
}

BisFileIO::ShellRunner BisFileIO::io_SetShellRunner(ShellRunner runner) {
  ShellRunner old = g_shell_runner;
  g_shell_runner = runner ? runner : default_shell_runner;
  return old;
}

int BisFileIO::io_system_quotes(char const* command) {
  std::string line = "\"";
  line += command ? command : "";
  line += "\"";
  return g_shell_runner(line.c_str());
}

int BisFileIO::io_system_quotes(wchar_t const* command) { return io_system_quotes(io_to_utf8(command).c_str()); }

int BisFileIO::_run_command(std::string command, int mode, char const* log) {
  if (log && *log) {
    if (mode == 1) command += std::string(" 1>> ") + log;
    if (mode == 2) command += std::string(" 2>> ") + log;
    if (mode == 3) command += std::string(" 1>> ") + log + " 2>&1";
  }
  return io_system_quotes(command.c_str());
}

int BisFileIO::io_system(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string cmd = io_vformat(format, ap);
  va_end(ap);
  return _run_command(std::move(cmd), 0, nullptr);
}

int BisFileIO::io_system(int mode, char const* log, char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string cmd = io_vformat(format, ap);
  va_end(ap);
  return _run_command(std::move(cmd), mode, log);
}

int BisFileIO::io_sys_both(char const* log, char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  std::string cmd = io_vformat(format, ap);
  va_end(ap);
  return _run_command(std::move(cmd), 3, log);
}

int BisFileIO::io_CreateFolders(wchar_t const* path) { return io_CreateFolders(io_to_utf8(path).c_str()); }
int BisFileIO::io_mkdir(wchar_t const* folder) { return io_mkdir(io_to_utf8(folder).c_str()); }
int BisFileIO::io_rmdir(wchar_t const* folder) { return io_rmdir(io_to_utf8(folder).c_str()); }
int BisFileIO::io_copy_folder(wchar_t const* from, wchar_t const* to) {
  return io_copy_folder(io_to_utf8(from).c_str(), io_to_utf8(to).c_str());
}
int BisFileIO::io_Rename(wchar_t const* from, wchar_t const* to) {
  return io_Rename(io_to_utf8(from).c_str(), io_to_utf8(to).c_str());
}
