// Textures made from pictures and turned back into them.
#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "core/GuardedCall.h"
#include "texture/ImageFile.h"
#include "texture/Lorvix.h"
#include "texture/MipmapChain.h"
#include "texture/PixelDecoder.h"
#include "texture/PixelEncoder.h"
#include "texture/TextureSuffix.h"

namespace {
// The offsets tagg holds fifteen mipmaps.
constexpr unsigned kMaxLevels = PaxTagg::kMaxOffsets - 1;
// Textures made by the game's own tools all carry white as their maximum colour, whatever their
// pixels: the engine scales nothing by it.
constexpr uint32_t kMaxColour = 0xFFFFFFFF;

double to_linear(uint8_t v) {
  double s = v / 255.0;
  return s <= 0.04045 ? s / 12.92 : std::pow((s + 0.055) / 1.055, 2.4);
}

uint8_t from_linear(double l) {
  double s = l <= 0.0031308 ? l * 12.92 : 1.055 * std::pow(l, 1 / 2.4) - 0.055;
  return static_cast<uint8_t>(std::lround(std::clamp(s, 0.0, 1.0) * 255));
}

// The average colour as the game's tools give it, AARRGGBB: alpha the plain mean; colour weighed
// by alpha (what is invisible does not count), averaged in linear light for colour maps.
uint32_t average_colour(RgbaImage const& p, bool colour) {
  double linear[256];
  for (int v = 0; v < 256; ++v) linear[v] = colour ? to_linear(static_cast<uint8_t>(v)) : v / 255.0;
  double alpha = 0, weighted[3] = {}, plain[3] = {};
  size_t const n = p.pixel_count();
  for (size_t i = 0; i < n; ++i) {
    uint8_t const* px = p.pixels.data() + 4 * i;
    double a = px[3] / 255.0;
    alpha += a;
    for (int c = 0; c < 3; ++c) {
      weighted[c] += a * linear[px[c]];
      plain[c] += linear[px[c]];
    }
  }
  uint32_t rgb[3];
  for (int c = 0; c < 3; ++c) {
    double mean = alpha > 0 ? weighted[c] / alpha : plain[c] / double(n);
    rgb[c] = colour ? from_linear(mean) : static_cast<uint32_t>(std::lround(std::clamp(mean, 0.0, 1.0) * 255));
  }
  uint32_t a = static_cast<uint32_t>(std::lround(alpha / double(n) * 255));
  return a << 24 | rgb[0] << 16 | rgb[1] << 8 | rgb[2];
}

std::string sides(uint32_t w, uint32_t h) { return std::to_string(w) + "x" + std::to_string(h); }
}  // namespace

int Lorvix::pax_PngChannels(int type, RgbaImage const& pixels) {
  switch (type) {
    case PAX_DXT1: return pixels.opaque() ? 3 : 4;
    case PAX_GREY: return 2;
    case PAX_INDX: case PAX_NONE: return 3;
    default: return 4;
  }
}

int Lorvix::pax_FromPicture(uint8_t const* data, uint64_t size, PictureOptions const& options) {
  return bis_guarded_call<PaxErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!data) return int(GE_INVALID_FILE);
    RgbaImage picture;
    bool large = false;
    std::string why = ImageFile::read(data, size_t(size), picture, kMaxPicturePixels, &large);
    if (!why.empty()) _io.io_throw(large ? PAXERR_PICTURE_TOO_LARGE : PAXERR_BAD_PICTURE, "%s\r\n", why.c_str());
    _from_rgba(std::move(picture), options);
    return 0;
  });
}

int Lorvix::pax_FromRgba(RgbaImage const& picture, PictureOptions const& options) {
  return bis_guarded_call<PaxErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _from_rgba(picture, options);
    return 0;
  });
}

