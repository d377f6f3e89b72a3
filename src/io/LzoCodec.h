#pragma once
#include <cstdint>
#include <memory>

// LZO1X blocks: compression through the LZO library's best (level 999) compressor, expansion by
// our own decoder, which must report how many source bytes a block took because the formats store
// blocks back to back without their compressed length.
class LzoCodec {
 public:
  LzoCodec();
  ~LzoCodec();
  LzoCodec(LzoCodec const&) = delete;
  LzoCodec& operator=(LzoCodec const&) = delete;

  // Compresses into `dest`, which holds at least lzo_MaxCompressedSize(size) bytes. Returns the
  // compressed size, or -1 when the library fails. Each call gets a fresh work area.
  int64_t lzo_Compress(uint8_t const* source, uint64_t size, uint8_t* dest);

  // Expands exactly `expanded_size` bytes, reading at most `source_size`. Returns the source bytes
  // consumed up to and including the end-of-stream code, or -1 for a corrupt stream, a stream that
  // would write past `expanded_size`, reach before the output, read past the source, or end short.
  static int64_t lzo_Expand(uint8_t const* source, uint64_t source_size, uint8_t* dest,
                            uint64_t expanded_size);

  static uint64_t lzo_MaxCompressedSize(uint64_t size) { return size + size / 16 + 64 + 3; }

 private:
  std::unique_ptr<uint8_t[]> _work;
};
