#pragma once
#include <cstdint>
#include <cstring>

class BisFileIO;

// A 32-bit float/integer union with the validity test that every float read from a file passes.
union BisFunion {
  float f;
  uint32_t u;
  int32_t l;

  BisFunion() : u(0) {}
  explicit BisFunion(float v) : f(v) {}

  // -1 tiny (magnitude non-zero but the seven high exponent bits clear), 1 NaN, 2 infinite, 0 fine.
  int IsFaulty() const;
  static int IsFaulty(float v) { return BisFunion(v).IsFaulty(); }

  void Read(BisFileIO& io);
  void Write(BisFileIO& io) const;
};
