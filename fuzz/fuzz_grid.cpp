// Arbitrary bytes as an elevation grid (ESRI ASCII or XYZ points) and as an object listing. Each
// reader refuses them with a code or reads something that holds together: a grid becomes a terrain
// and comes back height for height, and written as an ESRI grid reads back the same; listed
// objects stand on a terrain and list back as many.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "FuzzScratch.h"
#include "core/BisDLL.h"
#include "terrain/Heightmap.h"
#include "terrain/ObjectListing.h"
#include "terrain/Tessak.h"

namespace {
void fail(char const* what) {
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

void quiet(BisFileIO* io) {
  io->io_SetStdioCallBack(fuzzing::silent);
  io->io_SetErrCallBack(fuzzing::silent);
}

bool same_grid(Heightmap const& a, Heightmap const& b) {
  return a.hm_Columns() == b.hm_Columns() && a.hm_Rows() == b.hm_Rows() &&
         float(a.hm_CellSize()) == float(b.hm_CellSize()) &&
         std::memcmp(a.hm_Heights().data(), b.hm_Heights().data(), a.hm_Heights().size() * 4) == 0;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  BisDLL dll;
  Tessak* terrain = dll.dll_GetTessak();
  quiet(terrain->wrp_GetIO());

  Heightmap grid(&dll);
  quiet(grid.hm_GetIO());
  if (grid.hm_Read(data, size) == 0) {
    if (grid.hm_ToTerrain(*terrain) != 0) fail("a grid that read did not make a terrain");
    Heightmap back(&dll), again(&dll);
    quiet(back.hm_GetIO());
    quiet(again.hm_GetIO());
    if (back.hm_FromTerrain(*terrain) != 0 || !same_grid(grid, back)) fail("a terrain did not give its grid back");
    std::string asc = (fuzzing::scratch("grid") / "g.asc").string();
    if (back.hm_Write(asc.c_str(), Heightmap::FORM_ASC) != 0) fail("a grid was not written");
    if (again.hm_Read(asc.c_str()) != 0 || !same_grid(grid, again)) fail("a written grid did not read back the same");
  }

  ObjectListing listing(&dll);
  quiet(listing.ol_GetIO());
  if (listing.ol_Read(data, size) == 0) {
    terrain->Close();
    terrain->wrp_SetGrids({4, 4}, {4, 4}, 10);
    if (listing.ol_PlaceOn(*terrain) != 0 || terrain->wrp_Objects().size() != listing.ol_Entries().size())
      fail("listed objects were not placed");
    std::string txt = (fuzzing::scratch("grid") / "o.txt").string();
    ObjectListing back(&dll);
    quiet(back.ol_GetIO());
    if (back.ol_Write(*terrain, txt.c_str(), false) != 0 || back.ol_Read(txt.c_str()) != 0 ||
        back.ol_Entries().size() != listing.ol_Entries().size())
      fail("placed objects did not list back");
  }
  return 0;
}
