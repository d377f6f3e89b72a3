#pragma once
#include <cstdint>
#include <memory>

// One mipmap of a texture. The stored bytes point into the texture's input buffer; compressed
// mipmaps are expanded into storage of their own, raw ones are used in place.
class PaxMipmap {
 public:
  uint16_t width = 0;  // without the compression bit
  uint16_t height = 0;
  bool lzo = false;      // width's top bit: the data are LZO-compressed
  bool special = false;  // indexed pixels coded with LZSS, announced by the 1234 x 8765 marker
  uint64_t offset = 0;   // where the mipmap starts in the file
  uint8_t const* stored = nullptr;
  uint32_t stored_size = 0;
  uint8_t const* pixels = nullptr;
  uint64_t pixel_size = 0;
  uint64_t expanded_size = 0;  // what width, height and the pixel type give
  bool modified = false;       // new pixels: the writer must code them afresh

  uint8_t* mm_Own(uint64_t size);  // storage for expanded pixels (not zeroed)
  void mm_SetPixels(uint8_t const* data, uint64_t size);  // copies them and marks the mipmap modified

 private:
  std::unique_ptr<uint8_t[]> _owned;
};
