#include "texture/PixelEncoder.h"

#include <squish.h>

#include <cstring>

#include "texture/Lorvix.h"
#include "texture/ParallelFor.h"
#include "texture/PixelDecoder.h"

namespace {
// The nearest of `steps` + 1 evenly spaced levels to an 8-bit value.
unsigned nearest(unsigned v, unsigned steps) { return (v * steps + 127) / 255; }

void put16(uint8_t* p, unsigned v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

void encode_dxt(int type, RgbaImage const& image, PixelEncoder::Options const& o, uint8_t* out) {
  int flags = type == Lorvix::PAX_DXT1 ? squish::kDxt1 : squish::kDxt5;
  flags |= o.fast ? squish::kColourRangeFit : squish::kColourIterativeClusterFit;
  size_t const block_size = type == Lorvix::PAX_DXT1 ? 8 : 16;
  uint32_t const bw = (image.width + 3) / 4, bh = (image.height + 3) / 4;
  parallel_for(bh, o.threads, [&](size_t by) {
    uint8_t rgba[64];
    for (uint32_t bx = 0; bx < bw; ++bx) {
      // Pixels beyond a side shorter than a block take no part in the fit.
      int mask = 0;
      for (uint32_t y = 0; y < 4; ++y)
        for (uint32_t x = 0; x < 4; ++x) {
          uint32_t px = bx * 4 + x, py = static_cast<uint32_t>(by) * 4 + y;
          int i = static_cast<int>(y * 4 + x);
          if (px < image.width && py < image.height) {
            std::memcpy(rgba + 4 * i, image.at(px, py), 4);
            mask |= 1 << i;
          } else {
            std::memset(rgba + 4 * i, 0, 4);
          }
        }
      squish::CompressMasked(rgba, mask, out + (by * bw + bx) * block_size, flags);
    }
  });
}
}  // namespace

bool PixelEncoder::writes(int type) {
  switch (type) {
    case Lorvix::PAX_DXT1: case Lorvix::PAX_DXT5: case Lorvix::PAX_RGB4: case Lorvix::PAX_RGB5:
    case Lorvix::PAX_RGB8: case Lorvix::PAX_GREY:
      return true;
    default:
      return false;
  }
}

bool PixelEncoder::encode(int type, RgbaImage const& image, Options const& options, std::vector<uint8_t>& out) {
  if (!writes(type)) return false;
  out.assign(PixelDecoder::stored_bytes(type, image.width, image.height), 0);
  if (Lorvix::pax_IsDxt(type)) {
    encode_dxt(type, image, options, out.data());
    return true;
  }
  size_t const n = image.pixel_count();
  uint8_t const* px = image.pixels.data();
  uint8_t* to = out.data();
  for (size_t i = 0; i < n; ++i, px += 4) {
    unsigned r = px[0], g = px[1], b = px[2], a = px[3];
    switch (type) {
      case Lorvix::PAX_RGB4:
        put16(to, nearest(a, 15) << 12 | nearest(r, 15) << 8 | nearest(g, 15) << 4 | nearest(b, 15));
        to += 2;
        break;
      case Lorvix::PAX_RGB5:
        put16(to, (a >= 128 ? 0x8000u : 0u) | nearest(r, 31) << 10 | nearest(g, 31) << 5 | nearest(b, 31));
        to += 2;
        break;
      case Lorvix::PAX_RGB8:
        *to++ = static_cast<uint8_t>(b);
        *to++ = static_cast<uint8_t>(g);
        *to++ = static_cast<uint8_t>(r);
        *to++ = static_cast<uint8_t>(a);
        break;
      default:  // AI88: grey, then alpha
        *to++ = static_cast<uint8_t>((299 * r + 587 * g + 114 * b + 500) / 1000);
        *to++ = static_cast<uint8_t>(a);
        break;
    }
  }
  return true;
}
