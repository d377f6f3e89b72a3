#pragma once
#include <cstdint>

#include "io/BisTypes.h"

// A rotation quaternion (x, y, z, w) as binarised animation frames store it: four signed 16-bit
// values in the order x, y, z, w, each a fraction of 16384.
class Qnion {
 public:
  double x = 0, y = 0, z = 0, w = 1;

  static double uncompress_Q(int16_t v) { return v * (1.0 / 16384); }
  // An IEEE half-precision value; an all-ones exponent has no special meaning here.
  static float uncompress_xyz(uint16_t v);

  void Qconvert(int16_t const parts[4]);
  void Qnormalise();
  // The rotation as the rows of a row-form 3x3: the images of the x, y and z axes.
  void QtoMatrix(Matrix3P* m) const;
  // child := child x parent, both row-form 4x3 transforms (a point of the child's space goes
  // through the child's transform, then through the parent's).
  static void Qmult2(XYZTransform* child, XYZTransform const* parent);
};
