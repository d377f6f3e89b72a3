// Decoding stored pixels: every type against values worked out here from the stored bits with
// real-number arithmetic, on made blocks and on the corpus.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "texture/Lorvix.h"
#include "texture/PaaBytes.h"
#include "texture/PixelDecoder.h"

using namespace paa_test;

namespace {
using Pixel = std::array<int, 4>;

int near(double v) { return int(std::lround(v)); }
unsigned bits(uint8_t const* p, unsigned first, unsigned count) {
  unsigned v = 0;
  for (unsigned i = 0; i < count; ++i) v |= unsigned(p[(first + i) / 8] >> ((first + i) % 8) & 1) << i;
  return v;
}

// Pixel i (0-15) of a DXT block, by the textbook definition of each format.
Pixel dxt_pixel(int type, uint8_t const* block, int i) {
  bool const dxt1 = type == Lorvix::PAX_DXT1;
  uint8_t const* c = dxt1 ? block : block + 8;
  unsigned c0 = bits(c, 0, 16), c1 = bits(c, 16, 16);
  // End points widened to 8 bits by repeating their top bits.
  auto widen = [](unsigned v, unsigned n) { return double(v << (8 - n) | v >> (2 * n - 8)); };
  double e0[3] = {widen(bits(c, 11, 5), 5), widen(bits(c, 5, 6), 6), widen(bits(c, 0, 5), 5)};
  double e1[3] = {widen(bits(c, 27, 5), 5), widen(bits(c, 21, 6), 6), widen(bits(c, 16, 5), 5)};
  unsigned index = bits(c, 32 + 2 * i, 2);
  Pixel p{0, 0, 0, 255};
  bool three = dxt1 && c0 <= c1;
  if (three && index == 3) return {0, 0, 0, 0};
  double w1 = three ? std::array<double, 4>{0, 1, 0.5, 0}[index] : std::array<double, 4>{0, 1, 1 / 3.0, 2 / 3.0}[index];
  for (int k = 0; k < 3; ++k) p[k] = near(e0[k] * (1 - w1) + e1[k] * w1);
  if (type == Lorvix::PAX_DXT2 || type == Lorvix::PAX_DXT3) p[3] = int(bits(block, 4 * i, 4)) * 17;
  if (type == Lorvix::PAX_DXT4 || type == Lorvix::PAX_DXT5) {
    double a0 = block[0], a1 = block[1];
    unsigned k = bits(block, 16 + 3 * i, 3);
    if (k < 2) p[3] = int(k ? a1 : a0);
    else if (a0 > a1) p[3] = near(a0 + (a1 - a0) * (k - 1) / 7.0);
    else p[3] = k == 6 ? 0 : k == 7 ? 255 : near(a0 + (a1 - a0) * (k - 1) / 5.0);
  }
  if (type == Lorvix::PAX_DXT2 || type == Lorvix::PAX_DXT4)
    for (int k = 0; k < 3; ++k) p[k] = p[3] ? std::min(255, near(p[k] * 255.0 / p[3])) : 0;
  return p;
}

Pixel at(RgbaImage const& img, uint32_t x, uint32_t y) {
  uint8_t const* p = img.at(x, y);
  return {p[0], p[1], p[2], p[3]};
}

// Every pixel of a DXT mipmap against the reference.
void expect_dxt(int type, uint32_t w, uint32_t h, uint8_t const* blocks, RgbaImage const& got) {
  size_t const size = type == Lorvix::PAX_DXT1 ? 8 : 16;
  for (uint32_t y = 0; y < h; ++y)
    for (uint32_t x = 0; x < w; ++x) {
      uint8_t const* block = blocks + ((y / 4) * ((w + 3) / 4) + x / 4) * size;
      ASSERT_EQ(at(got, x, y), dxt_pixel(type, block, int((y % 4) * 4 + x % 4))) << x << "," << y;
    }
}
}  // namespace

