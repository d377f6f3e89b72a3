#pragma once
#include <cstdint>
#include <string>

#include "texture/RgbaImage.h"

// Turns the stored pixels of one mipmap into 8-bit RGBA, exactly as each pixel format defines them:
// DXT colours interpolated from their 5:6:5 end points and rounded to the nearest step, premultiplied
// DXT2 and DXT4 divided back by their alpha, 4-bit channels times 17, 5-bit channels widened by
// repeating their top bits, grey-and-alpha spread to red, green and blue, palette indices looked up.
class PixelDecoder {
 public:
  // `type` is a texture type word (Lorvix::PaxType); indexed and untyped textures need their palette
  // (`palette_count` triplets stored blue, green, red). Returns "" or the reason the pixels cannot be
  // decoded (too few bytes for the size, an index beyond the palette, an unknown type).
  static std::string decode(int type, uint32_t width, uint32_t height, uint8_t const* data, uint64_t size,
                            uint8_t const* palette, int palette_count, RgbaImage& out);

  // Bytes a mipmap of this size needs in the type (DXT: whole 4 x 4 blocks); 0 for an unknown type.
  static uint64_t stored_bytes(int type, uint32_t width, uint32_t height);

  // One block of 4 x 4 pixels into 64 RGBA bytes, rows of four. A DXT1 colour block whose first end
  // point is not above the second has three colours and a transparent black; DXT2-5 colour blocks
  // always have four.
  static void colour_block(uint8_t const* block, bool dxt1, uint8_t* rgba);
  static void alpha_block_explicit(uint8_t const* block, uint8_t* rgba);      // DXT2, DXT3
  static void alpha_block_interpolated(uint8_t const* block, uint8_t* rgba);  // DXT4, DXT5
};
