#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

// A picture as textures are made from and turned into: 8-bit red, green, blue and alpha per pixel,
// rows top to bottom, tightly packed.
struct RgbaImage {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint8_t> pixels;

  size_t pixel_count() const { return size_t(width) * height; }
  uint8_t* at(uint32_t x, uint32_t y) { return pixels.data() + (size_t(y) * width + x) * 4; }
  uint8_t const* at(uint32_t x, uint32_t y) const { return pixels.data() + (size_t(y) * width + x) * 4; }
  bool opaque() const {
    for (size_t i = 3; i < pixels.size(); i += 4)
      if (pixels[i] != 255) return false;
    return true;
  }
};
