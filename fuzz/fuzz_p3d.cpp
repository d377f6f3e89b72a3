// Arbitrary bytes as a model: open it, walk every LOD through the accessors and, when it opened,
// write it back and read that again. A written model must reopen and write to the same bytes.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "FuzzScratch.h"
#include "core/BisDLL.h"
#include "p3d/Morvane.h"
#include "text/TokenPairs.h"

namespace fs = std::filesystem;

namespace {
using fuzzing::silent;
using fuzzing::slurp;
fs::path const& scratch() { return fuzzing::scratch("p3d"); }

void walk(Morvane* m) {
  volatile double sink = 0;
  for (int i = 0; i < m->p3d_GetLodCount(); ++i) {
    void const* lod = m->p3d_get_lod(i);
    m->p3d_get_lodtype_str(i, true);
    sink = sink + m->p3d_get_calculated_total_mass(lod) + m->p3d_get_calculated_cog(lod).x;
    unsigned long n = 0;
    m->p3d_get_texture_table(lod, &n);
    MlodFace const* faces = m->p3d_get_face_table(lod, &n);
    auto const* l = static_cast<MlodLod const*>(lod);
    for (unsigned long f = 0; f < n; ++f) {
      float u, v;
      l->corner_uv(static_cast<uint32_t>(f), faces[f].nCorners - 1, u, v);
      sink = sink + u + v;
    }
    LodNamedSelection const* sel = m->p3d_get_named_selection_table(lod, &n);
    for (unsigned long s = 0; s < n; ++s)
      if (l->nPoints) sink = sink + sel[s].point_weights[l->nPoints - 1];
    TokenPairs props;
    m->p3d_get_properties(&props, i);
  }
  m->p3d_needs_land_class();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static BisDLL dll;
  static Morvane* m = fuzzing::quiet_model_tool(dll);
  if (m->p3d_Open(data, static_cast<unsigned>(size), 0, silent) != 0) return 0;
  walk(m);
  fs::path first = scratch() / "first.p3d", second = scratch() / "second.p3d";
  if (m->p3d_Create(first.c_str()) != 0) std::abort();
  if (m->p3d_Open(first.c_str(), 0, silent) != 0) std::abort();
  if (m->p3d_Create(second.c_str()) != 0 || slurp(first) != slurp(second)) std::abort();
  m->Close();
  return 0;
}
