// Arbitrary bytes as a prefix file: read it, write the property list back, read that again.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"

namespace fs = std::filesystem;

namespace {
bool silent(char const*, ...) { return true; }

struct Place {
  fs::path root, input, output;
  Place() {
    std::string t = (fs::temp_directory_path() / "vendrak-fuzz-prefix-XXXXXX").string();
    root = ::mkdtemp(t.data());
    input = root / "$PBOPREFIX$";
    output = root / "written.txt";
  }
  ~Place() {
    std::error_code ec;
    fs::remove_all(root, ec);
  }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static Place place;
  FILE* f = std::fopen(place.input.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  tool->pbo_GetIO()->io_SetStdioCallBack(silent);
  tool->pbo_GetIO()->io_SetErrCallBack(silent);
  if (tool->pbo_ParsePrefixFile(place.input.c_str()) && tool->pbo_WriteParsedPrefixFile(place.output.c_str()))
    tool->pbo_ParsePrefixFile(place.output.c_str());
  (void)tool->pbo_GetPrefixPath();
  return 0;
}
