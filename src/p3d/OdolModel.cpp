#include "p3d/OdolModel.h"

#include "io/BisFileIO.h"
#include "p3d/P3dCursor.h"
#include "p3d/P3dErrors.h"

void OdolModel::read(P3dCursor& c) {
  c.seek(4);
  _version = c.u32();
  if (_version != 7 && _version <= 39) {
    _io.io_callback("Type %d ", static_cast<int>(_version));
    throw P3DERR_UNKNOWN_ODOL;
  }
  throw P3DERR_UNKNOWN_ODOL;
}

void OdolModel::write(BisFileIO&) const { throw P3DERR_UNKNOWN_ODOL; }
void OdolModel::write_mlod(BisFileIO&) const { throw P3DERR_UNKNOWN_ODOL; }
