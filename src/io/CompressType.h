#pragma once
#include <cstdint>

// The bit set that chooses how a block or an array is coded.
using CompressType = uint32_t;

enum : CompressType {
  CT_LZO = 1,
  CT_LZSS = 2,          // checksum tried as an unsigned byte sum first
  CT_LZSS_SIGNED = 4,   // checksum tried (and written) as a signed byte sum first
  CT_RLE = 8,
  CT_TRIBYTE_SIZE = 0x10,
  CT_WRITE_COUNT = 0x20,
  CT_GRID = 0x40,
  CT_FILL_BYTE = 0x80,
  CT_FLAG_BYTE = 0x800,
  CT_FORCE_RECOMPRESS = 0x1000,
  CT_TERRAIN = 0x40000,
  CT_METHOD_MASK = 0x4F,
};
