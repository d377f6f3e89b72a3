// Arbitrary bytes as a texture: open it with every mipmap expanded; what opens is written back,
// must reopen, and must give the same pixels.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "texture/Lorvix.h"

namespace {
bool silent(char const*, ...) { return true; }

std::string const& scratch() {
  static std::string name = [] {
    std::string t = (std::filesystem::temp_directory_path() / "vendrak-fuzz-paa-XXXXXX").string();
    return std::string(::mkdtemp(t.data())) + "/copy.paa";
  }();
  return name;
}

std::vector<std::vector<uint8_t>> pixels(Lorvix const& t) {
  std::vector<std::vector<uint8_t>> out;
  for (uint32_t i = 0; i < t.pax_GetMipmapCount(); ++i) {
    PaxMipmap const* m = t.pax_GetMipmap(i);
    out.emplace_back(m->pixels, m->pixels + m->pixel_size);
  }
  return out;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  BisDLL dll;
  Lorvix* t = dll.dll_GetLorvix();
  t->pax_GetIO()->io_SetErrCallBack(silent);
  std::vector<uint8_t> image(data, data + size);  // the tool keeps pointers into the image
  if (t->pax_Open(image.data(), image.size(), silent) != 0) return 0;
  auto before = pixels(*t);
  int type = t->pax_GetType();
  if (t->pax_Write(scratch().c_str()) != 0) return 0;  // e.g. more mipmaps than the offsets tagg holds
  int r = t->pax_Open(scratch().c_str(), silent);
  if (r != 0 || pixels(*t) != before || t->pax_GetType() != type) {
    std::fprintf(stderr, "written texture reads back differently (code %d)\n", r);
    std::abort();
  }
  std::remove(scratch().c_str());
  return 0;
}
