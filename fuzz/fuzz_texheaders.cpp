// Arbitrary bytes as a texture header index: open it and walk every entry it kept.
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/BisDLL.h"
#include "texture/Hollin.h"

namespace {
bool silent(char const*, ...) { return true; }
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  BisDLL dll;
  Hollin* h = dll.dll_GetHollin();
  h->tex_GetIO()->io_SetErrCallBack(silent);
  std::vector<uint8_t> image(data, data + size);
  if (h->tex_Open(static_cast<char const*>(nullptr), silent, image.data(), static_cast<unsigned long>(image.size())))
    return 0;
  volatile size_t sink = 0;
  for (auto* e = static_cast<TexHeader*>(h->GetFirst()); e; e = static_cast<TexHeader*>(e->GetNext())) {
    sink = sink + std::strlen(e->path) + e->th_Type();
    for (uint32_t i = 0; i < e->mipmap_count; ++i) sink = sink + e->th_MipmapWidth(i) + e->th_MipmapOffset(i);
  }
  return 0;
}
