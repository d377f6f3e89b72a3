#pragma once
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// Everything the message callbacks of the object under test received, one entry per call.
struct Captured {
  static std::vector<std::string>& msgs() {
    static std::vector<std::string> v;
    return v;
  }
  static std::vector<std::string>& errs() {
    static std::vector<std::string> v;
    return v;
  }
  static std::string join(std::vector<std::string> const& v) {
    std::string s;
    for (auto const& e : v) s += e;
    return s;
  }
  static void clear() {
    msgs().clear();
    errs().clear();
  }
};

inline std::string vtext(char const* format, va_list ap) {
  char buf[8192];
  std::vsnprintf(buf, sizeof buf, format, ap);
  return buf;
}

inline bool capture_msg(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  Captured::msgs().push_back(vtext(format, ap));
  va_end(ap);
  return true;
}

inline bool capture_err(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  Captured::errs().push_back(vtext(format, ap));
  va_end(ap);
  return true;
}

// A fresh folder per test, removed afterwards.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vendrak-io-XXXXXX").string();
    _path = mkdtemp(pattern.data());
  }
  ~TempFolder() {
    std::error_code ec;
    std::filesystem::remove_all(_path, ec);
  }
  std::string operator/(std::string const& name) const { return _path + "/" + name; }
  std::string const& path() const { return _path; }

 private:
  std::string _path;
};

inline void put_file(std::string const& name, std::string const& bytes) {
  std::filesystem::create_directories(std::filesystem::path(name).parent_path());
  std::ofstream(name, std::ios::binary) << bytes;
}

inline std::string get_file(std::string const& name) {
  std::ifstream f(name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), {});
}
