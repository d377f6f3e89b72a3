#pragma once
#include <memory>
#include <vector>

#include "io/BisFileIO_test_util.h"
#include "io/CompressionEngine.h"

namespace compress_test {
using Bytes = std::vector<uint8_t>;

inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes r;
  for (auto const& p : parts) r.insert(r.end(), p.begin(), p.end());
  return r;
}
inline Bytes le32(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}; }
inline Bytes le24(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16)}; }
inline Bytes read_file(std::string const& name) {
  std::string s = get_file(name);
  return Bytes(s.begin(), s.end());
}

inline Bytes packed(Bytes const& data, CompressType type) {
  CompressionEngine engine;
  int64_t n = cmp_Compress(engine, data.data(), data.size(), type);
  EXPECT_GE(n, 0);
  return n < 0 ? Bytes{} : Bytes(engine.cmp_GetOutput(), engine.cmp_GetOutput() + n);
}

struct Expanded {
  int64_t result = -1;
  Bytes out;
  std::string message;  // of a thrown failure, whose result is then -1
};

// Expands from and into exactly sized heap copies, so that the address sanitizer sees any access
// past either end.
inline Expanded expand_exact(Bytes const& stream, uint64_t size, CompressType type) {
  auto src = std::make_unique<uint8_t[]>(stream.size()), dst = std::make_unique<uint8_t[]>(size);
  std::copy(stream.begin(), stream.end(), src.get());
  CompressionEngine engine;
  Expanded e;
  try {
    e.result = cmp_Expand(engine, src.get(), stream.size(), dst.get(), size, type);
  } catch (char const* m) {
    e.message = m;
  }
  if (e.result >= 0) e.out.assign(dst.get(), dst.get() + size);
  return e;
}
}  // namespace compress_test
