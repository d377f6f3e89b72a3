#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "texture/RgbaImage.h"

// The pictures textures are painted in: PNG (through libpng, any colour type and bit depth,
// palettes and transparency chunks included) and TGA (through stb_image, uncompressed, run-length
// and colour-mapped), read into 8-bit RGBA; and PNG written from RGBA. Every declared size is
// checked against the bytes that could hold it before anything is allocated for the pixels.
class ImageFile {
 public:
  enum Kind { UNKNOWN, PNG, TGA };
  // PNG by its signature; TGA by a header that only a TGA file can have.
  static Kind kind_of(uint8_t const* data, size_t size);

  // Reads a picture. A picture of more than `max_pixels` pixels is refused before its pixels are
  // allocated, and says so in `too_large`. Returns "" or the reason, in words a user can act on.
  static std::string read(uint8_t const* data, size_t size, RgbaImage& out, uint64_t max_pixels,
                          bool* too_large = nullptr);

  // Writes a PNG of 1 (grey), 2 (grey and alpha), 3 (RGB) or 4 (RGBA) channels; grey takes red.
  static std::string write_png(RgbaImage const& image, int channels, std::vector<uint8_t>& out);

 private:
  static std::string _read_png(uint8_t const* data, size_t size, RgbaImage& out, uint64_t max_pixels, bool& large);
  static std::string _read_tga(uint8_t const* data, size_t size, RgbaImage& out, uint64_t max_pixels, bool& large);
};
