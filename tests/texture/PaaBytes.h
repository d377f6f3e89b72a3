#pragma once
// Composing texture and index files byte by byte, so that each test states the bytes it feeds.
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

#include <cmath>

#include "core/BisDLL.h"
#include "io/CompressTestUtil.h"
#include "texture/Lorvix.h"
#include "texture/PngImage.h"
#include "texture/RgbaImage.h"

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
// ---- pictures ---------------------------------------------------------------

// A mipmap of a corpus texture as RGBA (empty when it does not open).
inline RgbaImage corpus_pixels(std::string const& file, uint32_t mip = 0, int* type = nullptr) {
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  RgbaImage img;
  if (t.pax_Open(corpus(file).c_str(), nullptr) == 0) t.pax_ToRgba(mip, img);
  if (type) *type = t.pax_GetType();
  return img;
}

// Peak signal to noise over every channel, in dB (999 when equal).
inline double psnr(RgbaImage const& a, RgbaImage const& b) {
  if (a.pixels.size() != b.pixels.size() || a.pixels.empty()) return 0;
  double se = 0;
  for (size_t i = 0; i < a.pixels.size(); ++i) se += std::pow(double(a.pixels[i]) - b.pixels[i], 2);
  return se == 0 ? 999 : 10 * std::log10(255.0 * 255.0 * double(a.pixels.size()) / se);
}

// A PNG of 1-4 channels of 8 or 16 bits; `samples` in host order, row after row.
inline Bytes png_file(uint32_t w, uint32_t h, uint8_t channels, uint8_t depth, Bytes const& samples) {
  PngImage png;
  png.width = w, png.height = h, png.channels = channels, png.bit_depth = depth, png.pixels = samples;
  Bytes out;
  png.encode(out);
  return out;
}

// An uncompressed or run-length TGA of 24- or 32-bit pixels stored blue, green, red (alpha); rows
// bottom up unless `top_down`. `data` is the pixel data as stored (packets for run-length).
inline Bytes tga_file(uint16_t w, uint16_t h, uint8_t bits, bool rle, bool top_down, Bytes const& data) {
  Bytes b = {0, 0, uint8_t(rle ? 10 : 2), 0, 0, 0, 0, 0, 0, 0, 0, 0};
  put(b, {u16(w), u16(h), Bytes{bits, uint8_t(top_down ? 0x20 : 0)}, data});
  return b;
}
}  // namespace paa_test
