#pragma once
#include <cstdint>

// LZSS with a 4095-byte window and a trailing 32-bit byte sum, the coding of packed archive entries
// and of the older model and terrain arrays. Stateless: every call works on whole memory blocks.
class LzssCodec {
 public:
  // Expands exactly `expanded_size` bytes into `dest`, reading no more than `source_size` bytes.
  // Returns the source bytes consumed including the 4-byte checksum; -1 for a zero distance or a
  // stream that ends early; minus the bytes consumed when the checksum matches neither byte sum.
  // `signed_first` only chooses which sum is tried first.
  static int64_t lzss_Expand(uint8_t const* source, uint64_t source_size, uint8_t* dest,
                             uint64_t expanded_size, bool signed_first);

  // Compresses `size` bytes into `dest`, which holds at least lzss_MaxCompressedSize(size) bytes,
  // and returns the bytes written. `signed_sum` chooses the checksum written.
  static uint64_t lzss_Compress(uint8_t const* source, uint64_t size, uint8_t* dest, bool signed_sum);

  static uint64_t lzss_MaxCompressedSize(uint64_t size) { return size + (size + 7) / 8 + 4; }

  // The 32-bit wrapping byte sum, each byte taken as 0..255 or as -128..127.
  static uint32_t lzss_Checksum(uint8_t const* data, uint64_t size, bool signed_sum);

  static constexpr uint32_t kWindow = 4095;  // largest distance a reference can hold
  static constexpr uint32_t kMinMatch = 3;
  static constexpr uint32_t kMaxMatch = 18;
};
