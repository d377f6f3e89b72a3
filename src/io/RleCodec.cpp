#include "io/RleCodec.h"

#include <cstring>

namespace {
constexpr uint64_t kPiece = 128;  // the most bytes one control byte can announce
}

int64_t RleCodec::rle_Expand(uint8_t const* source, uint64_t source_size, uint8_t* dest,
                             uint64_t expanded_size) {
  uint64_t in = 0, out = 0;
  while (out < expanded_size) {
    if (in >= source_size) return -1;
    unsigned c = source[in++];
    if (c < 0x80) {
      uint64_t n = c + 1;
      if (n > expanded_size - out || n > source_size - in) return -1;
      std::memcpy(dest + out, source + in, n);
      in += n;
      out += n;
    } else {
      uint64_t n = c - 0x80 + 1;
      if (n > expanded_size - out || in >= source_size) return -1;
      std::memset(dest + out, source[in++], n);
      out += n;
    }
  }
  return static_cast<int64_t>(in);
}

uint64_t RleCodec::rle_Compress(uint8_t const* source, uint64_t size, uint8_t* dest) {
  uint64_t o = 0;
  uint64_t literal_from = 0;
  auto flush_literals = [&](uint64_t end) {
    while (literal_from < end) {
      uint64_t n = end - literal_from < kPiece ? end - literal_from : kPiece;
      dest[o++] = uint8_t(n - 1);
      std::memcpy(dest + o, source + literal_from, n);
      o += n;
      literal_from += n;
    }
  };
  // Runs are looked for only before the final two bytes, which always go out as literals.
  uint64_t const limit = size >= 2 ? size - 2 : 0;
  uint64_t i = 0;
  while (i + 2 < limit) {
    uint8_t const b = source[i];
    if (source[i + 1] != b || source[i + 2] != b) {
      ++i;
      continue;
    }
    flush_literals(i);
    uint64_t j = i + 3;
    while (j < limit && source[j] == b) ++j;
    for (uint64_t run = j - i; run;) {
      uint64_t n = run < kPiece ? run : kPiece;
      dest[o++] = uint8_t(0x80 | (n - 1));
      dest[o++] = b;
      run -= n;
    }
    i = literal_from = j;
  }
  flush_literals(size);
  return o;
}
