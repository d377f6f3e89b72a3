// Arbitrary bytes as a binarised model. What opens yields its texts, must write back to exactly
// its own bytes, and its editable form must open with the same LODs, points and faces.
#include <unistd.h>

#include <cstdint>
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
fs::path const& scratch() { return fuzzing::scratch("odol"); }
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static BisDLL dll;
  static Morvane* m = fuzzing::quiet_model_tool(dll);
  static BisDLL dll2;
  static Morvane* editable = fuzzing::quiet_model_tool(dll2);
  if (m->p3d_Open(data, static_cast<unsigned>(size), 0, silent) != 0) return 0;
  uint64_t work = 0;
  for (int i = 0; i < m->p3d_GetLodCount(); ++i) {
    void const* lod = m->p3d_get_lod(i);
    work += m->p3d_get_nPoints(lod) + m->p3d_get_nFaces(lod);
    TokenPairs props;
    m->p3d_get_properties(&props, i);
    m->p3d_get_lodtype_str(i, false);
  }
  m->p3d_needs_land_class();
  m->p3d_ExtractSkeleton();
  m->p3d_ExtractRvmats();
  fs::path copy = scratch() / "copy.p3d", mlod = scratch() / "mlod.p3d";
  if (m->p3d_Create(copy.c_str()) != 0) std::abort();
  // A binarised model comes back byte for byte; editable ones (a bare SP3D is written in its SP3X
  // form) are the editable fuzzer's business.
  if (!m->p3d_IsMlod() && slurp(copy) != std::string(reinterpret_cast<char const*>(data), size)) std::abort();
  // Expanded arrays may describe far more than the input holds; keep the editable form small.
  if (!m->p3d_IsMlod()) {
    if (work < 200000) {
      if (m->p3d_UnBinarised(mlod.c_str()) != 0) std::abort();
      if (editable->p3d_Open(mlod.c_str(), 0, silent) != 0) std::abort();
      if (editable->p3d_GetLodCount() != m->p3d_GetLodCount()) std::abort();
      for (int i = 0; i < m->p3d_GetLodCount(); ++i)
        if (editable->p3d_get_nPoints(editable->p3d_get_lod(i)) != m->p3d_get_nPoints(m->p3d_get_lod(i)) ||
            editable->p3d_get_nFaces(editable->p3d_get_lod(i)) != m->p3d_get_nFaces(m->p3d_get_lod(i)))
          std::abort();
      editable->Close();
    }
  }
  m->Close();
  return 0;
}
