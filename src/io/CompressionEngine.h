#pragma once
#include <cstdint>
#include <memory>

#include "io/CompressType.h"

// One per tool that compresses or expands: owns the output buffer of the last compression and the
// LZO work memory.
class CompressionEngine {
 public:
  CompressionEngine();
  ~CompressionEngine();
  CompressionEngine(CompressionEngine const&) = delete;
  CompressionEngine& operator=(CompressionEngine const&) = delete;

  uint8_t* cmp_GetOutput() const;
  uint8_t* cmp_TakeOutput();  // the caller owns the buffer (delete[]) and the engine forgets it

 private:
  friend int64_t cmp_Expand(CompressionEngine&, void const*, uint64_t, void*, uint64_t, CompressType);
  friend int64_t cmp_Compress(CompressionEngine&, void const*, uint64_t, CompressType);
  struct Impl;
  std::unique_ptr<Impl> _impl;
};

// Expands one block whose expanded size is known and returns the source bytes consumed (for LZSS
// including its 4-byte checksum). `source_size` bounds every read. Throws "lzss compression error",
// "lzo compression error" or "unknown compression type"; a run-length failure returns -1.
int64_t cmp_Expand(CompressionEngine& engine, void const* source, uint64_t source_size, void* dest,
                   uint64_t expanded_size, CompressType type);

// Compresses into the engine's buffer; returns the compressed size, or -1.
int64_t cmp_Compress(CompressionEngine& engine, void const* source, uint64_t size, CompressType type);

// The most bytes that `source_size` bytes coded with `type` can expand to: an expanded size above
// this cannot be honest, so callers check it before allocating for a size read from a file.
uint64_t cmp_ExpandLimit(uint64_t source_size, CompressType type);
