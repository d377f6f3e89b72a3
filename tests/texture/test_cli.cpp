#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "texture/PaaBytes.h"
#include "support/CliRun.h"

using namespace paa_test;

namespace {
using clirun::CliRun;

CliRun vendrak(TempFolder const& dir, std::vector<std::string> const& args) {
  std::string stem = dir / "tool";
  return clirun::run_tool(clirun::quoted(args), stem);
}
}  // namespace

TEST(TextureCli, PaaInfoCopyAndSignatures) {
  if (!have_corpus()) GTEST_SKIP() << "no corpus";
  TempFolder dir;
  std::string in = corpus("paa/tzk_square_green_dxt1.paa");
  CliRun info = vendrak(dir, {"paa", "info", in});
  ASSERT_EQ(info.status, 0) << info.err;
  EXPECT_EQ(info.out,
            "Type: DXT1\nAVGC: 8FC6FFC6\nFLAG: 00000002\nOFFS: 2 entries\nPallete size 0 RGBtriplets\nMipMaps\n"
            "   8 x    8 @     70 size      32 \n   4 x    4 @     97 size       8 \n");
  // `info` finds the texture by its signature and gives the same listing.
  EXPECT_EQ(vendrak(dir, {"info", in}).out, info.out);

  std::string out = dir / "copy.paa";
  ASSERT_EQ(vendrak(dir, {"paa", "copy", in, out}).status, 0);
  EXPECT_EQ(vendrak(dir, {"paa", "info", out}).out, info.out);
  put_file(out, "something else");
  CliRun refused = vendrak(dir, {"paa", "copy", in, out});
  EXPECT_NE(refused.status, 0);
  EXPECT_EQ(get_file(out), "something else");  // never replaced without -f
  EXPECT_EQ(vendrak(dir, {"paa", "copy", "-f", in, out}).status, 0);
  EXPECT_EQ(get_file(out), get_file(in));

  CliRun json = vendrak(dir, {"paa", "info", "--json", in});
  ASSERT_EQ(json.status, 0);
  auto j = nlohmann::json::parse(json.out);
  EXPECT_EQ(j["type"], "DXT1");
  EXPECT_EQ(j["mipmaps"].size(), 2u);

  CliRun bad = vendrak(dir, {"paa", "info", corpus("paa/cwrce_synthetic_fuzz_dxt_oob_malformed.paa")});
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.err.find("malformed.paa: Generic error or premature EOF"), std::string::npos) << bad.err;
}

TEST(TextureCli, IndexAndFontListings) {
  if (!have_corpus()) GTEST_SKIP() << "no corpus";
  TempFolder dir;
  std::string index = corpus("texheaders/tfar_items_r1_texHeaders.bin");
  CliRun th = vendrak(dir, {"texheaders", index});
  ASSERT_EQ(th.status, 0) << th.err;
  EXPECT_EQ(th.out, "anprc152\\152_icon.paa  DXT5  6\nrt1523g\\rt1523g_icon.paa  DXT5  6\n");
  EXPECT_EQ(vendrak(dir, {"info", index}).out, th.out);
  auto j = nlohmann::json::parse(vendrak(dir, {"texheaders", "--json", index}).out);
  EXPECT_EQ(j["textures"][1]["mipmaps"], 6);

  // A broken index exits with the check's code.
  std::string broken = get_file(index);
  broken[12] = 2;  // the first record's "always 1"
  put_file(dir / "texHeaders.bin", broken);
  EXPECT_EQ(vendrak(dir, {"texheaders", dir / "texHeaders.bin"}).status, 14);

  std::string legacy = corpus("fxy/cwrce_synthetic_legacy_2688.fxy");
  CliRun fxy = vendrak(dir, {"info", legacy});
  ASSERT_EQ(fxy.status, 0) << fxy.err;
  EXPECT_EQ(fxy.out.rfind("Form: OFP\nRecords: 224 of 12 bytes\n", 0), 0u) << fxy.out;
  auto f = nlohmann::json::parse(vendrak(dir, {"fxy", "--json", corpus("fxy/tfar_dots6.fxy")}).out);
  EXPECT_EQ(f["form"], "Arma");
  EXPECT_EQ(f["count"], (3144 - 8) / 14);
  EXPECT_EQ(f["records"][0].size(), 7u);
}