void Lorvix::_from_rgba(RgbaImage picture, PictureOptions const& options) {
  uint32_t w = picture.width, h = picture.height;
  if (!w || !h || picture.pixels.size() != picture.pixel_count() * 4)
    _io.io_throw(PAXERR_BAD_PICTURE, "The picture has no pixels\r\n");
  if (picture.pixel_count() > kMaxPicturePixels)
    _io.io_throw(PAXERR_PICTURE_TOO_LARGE, "A picture of %s pixels is larger than the %llu a texture is made from\r\n",
                 sides(w, h).c_str(), static_cast<unsigned long long>(kMaxPicturePixels));
  uint32_t nw = MipmapChain::mc_NearestPowerOfTwo(w, kMaxSide), nh = MipmapChain::mc_NearestPowerOfTwo(h, kMaxSide);
  while (uint64_t(nw) * nh > kMaxPicturePixels) (nw >= nh ? nw : nh) /= 2;
  bool const fits = MipmapChain::mc_IsPowerOfTwo(w) && MipmapChain::mc_IsPowerOfTwo(h) && w <= kMaxSide && h <= kMaxSide;
  if (!fits && !options.resize)
    _io.io_throw(PAXERR_NOT_POWER_OF_TWO,
                 "A picture of %s pixels: the game needs each side a power of two up to %u (nearest: %s)\r\n",
                 sides(w, h).c_str(), kMaxSide, sides(nw, nh).c_str());

  int type = options.type ? options.type : picture.opaque() ? PAX_DXT1 : PAX_DXT5;
  if (!PixelEncoder::writes(type))
    _io.io_throw(PAXERR_TYPE_NOT_WRITTEN, "Textures of type %s are not made from pictures\r\n", pax_GetTypeStr(type));

  TextureSuffix suffix(options.name ? options.name : "");
  MipmapChain chain(suffix.sfx_IsColour(), options.threads);
  std::vector<RgbaImage> levels =
      chain.mc_Build(fits ? std::move(picture) : chain.mc_Resize(picture, nw, nh), pax_IsDxt(type), kMaxLevels);
  if (!fits) _io.io_callback("Resized from %s to %s\r\n", sides(w, h).c_str(), sides(nw, nh).c_str());

  pax_New(type);
  pax_SetTagg(PaxTagg::AVGC, average_colour(levels[0], suffix.sfx_IsColour()));
  pax_SetTagg(PaxTagg::MAXC, kMaxColour);
  // Alpha of one bit is "transparent" to the game, any other alpha blends.
  if (!levels[0].opaque()) pax_SetTagg(PaxTagg::FLAG, type == PAX_DXT1 || type == PAX_RGB5 ? 2 : 1);
  PixelEncoder::Options encoding;
  encoding.fast = options.fast;
  encoding.threads = options.threads;
  std::vector<uint8_t> stored;
  for (RgbaImage const& level : levels) {
    PixelEncoder::encode(type, level, encoding, stored);
    int r = pax_AddMipmap(static_cast<uint16_t>(level.width), static_cast<uint16_t>(level.height), stored.data(),
                          stored.size());
    if (r) throw static_cast<Generic_Errors>(r);
  }
}

int Lorvix::pax_ToRgba(uint32_t mipmap, RgbaImage& out) {
  return bis_guarded_call<PaxErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _decode(mipmap, out);
    return 0;
  });
}

int Lorvix::pax_ToPng(uint32_t mipmap, std::vector<uint8_t>& png) {
  return bis_guarded_call<PaxErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    RgbaImage pixels;
    _decode(mipmap, pixels);
    std::string why = ImageFile::write_png(pixels, pax_PngChannels(_type, pixels), png);
    if (!why.empty()) _io.io_throw(GE_CANNOT_WRITE, "PNG: %s\r\n", why.c_str());
    return 0;
  });
}

void Lorvix::_decode(uint32_t mipmap, RgbaImage& out) {
  PaxMipmap const* mm = pax_GetMipmap(mipmap);
  if (!mm)
    _io.io_throw(PAXERR_NO_SUCH_MIPMAP, "The texture has %u mipmaps, numbered from 0: there is no mipmap %u\r\n",
                 pax_GetMipmapCount(), mipmap);
  std::string why =
      PixelDecoder::decode(_type, mm->width, mm->height, mm->pixels, mm->pixel_size, _palette, _palette_count, out);
  if (!why.empty())
    _io.io_throw(PAXERR_UNDECODABLE, "MipMap %d x %d: %s\r\n", mm->width, mm->height, why.c_str());
}
