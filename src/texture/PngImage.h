#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// A picture as PNG files hold it: grey, grey and alpha, RGB or RGBA, with 8- or 16-bit samples,
// and the text chunks that travel with it (a heightmap keeps its elevation range there). Textures
// go to and from PNG through it, and terrains are drawn as pictures through it.
struct PngImage {
  uint32_t width = 0;
  uint32_t height = 0;
  uint8_t channels = 4;   // 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA
  uint8_t bit_depth = 8;  // 8 or 16
  // Rows top to bottom, tightly packed; 16-bit samples are uint16_t in host order.
  std::vector<uint8_t> pixels;
  // tEXt chunks: keyword, text.
  std::vector<std::pair<std::string, std::string>> texts;

  size_t row_bytes() const { return size_t(width) * channels * (bit_depth / 8); }

  // Reads any PNG: palettes, transparency chunks, low bit depths and interlacing are expanded.
  // With `want` 0 the channels and depth stay as close to the file's as they can (a palette gives
  // RGB or RGBA, fewer than 8 bits give 8); with `want` 4 every image becomes 8-bit RGBA. A picture
  // of more than `max_pixels` pixels is refused before anything is allocated for it. Returns ""
  // on success, otherwise the reason, which the caller turns into its own result code.
  static std::string decode(uint8_t const* data, size_t size, PngImage& out, int want = 0,
                            uint64_t max_pixels = uint64_t(1) << 28);

  // Writes the image with its texts; "" on success, otherwise the reason. `level` is the deflate
  // effort, 1 (fastest) to 9 (smallest); -1 keeps libpng's default.
  std::string encode(std::vector<uint8_t>& out, int level = -1) const;
};
