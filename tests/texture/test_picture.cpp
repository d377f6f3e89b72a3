// Textures made from pictures: precision per type, DXT quality, the taggs game-made textures
// carry, mipmap chains and their filter, and pictures that cannot be made into textures.
#include <gtest/gtest.h>
#include <squish.h>

#include <array>
#include <random>
#include <string>
#include <vector>

#include "texture/ImageFile.h"
#include "texture/MipmapChain.h"
#include "texture/PaaBytes.h"
#include "texture/PixelDecoder.h"

using namespace paa_test;

namespace {
using Pixel = std::array<int, 4>;

// A 2 x 1 palette PNG: red with alpha 64 (a transparency chunk), then opaque blue.
Bytes const kPalettePng = {
    0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D, 0x49, 0x48, 0x44, 0x52, 0x00, 0x00, 0x00,
    0x02, 0x00, 0x00, 0x00, 0x01, 0x08, 0x03, 0x00, 0x00, 0x00, 0xC3, 0xFC, 0x8F, 0xB8, 0x00, 0x00, 0x00, 0x06, 0x50,
    0x4C, 0x54, 0x45, 0xFF, 0x00, 0x00, 0x00, 0x00, 0xFF, 0x6C, 0xA1, 0xFD, 0x8E, 0x00, 0x00, 0x00, 0x01, 0x74, 0x52,
    0x4E, 0x53, 0x40, 0x36, 0x3A, 0x99, 0xF6, 0x00, 0x00, 0x00, 0x0B, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9C, 0x63, 0x60,
    0x60, 0x04, 0x00, 0x00, 0x04, 0x00, 0x02, 0xBF, 0x7A, 0x3F, 0x4A, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4E, 0x44,
    0xAE, 0x42, 0x60, 0x82};

RgbaImage noise(uint32_t w, uint32_t h, unsigned seed, bool grey = false) {
  RgbaImage img{w, h, Bytes(size_t(w) * h * 4)};
  std::mt19937 rng(seed);
  for (size_t i = 0; i < img.pixels.size(); ++i) img.pixels[i] = grey && i % 4 && i % 4 < 3 ? img.pixels[i - 1] : uint8_t(rng());
  return img;
}

Lorvix::PictureOptions as(int type, char const* name = "x_co.paa", bool fast = false) {
  Lorvix::PictureOptions o;
  o.type = type;
  o.name = name;
  o.fast = fast;
  return o;
}

// The picture made into a texture, written, read back and decoded (level 0).
RgbaImage through_texture(RgbaImage const& picture, Lorvix::PictureOptions const& o, Lorvix& t, std::string const& file) {
  RgbaImage back;
  EXPECT_EQ(t.pax_FromRgba(picture, o), 0);
  EXPECT_EQ(t.pax_Write(file.c_str()), 0);
  EXPECT_EQ(t.pax_Open(file.c_str(), nullptr), 0);
  EXPECT_EQ(t.pax_ToRgba(0, back), 0);
  return back;
}

int largest_error(RgbaImage const& a, RgbaImage const& b) {
  if (a.pixels.size() != b.pixels.size()) return 999;
  int e = 0;
  for (size_t i = 0; i < a.pixels.size(); ++i) e = std::max(e, std::abs(a.pixels[i] - b.pixels[i]));
  return e;
}
}  // namespace

