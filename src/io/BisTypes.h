#pragma once
#include <cstdint>

#include "anim/XYZTriplet.h"

// Small fixed records that files store as they are.
struct uLongPair {
  uint32_t x = 0, y = 0;
};
struct fMinMax {
  float min = 0, max = 0;
};
struct trpMinMax {
  XYZTriplet min, max;
};
// A 3x3 orientation (rows as triplets).
struct Matrix3P {
  XYZTriplet aside, up, dir;
};
// A 4x3 transform as stored: orientation then position.
struct XYZTransform {
  XYZTriplet aside, up, dir, pos;
};
