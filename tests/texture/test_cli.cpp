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
