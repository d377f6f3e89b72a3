#pragma once
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "core/Generic_Errors.h"

// What the message and error callbacks received, all calls joined.
inline std::string g_msgs, g_errs;
inline void clear_captured() { g_msgs.clear(), g_errs.clear(); }
template <std::string* To>
bool capture(char const* format, ...) {
  char buf[8192];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  return *To += buf, true;
}
inline constexpr auto capture_msg = &capture<&g_msgs>, capture_err = &capture<&g_errs>;

// The Generic_Errors code an operation throws, or -1 when it returns.
inline int code_of(std::function<void()> const& op) {
  try {
    op();
  } catch (Generic_Errors e) {
    return e;
  }
  return -1;
}

// A fresh folder per test, removed afterwards.
struct TempFolder {
  std::string pattern = (std::filesystem::temp_directory_path() / "vendrak-io-XXXXXX").string();
  std::string path = mkdtemp(pattern.data());
  ~TempFolder() { std::error_code ec; std::filesystem::remove_all(path, ec); }
  std::string operator/(std::string const& name) const { return path + "/" + name; }
};

inline void put_file(std::string const& name, std::string const& bytes) {
  std::filesystem::create_directories(std::filesystem::path(name).parent_path());
  std::ofstream(name, std::ios::binary) << bytes;
}

inline std::string get_file(std::string const& name) {
  std::ifstream f(name, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), {});
}