TEST(PictureToTexture, EachTypeKeepsItsPrecisionAndWritesBackUnchanged) {
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  TempFolder dir;
  struct Case {
    char const* name;
    int type;
    bool grey;
    int error;  // half a step of the type's coarsest channel
  } cases[] = {{"ARGB8888 is lossless", Lorvix::PAX_RGB8, false, 0},
               {"ARGB4444", Lorvix::PAX_RGB4, false, 8},
               {"AI88 of a grey picture is lossless", Lorvix::PAX_GREY, true, 0}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    RgbaImage picture = noise(32, 16, 5, c.grey);
    std::string file = dir / "t.paa";
    EXPECT_EQ(largest_error(through_texture(picture, as(c.type), t, file), picture), c.error);
    EXPECT_EQ(t.pax_GetMipmapCount(), 6u);  // 32 x 16 down to 1 x 1
    // What was written opens and copies byte for byte.
    ASSERT_EQ(t.pax_Write((dir / "copy.paa").c_str()), 0);
    EXPECT_EQ(get_file(dir / "copy.paa"), get_file(file));
  }
  // ARGB1555: 5-bit colour within half a step, alpha cut at one half.
  RgbaImage picture = noise(8, 8, 9), back = through_texture(picture, as(Lorvix::PAX_RGB5), t, dir / "t.paa");
  for (size_t i = 0; i < picture.pixels.size(); ++i)
    EXPECT_LE(std::abs(back.pixels[i] - (i % 4 == 3 ? (picture.pixels[i] >= 128) * 255 : picture.pixels[i])), 4);
}

TEST(PictureToTexture, DxtQuality) {
  if (!have_corpus()) GTEST_SKIP() << "no corpus";
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  TempFolder dir;
  // Pictures that came from game DXT5 textures go back to DXT5 at 40 dB or better.
  for (char const* f : {"paa/cba_logo_cba_ca.paa", "paa/rebal_canteen_action_icon.paa", "paa/tfar_dots6-01_tiny_dxt5.paa"}) {
    RgbaImage picture = corpus_pixels(f);
    EXPECT_GE(psnr(through_texture(picture, as(0), t, dir / "t.paa"), picture), 40) << f;
    EXPECT_EQ(t.pax_GetType(), Lorvix::PAX_DXT5) << f;  // it has alpha
  }
  // DXT1 of photographs is as close as libsquish's cluster fit gets (both read by one decoder): a
  // satellite photograph as stored, and scaled, so that its blocks hold more than four colours.
  RgbaImage satellite = corpus_pixels("paa/dustyroads_S_001_001_lco.paa");
  RgbaImage scaled = MipmapChain(true, 0).mc_Resize(satellite, 256, 256);
  for (RgbaImage const& photo : {satellite, scaled}) {
    Bytes blocks(squish::GetStorageRequirements(int(photo.width), int(photo.height), squish::kDxt1));
    squish::CompressImage(photo.pixels.data(), int(photo.width), int(photo.height), blocks.data(),
                          squish::kDxt1 | squish::kColourClusterFit);
    RgbaImage cluster;
    ASSERT_EQ(PixelDecoder::decode(Lorvix::PAX_DXT1, photo.width, photo.height, blocks.data(), blocks.size(), nullptr,
                                   0, cluster), "");
    double ours = psnr(through_texture(photo, as(0), t, dir / "t.paa"), photo);
    EXPECT_EQ(t.pax_GetType(), Lorvix::PAX_DXT1);
    EXPECT_GE(ours, psnr(cluster, photo) - 0.01);
    EXPECT_GT(ours, 30);
  }
}

