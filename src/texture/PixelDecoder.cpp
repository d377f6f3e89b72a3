#include "texture/PixelDecoder.h"

#include <algorithm>
#include <cstring>

#include "texture/Lorvix.h"

namespace {
uint16_t le16(uint8_t const* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

// 5- and 6-bit channels widened by repeating their top bits: 0 stays 0, the top value becomes 255.
uint8_t widen5(unsigned v) { return static_cast<uint8_t>(v << 3 | v >> 2); }
uint8_t widen6(unsigned v) { return static_cast<uint8_t>(v << 2 | v >> 4); }

void unpack565(uint16_t c, unsigned rgb[3]) {
  rgb[0] = widen5(c >> 11 & 31);
  rgb[1] = widen6(c >> 5 & 63);
  rgb[2] = widen5(c & 31);
}

// Alpha premultiplied into the colour (DXT2, DXT4) divided back out; where nothing shows, black.
void unpremultiply(uint8_t* px, size_t count) {
  for (size_t i = 0; i < count; ++i, px += 4) {
    unsigned a = px[3];
    for (int c = 0; c < 3; ++c)
      px[c] = a ? static_cast<uint8_t>(std::min(255u, (px[c] * 255u + a / 2) / a)) : 0;
  }
}
}  // namespace

void PixelDecoder::colour_block(uint8_t const* block, bool dxt1, uint8_t* rgba) {
  uint16_t c0 = le16(block), c1 = le16(block + 2);
  unsigned a[3], b[3];
  unpack565(c0, a);
  unpack565(c1, b);
  uint8_t codes[4][4];
  for (int c = 0; c < 3; ++c) {
    codes[0][c] = static_cast<uint8_t>(a[c]);
    codes[1][c] = static_cast<uint8_t>(b[c]);
  }
  codes[0][3] = codes[1][3] = codes[2][3] = codes[3][3] = 255;
  if (!dxt1 || c0 > c1) {
    // Two thirds of one end point and one third of the other, to the nearest step.
    for (int c = 0; c < 3; ++c) {
      codes[2][c] = static_cast<uint8_t>((2 * a[c] + b[c] + 1) / 3);
      codes[3][c] = static_cast<uint8_t>((a[c] + 2 * b[c] + 1) / 3);
    }
  } else {
    for (int c = 0; c < 3; ++c) {
      codes[2][c] = static_cast<uint8_t>((a[c] + b[c] + 1) / 2);
      codes[3][c] = 0;
    }
    codes[3][3] = 0;
  }
  for (int i = 0; i < 16; ++i) {
    unsigned index = block[4 + i / 4] >> (2 * (i % 4)) & 3;
    std::memcpy(rgba + 4 * i, codes[index], 4);
  }
}

void PixelDecoder::alpha_block_explicit(uint8_t const* block, uint8_t* rgba) {
  for (int i = 0; i < 16; ++i) {
    unsigned nibble = block[i / 2] >> (4 * (i % 2)) & 15;
    rgba[4 * i + 3] = static_cast<uint8_t>(nibble * 17);
  }
}

void PixelDecoder::alpha_block_interpolated(uint8_t const* block, uint8_t* rgba) {
  unsigned a0 = block[0], a1 = block[1];
  uint8_t codes[8] = {static_cast<uint8_t>(a0), static_cast<uint8_t>(a1)};
  if (a0 > a1) {
    for (unsigned k = 1; k <= 6; ++k) codes[k + 1] = static_cast<uint8_t>(((7 - k) * a0 + k * a1 + 3) / 7);
  } else {
    for (unsigned k = 1; k <= 4; ++k) codes[k + 1] = static_cast<uint8_t>(((5 - k) * a0 + k * a1 + 2) / 5);
    codes[6] = 0;
    codes[7] = 255;
  }
  // Sixteen 3-bit indices in six bytes, least significant first.
  uint64_t bits = 0;
  for (int i = 0; i < 6; ++i) bits |= uint64_t(block[2 + i]) << (8 * i);
  for (int i = 0; i < 16; ++i) rgba[4 * i + 3] = codes[bits >> (3 * i) & 7];
}

uint64_t PixelDecoder::stored_bytes(int type, uint32_t width, uint32_t height) {
  uint64_t pixels = uint64_t(width) * height;
  uint64_t blocks = uint64_t((width + 3) / 4) * ((height + 3) / 4);
  switch (type) {
    case Lorvix::PAX_DXT1: return blocks * 8;
    case Lorvix::PAX_DXT2: case Lorvix::PAX_DXT3: case Lorvix::PAX_DXT4: case Lorvix::PAX_DXT5: return blocks * 16;
    case Lorvix::PAX_RGB4: case Lorvix::PAX_RGB5: case Lorvix::PAX_GREY: return pixels * 2;
    case Lorvix::PAX_RGB8: return pixels * 4;
    case Lorvix::PAX_INDX: case Lorvix::PAX_NONE: return pixels;
    default: return 0;
  }
}

std::string PixelDecoder::decode(int type, uint32_t width, uint32_t height, uint8_t const* data, uint64_t size,
                                 uint8_t const* palette, int palette_count, RgbaImage& out) {
  out = RgbaImage{};
  uint64_t need = stored_bytes(type, width, height);
  if (!need || !width || !height) return "no pixels of this type and size can be decoded";
  if (size < need || !data)
    return "the mipmap holds " + std::to_string(size) + " bytes where its size needs " + std::to_string(need);
  out.width = width;
  out.height = height;
  out.pixels.resize(out.pixel_count() * 4);
  uint8_t* px = out.pixels.data();

  if (Lorvix::pax_IsDxt(type)) {
    bool const dxt1 = type == Lorvix::PAX_DXT1;
    size_t const block_size = dxt1 ? 8 : 16;
    uint32_t const bw = (width + 3) / 4, bh = (height + 3) / 4;
    uint8_t rgba[64];
    for (uint32_t by = 0; by < bh; ++by)
      for (uint32_t bx = 0; bx < bw; ++bx) {
        uint8_t const* block = data + (size_t(by) * bw + bx) * block_size;
        colour_block(dxt1 ? block : block + 8, dxt1, rgba);
        if (type == Lorvix::PAX_DXT2 || type == Lorvix::PAX_DXT3) alpha_block_explicit(block, rgba);
        if (type == Lorvix::PAX_DXT4 || type == Lorvix::PAX_DXT5) alpha_block_interpolated(block, rgba);
        // Blocks of mipmaps narrower or lower than four pixels hang over the edge.
        for (uint32_t y = 0; y < 4 && by * 4 + y < height; ++y)
          for (uint32_t x = 0; x < 4 && bx * 4 + x < width; ++x)
            std::memcpy(out.at(bx * 4 + x, by * 4 + y), rgba + 4 * (y * 4 + x), 4);
      }
    if (type == Lorvix::PAX_DXT2 || type == Lorvix::PAX_DXT4) unpremultiply(px, out.pixel_count());
    return {};
  }

  size_t const n = out.pixel_count();
  switch (type) {
    case Lorvix::PAX_RGB4:
      for (size_t i = 0; i < n; ++i, px += 4) {
        uint16_t v = le16(data + 2 * i);
        px[0] = static_cast<uint8_t>((v >> 8 & 15) * 17);
        px[1] = static_cast<uint8_t>((v >> 4 & 15) * 17);
        px[2] = static_cast<uint8_t>((v & 15) * 17);
        px[3] = static_cast<uint8_t>((v >> 12) * 17);
      }
      break;
    case Lorvix::PAX_RGB5:
      for (size_t i = 0; i < n; ++i, px += 4) {
        uint16_t v = le16(data + 2 * i);
        px[0] = widen5(v >> 10 & 31);
        px[1] = widen5(v >> 5 & 31);
        px[2] = widen5(v & 31);
        px[3] = v & 0x8000 ? 255 : 0;
      }
      break;
    case Lorvix::PAX_RGB8:  // blue, green, red, alpha in memory
      for (size_t i = 0; i < n; ++i, px += 4) {
        uint8_t const* s = data + 4 * i;
        px[0] = s[2];
        px[1] = s[1];
        px[2] = s[0];
        px[3] = s[3];
      }
      break;
    case Lorvix::PAX_GREY:  // grey in the low byte, alpha in the high one
      for (size_t i = 0; i < n; ++i, px += 4) {
        px[0] = px[1] = px[2] = data[2 * i];
        px[3] = data[2 * i + 1];
      }
      break;
    default:  // indexed
      for (size_t i = 0; i < n; ++i, px += 4) {
        unsigned index = data[i];
        if (int(index) >= palette_count || !palette) {
          out = RgbaImage{};
          return "pixel " + std::to_string(i) + " names colour " + std::to_string(index) + " of a palette of " +
                 std::to_string(palette_count);
        }
        uint8_t const* bgr = palette + 3 * index;
        px[0] = bgr[2];
        px[1] = bgr[1];
        px[2] = bgr[0];
        px[3] = 255;
      }
      break;
  }
  return {};
}
