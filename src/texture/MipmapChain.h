#pragma once
#include <cstdint>
#include <vector>

#include "texture/RgbaImage.h"

// Scales pictures and builds a texture's mipmaps, each level half the one above. Pixels are
// weighed by a Lanczos window three lobes wide, stretched to the reduction so that detail finer
// than the smaller picture can hold is averaged away instead of aliasing; edges are clamped.
// Colour maps are filtered in linear light (sRGB decoded first and encoded again after), so that
// a checkerboard of black and white shrinks to the grey the eye sees; every other map is filtered
// on its stored values. Colour is weighed by alpha, so that what is painted under transparent
// pixels does not bleed into visible ones; where nothing at all is visible the plain average is
// kept. Rows are filtered in bands on every core.
class MipmapChain {
 public:
  MipmapChain(bool colour, unsigned threads) : _colour(colour), _threads(threads) {}

  RgbaImage mc_Resize(RgbaImage const& in, uint32_t width, uint32_t height) const;

  // `top` as level 0, then each level half the one above (a side of 1 stays 1), down to 1 x 1, or
  // for DXT textures down to the level whose shorter side is one 4-pixel block; at most
  // `max_levels` levels.
  std::vector<RgbaImage> mc_Build(RgbaImage top, bool dxt, unsigned max_levels) const;

  // The power of two nearest to `n` (the larger on a tie), at most `limit`.
  static uint32_t mc_NearestPowerOfTwo(uint32_t n, uint32_t limit);
  static bool mc_IsPowerOfTwo(uint32_t n) { return n && !(n & (n - 1)); }

 private:
  bool _colour;
  unsigned _threads;
};
