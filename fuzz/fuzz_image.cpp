// Arbitrary bytes as a picture (PNG or TGA). What reads must come back the same through a PNG
// written from it, and through an ARGB8888 texture made from it (scaled first when its sides are
// not powers of two; then only its size is checked).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "FuzzScratch.h"
#include "core/BisDLL.h"
#include "texture/ImageFile.h"
#include "texture/Lorvix.h"
#include "texture/MipmapChain.h"

namespace {
// Pictures of any size a 64 KiB input can declare honestly would take the fuzzer's time; the
// readers' own limits are the library's.
constexpr uint64_t kMostPixels = uint64_t(1) << 20;
constexpr uint64_t kMostTexturePixels = 1 << 14;

void fail(char const* what) {
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  RgbaImage picture;
  if (!ImageFile::read(data, size, picture, kMostPixels).empty()) {
    if (!picture.pixels.empty()) fail("a picture that does not read keeps pixels");
    return 0;
  }
  if (!picture.width || !picture.height || picture.pixels.size() != picture.pixel_count() * 4)
    fail("the pixels do not fill the picture");

  std::vector<uint8_t> png;
  RgbaImage again;
  if (!ImageFile::write_png(picture, 4, png).empty() || !ImageFile::read(png.data(), png.size(), again, kMostPixels).empty() ||
      again.pixels != picture.pixels)
    fail("the picture reads back differently from its PNG");

  if (picture.pixel_count() > kMostTexturePixels) return 0;
  BisDLL dll;
  Lorvix* t = dll.dll_GetLorvix();
  t->pax_GetIO()->io_SetStdioCallBack(fuzzing::silent);
  t->pax_GetIO()->io_SetErrCallBack(fuzzing::silent);
  Lorvix::PictureOptions o;
  o.type = Lorvix::PAX_RGB8;
  o.resize = true;
  o.threads = 1;
  RgbaImage back;
  if (t->pax_FromRgba(picture, o) != 0 || t->pax_ToRgba(0, back) != 0) fail("a picture that reads makes no texture");
  bool scaled = !MipmapChain::mc_IsPowerOfTwo(picture.width) || !MipmapChain::mc_IsPowerOfTwo(picture.height);
  if (scaled ? !MipmapChain::mc_IsPowerOfTwo(back.width) || !MipmapChain::mc_IsPowerOfTwo(back.height)
             : back.pixels != picture.pixels)
    fail("an ARGB8888 texture does not hold its picture");
  return 0;
}
