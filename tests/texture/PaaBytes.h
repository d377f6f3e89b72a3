#pragma once
// Composing texture and index files byte by byte, so that each test states the bytes it feeds.
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

#include "io/CompressTestUtil.h"

namespace paa_test {
using compress_test::Bytes;
using compress_test::cat;
using compress_test::packed;
inline Bytes u24(uint32_t v) { return compress_test::le24(v); }
inline Bytes u32(uint32_t v) { return compress_test::le32(v); }

inline void put(Bytes& b, std::initializer_list<Bytes> parts) {
  for (auto const& p : parts) b.insert(b.end(), p.begin(), p.end());
}
inline Bytes u16(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8)}; }
inline Bytes text(std::string const& s) { return Bytes(s.begin(), s.end()); }
inline Bytes tagg(char const* stored, Bytes const& payload) {
  Bytes b = text(std::string("GGAT") + stored);
  put(b, {u32(uint32_t(payload.size())), payload});
  return b;
}
inline Bytes offsets(std::initializer_list<uint32_t> list) {
  Bytes p;
  for (uint32_t v : list) put(p, {u32(v)});
  p.resize(64, 0);
  return tagg("SFFO", p);
}
// A raw DXT1 mipmap of 4 x 4 pixels: one 8-byte block.
inline Bytes dxt1_4x4(uint8_t fill = 0x11) {
  Bytes b;
  put(b, {u16(4), u16(4), u24(8), Bytes(8, fill)});
  return b;
}
inline Bytes ending() { return Bytes(6, 0); }

inline std::string corpus(std::string const& sub) { return std::string(VENDRAK_CORPUS) + "/" + sub; }
inline bool have_corpus() { return std::filesystem::is_directory(VENDRAK_CORPUS); }

// Every file below a corpus folder whose extension is one of `exts` (lower case, with the dot).
inline std::vector<std::string> corpus_files(std::string const& sub, std::initializer_list<char const*> exts) {
  std::vector<std::string> out;
  if (!std::filesystem::is_directory(corpus(sub))) return out;
  for (auto const& e : std::filesystem::recursive_directory_iterator(corpus(sub))) {
    std::string ext = e.path().extension().string();
    for (auto& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
    for (char const* want : exts)
      if (e.is_regular_file() && ext == want) out.push_back(e.path().string());
  }
  return out;
}
}  // namespace paa_test
