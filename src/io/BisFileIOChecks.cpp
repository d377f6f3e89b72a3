// The validated reads of BisFileIO: numbers and flags that must be what their field says (a
// float that is a number, a bool that is 0 or 1), and the test for a binarised config.
#include <cstring>

#include "io/BisFileIO.h"
#include "io/BisFunion.h"

// ===== validated reads =======================================================

void BisFileIO::io_test_val(float v, char const* name) {
  if (BisFunion::IsFaulty(v) != 0) io_throw(1, "%s is not a float\r\n", name ? name : "");
}

void BisFileIO::io_read(float* v, char const* name) {
  // Test the bits as read: a float passed by value could have its NaN payload altered.
  BisFunion u;
  u.u = io_ReadUlong();
  std::memcpy(v, &u.u, sizeof *v);
  if (name && u.IsFaulty() != 0) io_throw(1, "%s is not a float\r\n", name);
}

void BisFileIO::io_read(XYZTriplet* v, char const* name) {
  io_read(&v->x, name);
  io_read(&v->y, name);
  io_read(&v->z, name);
}

void BisFileIO::io_read(fMinMax* v, char const* name) {
  io_read(&v->min, name);
  io_read(&v->max, name);
}

void BisFileIO::io_read(trpMinMax* v, char const* name) {
  io_read(&v->min, name);
  io_read(&v->max, name);
}

void BisFileIO::io_read(Matrix3P* v, char const* name) {
  io_read(&v->aside, name);
  io_read(&v->up, name);
  io_read(&v->dir, name);
}

void BisFileIO::io_read(bool* v, char const* name) {
  int b = io_ReadByte();
  if (b == 0) {
    *v = false;
  } else if (b == 1 || !name) {
    *v = true;
  } else {
    io_throw(1, "%s is not a bool\r\n", name);
  }
}

int BisFileIO::io_BufIsRaPified(void const* bytes) {
  if (!bytes) return -1;
  auto const* b = static_cast<unsigned char const*>(bytes);
  return (b[1] == 'r' && b[2] == 'a' && b[3] == 'P') ? b[0] : -1;
}

int BisFileIO::io_FileIsRaPified(char const* name) {
  BisFileIO tmp(io_GetDllParent());
  // The memory buffer of any file has at least 4 readable bytes (the spare zeros).
  if (!tmp.io_OpenFile(name) || tmp.io_IsHuge()) return -1;
  return io_BufIsRaPified(tmp.io_GetRawData());
}
