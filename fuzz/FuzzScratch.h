#pragma once
// What the fuzz targets that write files share: a silent message sink, one private folder per
// process for their outputs, reading an output back whole, and a model tool that stays quiet.
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "core/BisDLL.h"
#include "p3d/Morvane.h"

namespace fuzzing {
inline bool silent(char const*, ...) { return true; }

inline std::filesystem::path const& scratch(char const* tag) {
  static std::filesystem::path dir = [tag] {
    std::string t = (std::filesystem::temp_directory_path() / (std::string("vendrak-fuzz-") + tag + "-XXXXXX")).string();
    return std::filesystem::path(::mkdtemp(t.data()));
  }();
  return dir;
}

inline std::string slurp(std::filesystem::path const& p) {
  std::ifstream f(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), {});
}

inline Morvane* quiet_model_tool(BisDLL& dll) {
  Morvane* m = dll.dll_GetMorvane();
  m->p3d_GetIO()->io_SetErrCallBack(silent);
  return m;
}
}  // namespace fuzzing
