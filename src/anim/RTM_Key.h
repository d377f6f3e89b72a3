#pragma once
#include <cstdint>

#include "io/BisTypes.h"

// One bone of one frame as binarised animations store it: a rotation quaternion of four signed
// 16-bit fractions of 16384 (x, y, z, w) and a translation of three half-precision floats, 14 bytes
// in all, relative to the bone's parent.
//
// The binarised form lives in the engine's own axes, which are a half-turn about the vertical from
// the editable form's, and its quaternion turns column vectors where the editable matrices turn
// row vectors. Both facts were measured on an animation that exists in both forms; together they
// amount to negating the quaternion's y and the translation's x and z.
struct RTM_Key {
  static constexpr unsigned kSize = 14;
  int16_t q[4] = {0, 0, 0, 16384};
  uint16_t t[3] = {0, 0, 0};

  // From / to the 14 stored bytes (little-endian, any alignment).
  static RTM_Key rk_Load(uint8_t const* bytes);
  void rk_Store(uint8_t* bytes) const;

  // The bone's local transform in the editable (row) form.
  void rk_Expand(XYZTransform* local) const;
  // The nearest key to a local transform; its rotation part should be orthonormal (a scale is
  // not representable and is lost).
  static RTM_Key rk_Compress(XYZTransform const& local);

  // Half precision without special values: the all-ones exponent is an ordinary one, so the
  // largest magnitude is 131008. Rounds to nearest, ties to even; larger values saturate and
  // anything not finite becomes 0.
  static uint16_t rk_FloatToHalf(float v);
};

// Row-form transform helpers shared by the animation writers.
// local := global x inverse(parent): the transform that, followed by the parent's, gives global.
// False when the parent's rotation part is singular.
bool rtm_RelativeTo(XYZTransform const& global, XYZTransform const& parent, XYZTransform* local);
