#include "texture/ImageFile.h"

#include <stb_image.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "texture/PngImage.h"

namespace {
uint16_t le16(uint8_t const* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t be32(uint8_t const* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

constexpr uint8_t kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
// Deflate expands a byte into at most about a thousand; a PNG that declares more pixel bytes than
// this many times its own size cannot hold them.
constexpr uint64_t kDeflateMostExpansion = 1032;

std::string size_text(uint64_t w, uint64_t h) { return std::to_string(w) + "x" + std::to_string(h); }

std::string too_many(uint64_t w, uint64_t h, uint64_t max_pixels) {
  return "a picture of " + size_text(w, h) + " pixels is larger than the " + std::to_string(max_pixels) +
         " pixels a texture is made from";
}

// The TGA header fields stb_image reads, checked the way its reader needs them.
struct TgaHeader {
  unsigned id_length, colour_map, image_type, map_start, map_length, map_bits, width, height, bits;
  bool indexed() const { return (image_type & 7) == 1; }
  bool rle() const { return image_type >= 8; }
  unsigned pixel_bytes() const { return (bits + 7) / 8; }
  unsigned entry_bytes() const { return (map_bits + 7) / 8; }
};

TgaHeader tga_header(uint8_t const* d) {
  return {d[0], d[1], d[2], le16(d + 3), le16(d + 5), d[7], le16(d + 12), le16(d + 14), d[16]};
}

bool tga_plausible(TgaHeader const& h) {
  auto one_of = [](unsigned v, std::initializer_list<unsigned> set) {
    for (unsigned s : set)
      if (v == s) return true;
    return false;
  };
  if (h.colour_map == 1)
    return one_of(h.image_type, {1, 9}) && one_of(h.map_bits, {8, 15, 16, 24, 32}) && one_of(h.bits, {8, 16});
  return h.colour_map == 0 && one_of(h.image_type, {2, 3, 10, 11}) && one_of(h.bits, {8, 15, 16, 24, 32});
}
}  // namespace

ImageFile::Kind ImageFile::kind_of(uint8_t const* data, size_t size) {
  if (size >= 8 && std::memcmp(data, kPngSignature, 8) == 0) return PNG;
  if (size >= 18 && tga_plausible(tga_header(data))) return TGA;
  return UNKNOWN;
}

std::string ImageFile::read(uint8_t const* data, size_t size, RgbaImage& out, uint64_t max_pixels, bool* too_large) {
  out = RgbaImage{};
  bool large = false;
  std::string why;
  switch (data ? kind_of(data, size) : UNKNOWN) {
    case PNG: why = _read_png(data, size, out, max_pixels, large); break;
    case TGA: why = _read_tga(data, size, out, max_pixels, large); break;
    default: why = "neither a PNG nor a TGA picture"; break;
  }
  if (too_large) *too_large = large;
  if (!why.empty()) out = RgbaImage{};
  return why;
}

std::string ImageFile::_read_png(uint8_t const* data, size_t size, RgbaImage& out, uint64_t max_pixels,
                                 bool& large) {
  // The header chunk comes first; from it, the bytes the pixels need once inflated.
  if (size < 33 || be32(data + 8) != 13 || std::memcmp(data + 12, "IHDR", 4) != 0)
    return "the PNG file ends or is damaged before its header";
  uint64_t w = be32(data + 16), h = be32(data + 20);
  unsigned depth = data[24], colour = data[25];
  if (!w || !h) return "the PNG picture has no pixels (" + size_text(w, h) + ")";
  if ((large = w * h > max_pixels)) return too_many(w, h, max_pixels);
  static unsigned const kChannels[7] = {1, 0, 3, 1, 2, 0, 4};
  unsigned channels = colour < 7 ? kChannels[colour] : 0;
  uint64_t raw = h * (1 + (w * channels * depth + 7) / 8);
  if (channels && raw > uint64_t(size) * kDeflateMostExpansion)
    return "the PNG declares " + size_text(w, h) + " pixels, more than its " + std::to_string(size) +
           " bytes can hold";

  PngImage png;
  std::string why = PngImage::decode(data, size, png, 0, max_pixels);
  if (!why.empty()) return why;
  out.width = png.width;
  out.height = png.height;
  out.pixels.resize(out.pixel_count() * 4);
  size_t const n = out.pixel_count();
  unsigned const c = png.channels;
  auto sample = [&](size_t i, unsigned k) -> uint8_t {
    if (png.bit_depth == 8) return png.pixels[i * c + k];
    uint16_t v;
    std::memcpy(&v, png.pixels.data() + 2 * (i * c + k), 2);
    return static_cast<uint8_t>((uint32_t(v) * 255 + 32767) / 65535);
  };
  for (size_t i = 0; i < n; ++i) {
    uint8_t* px = out.pixels.data() + 4 * i;
    if (c <= 2) {
      px[0] = px[1] = px[2] = sample(i, 0);
      px[3] = c == 2 ? sample(i, 1) : 255;
    } else {
      for (unsigned k = 0; k < 3; ++k) px[k] = sample(i, k);
      px[3] = c == 4 ? sample(i, 3) : 255;
    }
  }
  return {};
}

std::string ImageFile::_read_tga(uint8_t const* data, size_t size, RgbaImage& out, uint64_t max_pixels,
                                 bool& large) {
  TgaHeader h = tga_header(data);
  if (!h.width || !h.height) return "the TGA picture has no pixels (" + size_text(h.width, h.height) + ")";
  if ((large = uint64_t(h.width) * h.height > max_pixels)) return too_many(h.width, h.height, max_pixels);
  if (h.indexed() && (h.map_start != 0 || h.map_length == 0))
    return "the TGA colour map is empty or does not start at its first entry";
  // Every byte the pixels need must be there: a short file would otherwise read as black.
  uint64_t at = 18 + uint64_t(h.id_length) + (h.colour_map ? uint64_t(h.map_length) * h.entry_bytes() : 0);
  uint64_t const pixels = uint64_t(h.width) * h.height;
  bool complete = at <= size;
  if (complete && !h.rle()) {
    complete = pixels * h.pixel_bytes() <= size - at;
  } else if (complete) {
    for (uint64_t done = 0; done < pixels && complete;) {
      if (at >= size) {
        complete = false;
        break;
      }
      unsigned packet = data[at++];
      unsigned count = (packet & 0x7F) + 1;
      uint64_t bytes = uint64_t(packet & 0x80 ? 1 : count) * h.pixel_bytes();
      complete = bytes <= size - at;
      at += bytes;
      done += count;
    }
  }
  if (!complete) return "the TGA file ends before its " + size_text(h.width, h.height) + " pixels";

  int w = 0, ht = 0, comp = 0;
  std::unique_ptr<stbi_uc, void (*)(void*)> px(
      stbi_load_from_memory(data, static_cast<int>(std::min<size_t>(size, INT32_MAX)), &w, &ht, &comp, 4),
      stbi_image_free);
  if (!px) {
    char const* reason = stbi_failure_reason();
    return std::string("the TGA picture cannot be read: ") + (reason ? reason : "damaged");
  }
  if (uint32_t(w) != h.width || uint32_t(ht) != h.height) return "the TGA picture cannot be read: damaged header";
  out.width = h.width;
  out.height = h.height;
  out.pixels.assign(px.get(), px.get() + out.pixel_count() * 4);
  return {};
}

std::string ImageFile::write_png(RgbaImage const& image, int channels, std::vector<uint8_t>& out) {
  if (channels < 1 || channels > 4) return "a PNG holds 1 to 4 channels";
  if (image.pixels.size() != image.pixel_count() * 4) return "the pixels do not fill the picture";
  PngImage png;
  png.width = image.width;
  png.height = image.height;
  png.channels = static_cast<uint8_t>(channels);
  png.bit_depth = 8;
  png.pixels.resize(image.pixel_count() * unsigned(channels));
  uint8_t* to = png.pixels.data();
  for (size_t i = 0; i < image.pixel_count(); ++i) {
    uint8_t const* px = image.pixels.data() + 4 * i;
    switch (channels) {
      case 1: *to++ = px[0]; break;
      case 2: *to++ = px[0], *to++ = px[3]; break;
      case 3: std::memcpy(to, px, 3), to += 3; break;
      default: std::memcpy(to, px, 4), to += 4; break;
    }
  }
  return png.encode(out);
}
