#include "io/BisFunion.h"

#include "io/BisFileIO.h"

int BisFunion::IsFaulty() const {
  uint32_t mag = u & 0x7FFFFFFFu;
  if (mag != 0 && (u & 0x7F000000u) == 0) return -1;
  if (mag > 0x7F800000u) return 1;
  if (mag == 0x7F800000u) return 2;
  return 0;
}

void BisFunion::Read(BisFileIO& io) { u = io.io_ReadUlong(); }
void BisFunion::Write(BisFileIO& io) const { io.io_WriteUlong(u); }