TEST(TextureCli, ConvertBothWays) {
  if (!have_corpus()) GTEST_SKIP() << "no corpus";
  TempFolder dir;
  std::string texture = corpus("paa/cba_logo_cba_ca.paa");
  struct Case {
    char const* name;
    std::vector<std::string> args;
    int status;
    char const* err;  // part of standard error
  } cases[] = {
      {"largest mipmap", {texture, dir / "logo.png"}, 0, ""},
      {"smallest mipmap", {"--mip", "7", texture, dir / "small.png"}, 0, ""},
      {"no such mipmap", {"--mip", "8", texture, dir / "none.png"}, PAXERR_NO_SUCH_MIPMAP, "there is no mipmap 8"},
      {"picture to texture", {dir / "logo.png", dir / "logo_ca.paa"}, 0, ""},
      {"chosen type, quick fit", {"--type", "argb4444", "--fast", dir / "small.png", dir / "small_ca.pac"}, 0, ""},
      {"no replacing without -f", {dir / "small.png", dir / "logo_ca.paa"}, 6, "logo_ca.paa"},
      {"replacing with -f", {"-f", dir / "small.png", dir / "logo_ca.paa"}, 0, ""},
      {"kind unknown from the name", {texture, dir / "logo.bmp"}, 64, "must end in .png"},
      {"texture options for a picture", {"--fast", texture, dir / "x.png"}, 64, "apply when a texture is made"},
      {"unknown type", {"--type", "dxt3", dir / "logo.png", dir / "x.paa"}, 64, "dxt3"},
      {"not a picture", {texture, dir / "x.paa"}, PAXERR_BAD_PICTURE, "neither a PNG nor a TGA"},
      {"help", {"--help"}, 0, ""},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> args = {"paa", "convert"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    CliRun r = vendrak(dir, args);
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_NE(r.err.find(c.err), std::string::npos) << r.err;
  }
  PngImage png;
  ASSERT_EQ(PngImage::decode(text(get_file(dir / "small.png")).data(), get_file(dir / "small.png").size(), png), "");
  EXPECT_EQ(png.width * 10 + png.channels, 4u * 10 + 4);  // 4 x 4, RGBA for DXT5
  CliRun info = vendrak(dir, {"paa", "info", dir / "small_ca.pac"});
  EXPECT_NE(info.out.find("Type: RGB4\nAVGC: "), std::string::npos) << info.out;
  ASSERT_EQ(vendrak(dir, {"paa", "copy", dir / "logo_ca.paa", dir / "copy.paa"}).status, 0);
  EXPECT_EQ(get_file(dir / "copy.paa"), get_file(dir / "logo_ca.paa"));

  // A picture whose sides the game cannot use is refused, naming the way out.
  PngImage wide;
  wide.width = 100, wide.height = 64, wide.channels = 3, wide.pixels.assign(100 * 64 * 3, 50);
  Bytes bytes;
  wide.encode(bytes);
  put_file(dir / "wide.png", std::string(bytes.begin(), bytes.end()));
  CliRun refused = vendrak(dir, {"paa", "convert", dir / "wide.png", dir / "wide_co.paa"});
  EXPECT_EQ(refused.status, PAXERR_NOT_POWER_OF_TWO);
  EXPECT_NE(refused.err.find("100x64 pixels"), std::string::npos) << refused.err;
  EXPECT_NE(refused.err.find("--resize"), std::string::npos) << refused.err;
  EXPECT_EQ(vendrak(dir, {"paa", "convert", "--resize", dir / "wide.png", dir / "wide_co.paa"}).status, 0);
  EXPECT_NE(vendrak(dir, {"paa", "info", dir / "wide_co.paa"}).out.find(" 128 x   64 "), std::string::npos);
}

TEST(TextureCli, PackBinariseWritesTheIndexThatTexheadersReads) {
  if (!have_corpus()) GTEST_SKIP() << "no corpus";
  TempFolder dir;
  put_file(dir / "addon/config.cpp", "class CfgPatches { class a { units[] = {}; }; };\n");
  put_file(dir / "addon/data/sign_co.paa", get_file(corpus("paa/tzk_square_green_dxt1.paa")));
  ASSERT_EQ(vendrak(dir, {"pack", "--binarise", "-q", dir / "addon", dir / "addon.pbo"}).status, 0);
  CliRun cat = vendrak(dir, {"cat", dir / "addon.pbo", "texHeaders.bin"});
  ASSERT_EQ(cat.status, 0) << cat.err;
  put_file(dir / "texHeaders.bin", cat.out);
  EXPECT_EQ(vendrak(dir, {"texheaders", dir / "texHeaders.bin"}).out, "data\\sign_co.paa  DXT1  2\n");
}
