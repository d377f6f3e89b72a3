#pragma once
#include <cstdint>

// The byte-oriented run-length code of indexed texture mipmaps: a control byte below 0x80 announces
// that many plus one literal bytes, from 0x80 up a run of one byte (control - 0x80 + 1 times).
class RleCodec {
 public:
  // Expands exactly `expanded_size` bytes reading at most `source_size`; returns the source bytes
  // consumed, or -1 when a control byte would overrun the output or the source ends early.
  static int64_t rle_Expand(uint8_t const* source, uint64_t source_size, uint8_t* dest,
                            uint64_t expanded_size);

  // Compresses into `dest` (at least rle_MaxCompressedSize(size) bytes); returns the bytes written.
  static uint64_t rle_Compress(uint8_t const* source, uint64_t size, uint8_t* dest);

  static uint64_t rle_MaxCompressedSize(uint64_t size) { return size + size / 128 + 2; }
};
