#include "anim/RTM_Key.h"

#include <cmath>
#include <cstring>

#include "anim/Qnion.h"

namespace {
uint16_t le16(uint8_t const* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

int16_t quantise(double v) {
  if (!std::isfinite(v)) return 0;
  double r = std::round(v * 16384.0);
  if (r > 32767) r = 32767;
  if (r < -32768) r = -32768;
  return static_cast<int16_t>(r);
}

float finite_or_zero(float v) { return std::isfinite(v) ? v : 0.0f; }
}  // namespace

RTM_Key RTM_Key::rk_Load(uint8_t const* bytes) {
  RTM_Key k;
  for (int i = 0; i < 4; ++i) k.q[i] = static_cast<int16_t>(le16(bytes + 2 * i));
  for (int i = 0; i < 3; ++i) k.t[i] = le16(bytes + 8 + 2 * i);
  return k;
}

void RTM_Key::rk_Store(uint8_t* bytes) const {
  for (int i = 0; i < 4; ++i) {
    auto v = static_cast<uint16_t>(q[i]);
    bytes[2 * i] = static_cast<uint8_t>(v);
    bytes[2 * i + 1] = static_cast<uint8_t>(v >> 8);
  }
  for (int i = 0; i < 3; ++i) {
    bytes[8 + 2 * i] = static_cast<uint8_t>(t[i]);
    bytes[9 + 2 * i] = static_cast<uint8_t>(t[i] >> 8);
  }
}

void RTM_Key::rk_Expand(XYZTransform* local) const {
  Qnion n;
  n.x = Qnion::uncompress_Q(q[0]);
  n.y = -Qnion::uncompress_Q(q[1]);
  n.z = Qnion::uncompress_Q(q[2]);
  n.w = Qnion::uncompress_Q(q[3]);
  n.Qnormalise();
  Matrix3P m;
  n.QtoMatrix(&m);
  local->aside = m.aside;
  local->up = m.up;
  local->dir = m.dir;
  local->pos = {-Qnion::uncompress_xyz(t[0]), Qnion::uncompress_xyz(t[1]), -Qnion::uncompress_xyz(t[2])};
}

RTM_Key RTM_Key::rk_Compress(XYZTransform const& local) {
  // The quaternion whose rotation matrix (as Qnion builds it) is the given one, taken from its
  // largest diagonal term for accuracy.
  double const r[3][3] = {{local.aside.x, local.aside.y, local.aside.z},
                          {local.up.x, local.up.y, local.up.z},
                          {local.dir.x, local.dir.y, local.dir.z}};
  double x, y, z, w;
  double const trace = r[0][0] + r[1][1] + r[2][2];
  if (trace > 0) {
    w = std::sqrt(1 + trace) / 2;
    x = (r[1][2] - r[2][1]) / (4 * w);
    y = (r[2][0] - r[0][2]) / (4 * w);
    z = (r[0][1] - r[1][0]) / (4 * w);
  } else if (r[0][0] >= r[1][1] && r[0][0] >= r[2][2]) {
    x = std::sqrt(std::fmax(0.0, 1 + r[0][0] - r[1][1] - r[2][2])) / 2;
    double d = x > 0 ? 4 * x : 1;
    w = (r[1][2] - r[2][1]) / d;
    y = (r[0][1] + r[1][0]) / d;
    z = (r[0][2] + r[2][0]) / d;
  } else if (r[1][1] >= r[2][2]) {
    y = std::sqrt(std::fmax(0.0, 1 - r[0][0] + r[1][1] - r[2][2])) / 2;
    double d = y > 0 ? 4 * y : 1;
    w = (r[2][0] - r[0][2]) / d;
    x = (r[0][1] + r[1][0]) / d;
    z = (r[1][2] + r[2][1]) / d;
  } else {
    z = std::sqrt(std::fmax(0.0, 1 - r[0][0] - r[1][1] + r[2][2])) / 2;
    double d = z > 0 ? 4 * z : 1;
    w = (r[0][1] - r[1][0]) / d;
    x = (r[0][2] + r[2][0]) / d;
    y = (r[1][2] + r[2][1]) / d;
  }
  Qnion n;
  n.x = x;
  n.y = y;
  n.z = z;
  n.w = w;
  n.Qnormalise();
  if (n.w < 0) {  // q and -q are one rotation; a non-negative w keeps the stored form canonical
    n.x = -n.x;
    n.y = -n.y;
    n.z = -n.z;
    n.w = -n.w;
  }
  RTM_Key k;
  k.q[0] = quantise(n.x);
  k.q[1] = quantise(-n.y);
  k.q[2] = quantise(n.z);
  k.q[3] = quantise(n.w);
  k.t[0] = rk_FloatToHalf(-finite_or_zero(local.pos.x));
  k.t[1] = rk_FloatToHalf(finite_or_zero(local.pos.y));
  k.t[2] = rk_FloatToHalf(-finite_or_zero(local.pos.z));
  return k;
}

uint16_t RTM_Key::rk_FloatToHalf(float v) {
  if (!std::isfinite(v)) return 0;
  uint16_t const sign = std::signbit(v) ? 0x8000 : 0;
  double a = std::fabs(static_cast<double>(v));
  if (a == 0) return sign;
  int e2;
  std::frexp(a, &e2);  // a = m * 2^e2, m in [0.5, 1)
  int exponent = e2 - 1 + 15;  // biased exponent of 1.f * 2^(e2-1)
  if (exponent <= 0) {
    // Below the smallest normal: a multiple of 2^-24.
    double units = std::nearbyint(a * 16777216.0);  // ties to even under the default rounding
    if (units >= 1024) return static_cast<uint16_t>(sign | 0x0400);  // rounded up into the normals
    return static_cast<uint16_t>(sign | static_cast<uint16_t>(units));
  }
  double mantissa = std::nearbyint((std::ldexp(a, 15 - exponent) - 1.0) * 1024.0);
  if (mantissa >= 1024) {
    mantissa = 0;
    ++exponent;
  }
  if (exponent > 31) return static_cast<uint16_t>(sign | 0x7FFF);
  return static_cast<uint16_t>(sign | exponent << 10 | static_cast<uint16_t>(mantissa));
}

bool rtm_RelativeTo(XYZTransform const& global, XYZTransform const& parent, XYZTransform* local) {
  double const p[3][3] = {{parent.aside.x, parent.aside.y, parent.aside.z},
                          {parent.up.x, parent.up.y, parent.up.z},
                          {parent.dir.x, parent.dir.y, parent.dir.z}};
  double const det = p[0][0] * (p[1][1] * p[2][2] - p[1][2] * p[2][1]) -
                     p[0][1] * (p[1][0] * p[2][2] - p[1][2] * p[2][0]) +
                     p[0][2] * (p[1][0] * p[2][1] - p[1][1] * p[2][0]);
  if (!std::isfinite(det) || std::fabs(det) < 1e-12) return false;
  double inv[3][3];
  inv[0][0] = (p[1][1] * p[2][2] - p[1][2] * p[2][1]) / det;
  inv[0][1] = (p[0][2] * p[2][1] - p[0][1] * p[2][2]) / det;
  inv[0][2] = (p[0][1] * p[1][2] - p[0][2] * p[1][1]) / det;
  inv[1][0] = (p[1][2] * p[2][0] - p[1][0] * p[2][2]) / det;
  inv[1][1] = (p[0][0] * p[2][2] - p[0][2] * p[2][0]) / det;
  inv[1][2] = (p[0][2] * p[1][0] - p[0][0] * p[1][2]) / det;
  inv[2][0] = (p[1][0] * p[2][1] - p[1][1] * p[2][0]) / det;
  inv[2][1] = (p[0][1] * p[2][0] - p[0][0] * p[2][1]) / det;
  inv[2][2] = (p[0][0] * p[1][1] - p[0][1] * p[1][0]) / det;
  auto times_inv = [&](double a, double b, double c) {
    return XYZTriplet{static_cast<float>(a * inv[0][0] + b * inv[1][0] + c * inv[2][0]),
                      static_cast<float>(a * inv[0][1] + b * inv[1][1] + c * inv[2][1]),
                      static_cast<float>(a * inv[0][2] + b * inv[1][2] + c * inv[2][2])};
  };
  auto row = [&](XYZTriplet const& v) { return times_inv(v.x, v.y, v.z); };
  local->aside = row(global.aside);
  local->up = row(global.up);
  local->dir = row(global.dir);
  local->pos = times_inv(double(global.pos.x) - parent.pos.x, double(global.pos.y) - parent.pos.y,
                         double(global.pos.z) - parent.pos.z);
  return true;
}
