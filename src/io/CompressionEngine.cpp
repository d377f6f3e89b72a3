#include "io/CompressionEngine.h"

#include <lzo/lzo1x.h>

#include <new>

#include "core/Generic_Errors.h"
#include "io/LzoCodec.h"
#include "io/LzssCodec.h"
#include "io/RleCodec.h"

struct CompressionEngine::Impl {
  uint8_t* buffer = nullptr;
  LzoCodec lzo;
  ~Impl() { delete[] buffer; }
};

CompressionEngine::CompressionEngine() : _impl(std::make_unique<Impl>()) { lzo_init(); }

CompressionEngine::~CompressionEngine() = default;

uint8_t* CompressionEngine::cmp_GetOutput() const { return _impl->buffer; }

uint8_t* CompressionEngine::cmp_TakeOutput() {
  uint8_t* b = _impl->buffer;
  _impl->buffer = nullptr;
  return b;
}

int64_t cmp_Expand(CompressionEngine& engine, void const* source, uint64_t source_size, void* dest,
                   uint64_t expanded_size, CompressType type) {
  (void)engine;  // expansion keeps no state; the engine is the caller's handle on the codecs
  auto const* s = static_cast<uint8_t const*>(source);
  auto* d = static_cast<uint8_t*>(dest);
  auto lzss = [&](bool signed_first) {
    int64_t r = LzssCodec::lzss_Expand(s, source_size, d, expanded_size, signed_first);
    if (r < 0) throw "lzss compression error";
    return r;
  };
  // With several method bits the first of run-length, signed LZSS, LZO, LZSS wins.
  if (type & CT_RLE) return RleCodec::rle_Expand(s, source_size, d, expanded_size);
  if (type & CT_LZSS_SIGNED) return lzss(true);
  if (type & CT_LZO) {
    int64_t r = LzoCodec::lzo_Expand(s, source_size, d, expanded_size);
    if (r < 0) throw "lzo compression error";
    return r;
  }
  if (type & CT_LZSS) return lzss(false);
  throw "unknown compression type";
}

int64_t cmp_Compress(CompressionEngine& engine, void const* source, uint64_t size, CompressType type) {
  auto const* s = static_cast<uint8_t const*>(source);
  CompressionEngine::Impl& e = *engine._impl;
  delete[] e.buffer;
  e.buffer = nullptr;
  if (size > (UINT64_MAX - 4) / 2) throw GE_NO_MEMORY;
  uint64_t capacity = 2 * size + 4;
  // Tiny blocks can come out a few bytes longer than twice their size under LZO.
  if (LzoCodec::lzo_MaxCompressedSize(size) > capacity) capacity = LzoCodec::lzo_MaxCompressedSize(size);
  e.buffer = new (std::nothrow) uint8_t[capacity];
  if (!e.buffer) throw GE_NO_MEMORY;
  if (type & CT_RLE) return static_cast<int64_t>(RleCodec::rle_Compress(s, size, e.buffer));
  if (type & CT_LZO) return e.lzo.lzo_Compress(s, size, e.buffer);
  if (type & (CT_LZSS | CT_LZSS_SIGNED))
    return static_cast<int64_t>(LzssCodec::lzss_Compress(s, size, e.buffer, !(type & CT_LZSS)));
  return -1;
}

uint64_t cmp_ExpandLimit(uint64_t source_size, CompressType type) {
  auto scaled = [&](uint64_t factor, uint64_t slack) {
    return source_size > (UINT64_MAX - slack) / factor ? UINT64_MAX : source_size * factor + slack;
  };
  // Best cases: LZSS 8 references of 18 bytes per 17-byte group; run-length 128 bytes from 2;
  // an LZO match field gains 255 bytes of length per extra zero byte.
  if (type & CT_RLE) return scaled(64, 128);
  if (type & CT_LZSS_SIGNED) return scaled(9, 144);
  if (type & CT_LZO) return scaled(256, 512);
  if (type & CT_LZSS) return scaled(9, 144);
  return source_size;
}
