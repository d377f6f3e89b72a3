#include "anim/Qnion.h"

#include <cmath>

float Qnion::uncompress_xyz(uint16_t v) {
  double sign = (v & 0x8000) ? -1.0 : 1.0;
  int exponent = (v >> 10) & 0x1F;
  double fraction = (v & 0x3FF) / 1024.0;
  if (exponent == 0) return static_cast<float>(sign * std::ldexp(fraction, -14));
  return static_cast<float>(sign * std::ldexp(1.0 + fraction, exponent - 15));
}

void Qnion::Qconvert(int16_t const parts[4]) {
  x = uncompress_Q(parts[0]);
  y = uncompress_Q(parts[1]);
  z = uncompress_Q(parts[2]);
  w = uncompress_Q(parts[3]);
}

void Qnion::Qnormalise() {
  double len = std::sqrt(x * x + y * y + z * z + w * w);
  if (len == 0) {  // no rotation rather than a division by zero
    x = y = z = 0;
    w = 1;
    return;
  }
  x /= len;
  y /= len;
  z /= len;
  w /= len;
}

void Qnion::QtoMatrix(Matrix3P* m) const {
  double xx = x * x, yy = y * y, zz = z * z, xy = x * y, xz = x * z, yz = y * z, wx = w * x, wy = w * y,
         wz = w * z;
  auto f = [](double v) { return static_cast<float>(v); };
  m->aside = {f(1 - 2 * (yy + zz)), f(2 * (xy + wz)), f(2 * (xz - wy))};
  m->up = {f(2 * (xy - wz)), f(1 - 2 * (xx + zz)), f(2 * (yz + wx))};
  m->dir = {f(2 * (xz + wy)), f(2 * (yz - wx)), f(1 - 2 * (xx + yy))};
}

void Qnion::Qmult2(XYZTransform* child, XYZTransform const* parent) {
  auto apply = [&](XYZTriplet const& v) {
    return XYZTriplet{v.x * parent->aside.x + v.y * parent->up.x + v.z * parent->dir.x,
                      v.x * parent->aside.y + v.y * parent->up.y + v.z * parent->dir.y,
                      v.x * parent->aside.z + v.y * parent->up.z + v.z * parent->dir.z};
  };
  XYZTransform r;
  r.aside = apply(child->aside);
  r.up = apply(child->up);
  r.dir = apply(child->dir);
  XYZTriplet p = apply(child->pos);
  r.pos = {p.x + parent->pos.x, p.y + parent->pos.y, p.z + parent->pos.z};
  *child = r;
}
