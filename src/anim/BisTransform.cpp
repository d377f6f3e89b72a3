#include "anim/BisTransform.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "core/Generic_Errors.h"
#include "io/BisFileIO.h"

namespace {
constexpr double kPi = 3.14159265358979323846;
}

float* BisTransform::elements() const { return reinterpret_cast<float*>(_array); }

float BisTransform::at(int i) const {
  if (!_array) throw GE_CODE_BUG;
  return elements()[i];
}

void BisTransform::set(int i, float v) {
  if (!_array) throw GE_CODE_BUG;
  elements()[i] = v;
}

void BisTransform::Clear() {
  if (_owned) delete _array;
  _array = nullptr;
  _owned = false;
}

XYZTransform* BisTransform::Alloc(bool column) {
  Clear();
  _array = new XYZTransform{};
  _owned = true;
  _column = column;
  return _array;
}

void BisTransform::SetTransformArray(XYZTransform* array, bool column) {
  Clear();
  _array = array;
  _column = column;
}

void BisTransform::ReadTransformArray(BisFileIO* io, bool column) {
  XYZTransform const* p = io->io_ReadXYZTransformPtr();
  Alloc(column);
  std::memcpy(_array, p, sizeof(XYZTransform));
}

void BisTransform::WriteTransformArray(BisFileIO* io) const {
  if (!_array) throw GE_CODE_BUG;
  io->io_WriteXYZTransform(*_array);
}

XYZTriplet const* BisTransform::GetXYZ() {
  if (!_array) throw GE_CODE_BUG;
  if (!_column) return &_array->pos;
  _xyz = {GetX(), GetY(), GetZ()};
  return &_xyz;
}

void BisTransform::SetXYZ(float x, float y, float z) {
  SetX(x);
  SetY(y);
  SetZ(z);
}

void BisTransform::SetXYZ(double x, double y, double z) {
  SetXYZ(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
}

void BisTransform::SetXYZ(XYZTriplet const* p) { SetXYZ(p->x, p->y, p->z); }

// Row form g[axis*3 + coordinate]; column form f[coordinate*4 + axis].
void BisTransform::transpose(bool to_column) {
  if (!_array) {
    std::fputs(to_column ? "\nDebug: BisTransform::Convert2Column\n" : "\nDebug: BisTransform::Convert2Row\n", stderr);
    throw GE_CODE_BUG;
  }
  if (_column == to_column) return;
  float* f = elements();
  float t[12];
  for (int axis = 0; axis < 4; ++axis)
    for (int c = 0; c < 3; ++c) {
      if (to_column)
        t[c * 4 + axis] = f[axis * 3 + c];
      else
        t[axis * 3 + c] = f[c * 4 + axis];
    }
  std::memcpy(f, t, sizeof t);
  _column = to_column;
}

void BisTransform::Convert2Row() { transpose(false); }
void BisTransform::Convert2Column() { transpose(true); }
void BisTransform::tfm_Convert() { transpose(!_column); }

double BisTransform::GetScale() const {
  float a = at(0), b = at(_column ? 1 : 3), c = at(_column ? 2 : 6);
  float sum = a * a + b * b + c * c;
  return std::sqrt(static_cast<double>(sum));
}

double BisTransform::GetCosY() const { return at(0) / GetScale(); }

double BisTransform::GetSinY() const { return at(_column ? 2 : 6) / GetScale(); }

double BisTransform::GetDirectionInDegrees() const {
  double c = GetCosY(), s = GetSinY();
  if (std::fabs(c) <= 1) {
    double d = std::acos(c) * 180 / kPi;
    return s < 0 ? 360 - d : d;
  }
  if (std::fabs(s) > 1) return -1;
  double d = std::asin(s) * 180 / kPi;
  if (c >= 0 && s < 0) return d + 360;
  if (c < 0 && s < 0) return 180 - d;
  return d + 270;
}

double BisTransform::GetOrientationInRadians() const {
  double a = at(0), b = at(2);
  double A = std::floor(std::asin(std::fabs(a)) * 180 / kPi + 0.5);
  double B = std::floor(std::asin(std::fabs(b)) * 180 / kPi + 0.5);
  double deg;
  if (b < 0)
    deg = a >= 0 ? A + 270 : B + 180;
  else if (a < 0)
    deg = A + 90;
  else
    deg = B;
  return (static_cast<int>(deg) % 360) * kPi / 180;
}

void BisTransform::SetCosY(double cos_angle, double scale) {
  float v = static_cast<float>(cos_angle * scale);
  set(0, v);
  set(_column ? 10 : 8, v);
}

void BisTransform::SetSinY(double sin_angle, double scale) {
  float v = static_cast<float>(sin_angle * scale);
  if (_column) {
    set(2, v);
    set(8, -v);
  } else {
    set(6, v);
    set(2, -v);
  }
}

// The row form leaves the up axis's length (element 4) alone while the column form sets it to the
// scale: tools written against either order rely on their own behaviour.
void BisTransform::SetDirectionInRadians(double angle, float scale) {
  SetCosY(std::cos(angle), scale);
  SetSinY(std::sin(angle), scale);
  if (_column) {
    for (int i : {1, 4, 6, 9}) set(i, 0);
    set(5, scale);
  } else {
    for (int i : {1, 3, 5, 7}) set(i, 0);
  }
}

void BisTransform::SetDirectionInDegrees(double angle, float scale) { SetDirectionInRadians(angle * kPi / 180, scale); }