// The average colour, maximum colour and alpha flag made from a game texture's own pixels are
// the ones the game's tools wrote (the average within what DXT coding moves it).
TEST(PictureToTexture, TaggsOfGameMadeTextures) {
  if (!have_corpus()) GTEST_SKIP() << "no corpus";
  BisDLL dll;
  Lorvix& made = *dll.dll_GetLorvix();
  Lorvix game(&dll);
  for (char const* f : {"paa/cba_focused_dxt1.paa", "paa/cba_logo_cba_ca.paa", "paa/cba_scopeblack_ca.paa",
                        "paa/dustyroads_S_001_001_lco.paa", "paa/dustyroads_M_000_000_lca.paa",
                        "paa/dustyroads_gdt_stony_co.paa", "paa/rebal_canteen_action_icon.paa",
                        "paa/tfar_dots6-01_fontsheet_dxt1.paa",
                        "paa/tzk_aiSet_behavior_co.paa", "paa/tzk_orderGrp_advance_co.paa",
                        "addon-src/tsp_animate_radio/tex/h189_co.paa", "addon-src/tsp_animate_radio/tex/h189_smdi.paa"}) {
    SCOPED_TRACE(f);
    ASSERT_EQ(game.pax_Open(corpus(f).c_str(), nullptr), 0);
    RgbaImage picture;
    ASSERT_EQ(game.pax_ToRgba(0, picture), 0);
    ASSERT_EQ(made.pax_FromRgba(picture, as(game.pax_GetType(), f, true)), 0);
    uint32_t want = game.pax_FindTagg(PaxTagg::AVGC)->value, got = made.pax_FindTagg(PaxTagg::AVGC)->value;
    for (int shift = 0; shift < 32; shift += 8)
      EXPECT_NEAR(int(got >> shift & 0xFF), int(want >> shift & 0xFF), 2) << std::hex << got << " " << want;
    EXPECT_EQ(made.pax_FindTagg(PaxTagg::MAXC)->value, game.pax_FindTagg(PaxTagg::MAXC)->value);
    PaxTagg const* flag = game.pax_FindTagg(PaxTagg::FLAG);
    ASSERT_EQ(made.pax_FindTagg(PaxTagg::FLAG) != nullptr, flag != nullptr);
    if (flag) {
      EXPECT_EQ(made.pax_FindTagg(PaxTagg::FLAG)->value, flag->value & 0xFF);
    }
    EXPECT_EQ(made.pax_GetMipmapCount(), game.pax_GetMipmapCount());
  }
}

TEST(PictureToTexture, MipmapChainsAndTheirFilter) {
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  struct Chain {
    uint32_t w, h;
    int type;
    uint32_t levels, last_w, last_h;
  } chains[] = {{256, 64, Lorvix::PAX_DXT1, 5, 16, 4}, {4, 8, Lorvix::PAX_DXT5, 1, 4, 8},
                {8, 2, Lorvix::PAX_RGB8, 4, 1, 1},    {1024, 1024, Lorvix::PAX_DXT1, 9, 4, 4}};
  for (auto const& c : chains) {
    ASSERT_EQ(t.pax_FromRgba(noise(c.w, c.h, 1), as(c.type, "x_co.paa", true)), 0);
    ASSERT_EQ(t.pax_GetMipmapCount(), c.levels) << c.w << "x" << c.h;
    EXPECT_EQ(t.pax_GetMipmap(c.levels - 1)->width, c.last_w);
    EXPECT_EQ(t.pax_GetMipmap(c.levels - 1)->height, c.last_h);
  }
  // Black and white average to the grey the eye sees on colour maps, to the middle value on
  // others; colour under transparent pixels does not reach visible ones.
  RgbaImage checker{2, 2, {0, 0, 0, 255, 255, 255, 255, 255, 255, 255, 255, 255, 0, 0, 0, 255}};
  RgbaImage half_clear{2, 1, {255, 0, 0, 255, 0, 255, 0, 0}};
  struct Mean {
    RgbaImage const& picture;
    char const* name;
    std::array<int, 4> pixel;
  } means[] = {{checker, "wall_co.paa", {188, 188, 188, 255}},
               {checker, "wall_nohq.paa", {128, 128, 128, 255}},
               {half_clear, "icon_ca.paa", {255, 0, 0, 128}}};
  for (auto const& m : means) {
    RgbaImage last;
    ASSERT_EQ(t.pax_FromRgba(m.picture, as(Lorvix::PAX_RGB8, m.name)), 0);
    ASSERT_EQ(t.pax_ToRgba(1, last), 0);
    for (int c = 0; c < 4; ++c) EXPECT_NEAR(last.pixels[c], m.pixel[c], 1) << m.name << " channel " << c;
  }
}

