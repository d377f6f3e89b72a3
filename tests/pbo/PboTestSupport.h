#pragma once
// Message capture and scratch folders for the archive tests.
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "PboBuilder.h"

namespace pbotest {

inline std::string& messages() {
  static std::string m;
  return m;
}
inline std::string& errors() {
  static std::string e;
  return e;
}

inline void append(std::string& to, char const* format, va_list ap) {
  char buf[8192];
  std::vsnprintf(buf, sizeof buf, format, ap);
  to += buf;
}

inline bool capture(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  append(messages(), format, ap);
  va_end(ap);
  return true;
}

inline bool capture_err(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  append(errors(), format, ap);
  va_end(ap);
  return true;
}

inline void clear_captured() {
  messages().clear();
  errors().clear();
}

// A fresh folder below the system's temporary folder, removed with the object.
struct TempDir {
  std::filesystem::path path;
  TempDir() {
    std::string t = (std::filesystem::temp_directory_path() / "vendrak-pbo-XXXXXX").string();
    char* made = ::mkdtemp(t.data());
    path = made ? made : t;
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
  std::string operator/(std::string const& rel) const { return (path / rel).string(); }
};

}  // namespace pbotest
