// Arbitrary bytes as a terrain-editor project: open it, and when it opens, write it back, read the
// copy and write that again: the two copies must be the same bytes (nothing is lost or invented).
// A project that opens also builds a terrain.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "core/BisDLL.h"
#include "terrain/Grindel.h"
#include "terrain/Tessak.h"

namespace fs = std::filesystem;

namespace {
bool silent(char const*, ...) { return true; }

std::string const& scratch() {
  static std::string const name = [] {
    std::string t = (fs::temp_directory_path() / "vendrak-fuzz-pew-XXXXXX").string();
    return std::string(::mkdtemp(t.data())) + "/p.pew";
  }();
  return name;
}

std::string write_and_read(Grindel* g) {
  if (g->pew_Write(scratch().c_str()) != 0) {
    std::fprintf(stderr, "a project that opened could not be written\n");
    std::abort();
  }
  std::ifstream f(scratch(), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), {});
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  if (size > UINT32_MAX) return 0;
  BisDLL dll;
  Grindel* g = dll.dll_GetGrindel();
  g->pew_GetIO()->io_SetErrCallBack(silent);
  if (g->pew_Open(data, unsigned(size), silent) != 0) return 0;

  Tessak* t = dll.dll_GetTessak();
  t->wrp_GetIO()->io_SetStdioCallBack(silent);
  t->wrp_GetIO()->io_SetErrCallBack(silent);
  t->wrp_CreateFromPew(Tessak::KIND_8WVR, g, silent);

  std::string first = write_and_read(g);
  BisDLL again;
  Grindel* back = again.dll_GetGrindel();
  back->pew_GetIO()->io_SetErrCallBack(silent);
  if (back->pew_Open(reinterpret_cast<unsigned char const*>(first.data()), unsigned(first.size()), silent) != 0 ||
      write_and_read(back) != first) {
    std::fprintf(stderr, "a written project does not read back the same\n");
    std::abort();
  }
  return 0;
}
