// Arbitrary bytes as a font: open it and read every record it hands out.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "font/Glyvard.h"
#include "core/BisDLL.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  BisDLL dll;
  Glyvard* g = dll.dll_GetGlyvard();
  std::vector<uint8_t> image(data, data + size);
  if (g->fxy_Open("fuzz.fxy", image.data(), static_cast<unsigned long>(image.size()))) return 0;
  volatile unsigned sink = 0;
  for (unsigned long i = 0; i < g->fxy_GetCount(); ++i) {
    unsigned char const* r = g->fxy_GetEntry(i);
    if (!r) std::abort();
    sink = sink + r[0] + r[g->fxy_GetRecordSize() - 1];
  }
  if (g->fxy_GetEntry(g->fxy_GetCount())) std::abort();
  return 0;
}