TEST(PixelDecoder, RandomDxtBlocksOfEveryTypeAndMode) {
  std::mt19937 rng(11);
  for (int type = Lorvix::PAX_DXT1; type <= Lorvix::PAX_DXT5; ++type) {
    SCOPED_TRACE(Lorvix::pax_GetTypeStr(type));
    // 6 x 6: blocks that hang over both edges. Random end points take both orderings.
    Bytes blocks(4 * (type == Lorvix::PAX_DXT1 ? 8 : 16));
    for (int round = 0; round < 50; ++round) {
      for (auto& b : blocks) b = uint8_t(rng());
      RgbaImage img;
      ASSERT_EQ(PixelDecoder::decode(type, 6, 6, blocks.data(), blocks.size(), nullptr, 0, img), "");
      expect_dxt(type, 6, 6, blocks.data(), img);
    }
  }
}

TEST(PixelDecoder, SixteenAndThirtyTwoBitAndIndexedPixels) {
  uint8_t const palette[6] = {10, 20, 30, 40, 50, 60};  // blue, green, red
  struct Case {
    char const* name;
    int type;
    Bytes stored;
    Pixel want;
  } cases[] = {
      {"ARGB4444 times 17", Lorvix::PAX_RGB4, u16(0xF4A1), {4 * 17, 10 * 17, 17, 255}},
      {"ARGB1555 opaque, top bits repeated", Lorvix::PAX_RGB5, u16(0x8000 | 3 << 10 | 31 << 5 | 16),
       {0b00011000 | 0b000, 255, 0b10000000 | 0b100, 255}},
      {"ARGB1555 clear", Lorvix::PAX_RGB5, u16(0x7FFF), {255, 255, 255, 0}},
      {"ARGB8888 blue green red alpha", Lorvix::PAX_RGB8, Bytes{1, 2, 3, 4}, {3, 2, 1, 4}},
      {"AI88 grey then alpha", Lorvix::PAX_GREY, Bytes{0x60, 0x90}, {0x60, 0x60, 0x60, 0x90}},
      {"indexed", Lorvix::PAX_INDX, Bytes{1}, {60, 50, 40, 255}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    RgbaImage img;
    ASSERT_EQ(PixelDecoder::decode(c.type, 1, 1, c.stored.data(), c.stored.size(), palette, 2, img), "");
    EXPECT_EQ(at(img, 0, 0), c.want);
  }
  RgbaImage img;
  Bytes beyond{2}, short_dxt(8);
  EXPECT_NE(PixelDecoder::decode(Lorvix::PAX_INDX, 1, 1, beyond.data(), 1, palette, 2, img), "");
  EXPECT_NE(PixelDecoder::decode(Lorvix::PAX_DXT1, 8, 4, short_dxt.data(), 8, nullptr, 0, img), "");
  EXPECT_TRUE(img.pixels.empty());
}

// Every mipmap of every corpus texture decodes; DXT mipmaps match the reference pixel for pixel,
// and the picture written has the channels its type calls for.
TEST(PixelDecoder, EveryCorpusMipmap) {
  if (!have_corpus()) GTEST_SKIP() << "no corpus";
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  int checked = 0;
  for (auto const& f : corpus_files("paa", {".paa", ".pac"})) {
    if (f.find("malformed") != std::string::npos) continue;
    SCOPED_TRACE(f);
    ASSERT_EQ(t.pax_Open(f.c_str(), capture_msg), 0);
    for (uint32_t m = 0; m < t.pax_GetMipmapCount(); ++m) {
      PaxMipmap const* mm = t.pax_GetMipmap(m);
      RgbaImage img;
      ASSERT_EQ(t.pax_ToRgba(m, img), 0) << g_errs;
      ASSERT_EQ(img.pixels.size(), size_t(mm->width) * mm->height * 4);
      if (Lorvix::pax_IsDxt(t.pax_GetType()) && mm->width * mm->height <= 512 * 512 && mm->width >= 4 && mm->height >= 4) {
        expect_dxt(t.pax_GetType(), mm->width, mm->height, mm->pixels, img);
        ++checked;
      }
    }
    std::vector<uint8_t> png;
    ASSERT_EQ(t.pax_ToPng(0, png), 0);
    EXPECT_EQ(t.pax_ToPng(t.pax_GetMipmapCount(), png), PAXERR_NO_SUCH_MIPMAP);
  }
  EXPECT_GT(checked, 50);
}
