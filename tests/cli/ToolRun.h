#pragma once
// Runs the built tool as a user would, with its streams caught, for the command-line tests.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace toolrun {
namespace fs = std::filesystem;

struct Result {
  int status;
  std::string out, err;
};

inline std::string slurp(fs::path const& p) {
  std::stringstream s;
  s << std::ifstream(p, std::ios::binary).rdbuf();
  return s.str();
}

inline void spit(fs::path const& p, std::string const& bytes) {
  std::ofstream(p, std::ios::binary) << bytes;
}

// A fresh folder per test, removed afterwards; tests may run at once in separate processes.
struct Scratch {
  fs::path path;
  Scratch() {
    std::string templ = (fs::temp_directory_path() / "vendrak_cli_XXXXXX").string();
    path = ::mkdtemp(templ.data());
  }
  ~Scratch() {
    std::error_code ec;
    fs::permissions(path, fs::perms::owner_all, fs::perm_options::add, ec);
    fs::remove_all(path, ec);
  }
  fs::path operator/(std::string const& name) const { return path / name; }
};

// Runs `vendrak args...` with standard input from `input` (a file path, or /dev/null).
inline Result run(std::vector<std::string> const& args, fs::path const& scratch, std::string const& input = "/dev/null") {
  fs::path out = scratch / ".stdout", err = scratch / ".stderr";
  pid_t pid = ::fork();
  if (pid == 0) {
    int in = ::open(input.c_str(), O_RDONLY);
    int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int e = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(in, 0);
    ::dup2(o, 1);
    ::dup2(e, 2);
    std::vector<char*> argv;
    std::string tool = VENDRAK_CLI_PATH;
    argv.push_back(tool.data());
    std::vector<std::string> copy = args;
    for (auto& a : copy) argv.push_back(a.data());
    argv.push_back(nullptr);
    ::execv(tool.c_str(), argv.data());
    ::_exit(127);
  }
  int st = 0;
  ::waitpid(pid, &st, 0);
  return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, slurp(out), slurp(err)};
}
}  // namespace toolrun
