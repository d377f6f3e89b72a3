// Arbitrary bytes as a terrain: open it, walk its objects, and when it opens, convert it to the
// editable kind and check that the result reads back with the same ground and objects.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "anim/BisTransform.h"
#include "core/BisDLL.h"
#include "terrain/Tessak.h"

namespace fs = std::filesystem;

namespace {
bool silent(char const*, ...) { return true; }

std::string const& scratch() {
  static std::string const name = [] {
    std::string t = (fs::temp_directory_path() / "vendrak-fuzz-wrp-XXXXXX").string();
    return std::string(::mkdtemp(t.data())) + "/t.wrp";
  }();
  return name;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  BisDLL dll;
  Tessak* t = dll.dll_GetTessak();
  t->wrp_GetIO()->io_SetStdioCallBack(silent);
  t->wrp_GetIO()->io_SetErrCallBack(silent);
  if (t->wrp_Open(data, size) != 0) return 0;

  double sum = 0;
  for (WRP_Object const& o : t->wrp_Objects()) {
    XYZTransform copy = o.transform;
    BisTransform tr;
    tr.SetTransformArray(&copy, false);
    sum += tr.GetDirectionInDegrees() + tr.GetScale() + (t->wrp_TemplateOf(o) ? 1 : 0);
  }
  volatile double sink = sum;
  (void)sink;

  size_t objects = t->wrp_Objects().size();
  uLongPair map = t->wrp_MapSize();
  int r = t->wrp_Create(scratch().c_str(), "8WVR");
  if (r == WRP_NO_TEMPLATE) return 0;
  if (r != 0) {
    std::fprintf(stderr, "a terrain that opened did not convert: %d\n", r);
    std::abort();
  }
  BisDLL again;
  Tessak* back = again.dll_GetTessak();
  back->wrp_GetIO()->io_SetStdioCallBack(silent);
  back->wrp_GetIO()->io_SetErrCallBack(silent);
  if (back->wrp_Open(scratch().c_str()) != 0 || back->wrp_Objects().size() != objects ||
      back->wrp_MapSize().x != map.x || back->wrp_MapSize().y != map.y ||
      std::memcmp(back->wrp_Elevations(), t->wrp_Elevations(), uint64_t(map.x) * map.y * 4) != 0) {
    std::fprintf(stderr, "a converted terrain does not read back the same\n");
    std::abort();
  }
  return 0;
}