TEST(PictureToTexture, PicturesAndWhatBecomesOfThem) {
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  Bytes rgba(617 * 255 * 4, 200), opaque_alpha(4 * 4 * 4, 255), deep(4 * 4 * 4 * 2);
  for (size_t i = 0; i < deep.size(); i += 2) deep[i] = deep[i + 1] = 0x80;  // 0x8080 of 0xFFFF
  Bytes wide = png_file(617, 255, 4, 8, rgba), square = png_file(4, 4, 4, 8, opaque_alpha);
  Bytes zero = square, huge = square, hollow = square, cut = png_file(64, 64, 3, 8, Bytes(64 * 64 * 3, 9));
  zero[19] = 0;                       // width 0
  huge[17] = huge[21] = 0x10;         // 1048580 x 1048580
  hollow[18] = hollow[22] = 0x1F;     // 7940 x 7940 in a few dozen bytes
  cut.resize(cut.size() / 2);
  Bytes bgr = {3, 2, 1, 6, 5, 4, 9, 8, 7, 12, 11, 10};  // bottom row first: pixels 3 4 / 1 2
  Bytes rle = {0x83, 1, 2, 3, 255};                       // four copies of one opaque pixel
  struct Case {
    char const* name;
    Bytes file;
    bool resize;
    int code;
    int type;        // of the texture made
    Pixel top_left;  // of the picture read, when it reads
  } cases[] = {
      {"sides not powers of two", wide, false, PAXERR_NOT_POWER_OF_TWO, 0, {}},
      {"scaled to the nearest", wide, true, 0, Lorvix::PAX_DXT5, {200, 200, 200, 200}},
      {"an alpha channel all opaque", square, false, 0, Lorvix::PAX_DXT1, {255, 255, 255, 255}},
      {"palette and transparency chunk", kPalettePng, false, 0, Lorvix::PAX_DXT5, {255, 0, 0, 64}},
      {"16-bit samples", png_file(4, 4, 4, 16, deep), false, 0, Lorvix::PAX_DXT5, {128, 128, 128, 128}},
      {"TGA bottom up", tga_file(2, 2, 24, false, false, bgr), false, 0, Lorvix::PAX_DXT1, {7, 8, 9, 255}},
      {"TGA run-length top down", tga_file(2, 2, 32, true, true, rle), false, 0, Lorvix::PAX_DXT1, {3, 2, 1, 255}},
      {"TGA cut short", tga_file(2, 2, 24, false, false, Bytes(11)), false, PAXERR_BAD_PICTURE, 0, {}},
      {"TGA run-length cut short", tga_file(2, 2, 32, true, true, Bytes{0x81, 1, 2, 3, 4}), false, PAXERR_BAD_PICTURE, 0, {}},
      {"width zero", zero, false, PAXERR_BAD_PICTURE, 0, {}},
      {"a million pixels a side", huge, false, PAXERR_PICTURE_TOO_LARGE, 0, {}},
      {"more pixels than its bytes hold", hollow, false, PAXERR_BAD_PICTURE, 0, {}},
      {"cut in half", cut, false, PAXERR_BAD_PICTURE, 0, {}},
      {"not a picture", text("GGATCGVA not a picture at all"), false, PAXERR_BAD_PICTURE, 0, {}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    Lorvix::PictureOptions o = as(0, "x_ca.paa", true);
    o.resize = c.resize;
    clear_captured();
    t.pax_GetIO()->io_SetErrCallBack(capture_err);
    EXPECT_EQ(t.pax_FromPicture(c.file.data(), c.file.size(), o), c.code) << g_errs;
    RgbaImage picture;
    bool read = ImageFile::read(c.file.data(), c.file.size(), picture, Lorvix::kMaxPicturePixels).empty();
    EXPECT_EQ(read, c.code == 0 || c.code == PAXERR_NOT_POWER_OF_TWO);
    if (c.code) {
      EXPECT_FALSE(g_errs.empty());  // the reason is given
      continue;
    }
    EXPECT_EQ(t.pax_GetType(), c.type);
    EXPECT_EQ(Pixel({picture.pixels[0], picture.pixels[1], picture.pixels[2], picture.pixels[3]}), c.top_left);
  }
  EXPECT_EQ(t.pax_FromPicture(wide.data(), wide.size(), [] { auto o = as(0); o.resize = true; return o; }()), 0);
  EXPECT_EQ(t.pax_GetMipmap(0)->width, 512);
  EXPECT_EQ(t.pax_GetMipmap(0)->height, 256);
}
