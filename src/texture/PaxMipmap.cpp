#include "texture/PaxMipmap.h"

#include <cstring>
#include <new>

#include "core/Generic_Errors.h"

uint8_t* PaxMipmap::mm_Own(uint64_t size) {
  // Expanded pixels are overwritten whole, so the storage is not cleared first: clearing a
  // 16 MiB mipmap costs as much as expanding it.
  uint8_t* p = new (std::nothrow) uint8_t[size ? size : 1];
  if (!p) throw GE_NO_MEMORY;
  _owned.reset(p);
  pixels = p;
  pixel_size = size;
  return p;
}

void PaxMipmap::mm_SetPixels(uint8_t const* data, uint64_t size) {
  uint8_t* p = mm_Own(size);
  if (size) std::memcpy(p, data, size);
  modified = true;
  stored = nullptr;
  stored_size = 0;
}
