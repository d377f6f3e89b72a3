// Hostile blocks for every expander. The first byte picks the codec (low two bits: LZO, LZSS,
// signed LZSS, run-length) and the expected size (the other six bits; 48 and up take the size from
// the next two bytes). Source and destination are exactly sized heap copies so that the sanitizer
// sees any access past either end. A block that expands must survive a compress-expand round trip.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "io/CompressionEngine.h"

namespace {
CompressionEngine& engine() {
  static CompressionEngine e;
  return e;
}

int64_t expand(uint8_t const* data, size_t size, uint8_t* dest, uint64_t expanded, CompressType type, bool& thrown) {
  thrown = false;
  try {
    return cmp_Expand(engine(), data, size, dest, expanded, type);
  } catch (char const*) {
    thrown = true;
    return -1;
  }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  if (size < 1) return 0;
  static constexpr CompressType kTypes[] = {CT_LZO, CT_LZSS, CT_LZSS_SIGNED, CT_RLE};
  CompressType const type = kTypes[data[0] & 3];
  uint64_t expanded = data[0] >> 2;
  size_t header = 1;
  if (expanded >= 48) {
    if (size < 3) return 0;
    expanded = data[1] | uint64_t(data[2]) << 8;
    header = 3;
  }
  size_t const stream_size = size - header;
  auto stream = std::make_unique<uint8_t[]>(stream_size);
  if (stream_size) std::memcpy(stream.get(), data + header, stream_size);
  auto out = std::make_unique<uint8_t[]>(expanded);

  bool thrown;
  int64_t consumed = expand(stream.get(), stream_size, out.get(), expanded, type, thrown);
  if (consumed < 0) return 0;
  if (uint64_t(consumed) > stream_size) std::abort();  // claims bytes it was never given
  if (expanded > 8192) return 0;  // the level-999 compressor is slow; small blocks suffice

  int64_t packed = cmp_Compress(engine(), out.get(), expanded, type);
  if (packed < 0) std::abort();
  auto again = std::make_unique<uint8_t[]>(expanded);
  auto repacked = std::make_unique<uint8_t[]>(uint64_t(packed));
  std::memcpy(repacked.get(), engine().cmp_GetOutput(), uint64_t(packed));
  if (expand(repacked.get(), uint64_t(packed), again.get(), expanded, type, thrown) != packed) std::abort();
  if (expanded && std::memcmp(again.get(), out.get(), expanded) != 0) std::abort();
  return 0;
}
