#pragma once
#include <cstdint>
#include <vector>

#include "texture/RgbaImage.h"

// Turns 8-bit RGBA into the stored pixels of a texture type. DXT1 and DXT5 blocks come from
// libsquish: its iterative cluster fit (the slowest and closest fit it has) unless `fast` asks
// for its range fit, with every channel weighed alike, since the same coder serves normal and
// specular maps; blocks are coded on every core. DXT1 pixels of alpha below one half become the
// block's transparent black. The 16- and 32-bit types round each channel to its nearest step,
// and AI88 takes the luma of the colour.
class PixelEncoder {
 public:
  struct Options {
    bool fast = false;
    unsigned threads = 0;  // 0: one per core
  };
  // Returns false for a type this encoder does not write (DXT2-4, indexed).
  static bool encode(int type, RgbaImage const& image, Options const& options, std::vector<uint8_t>& out);
  static bool writes(int type);
};
