// Real terrains: they open, list their true sizes and counts, and survive the conversions.
#include <gtest/gtest.h>

#include <filesystem>

#include "terrain/WrpTestUtil.h"

namespace fs = std::filesystem;
using namespace wrp_test;

namespace {
struct CorpusCase {
  char const* file;
  int kind;
  uLongPair layer, map;
  float grid;
  size_t textures, templates, objects;
};

CorpusCase const kCorpus[] = {
    {"avebury_avebury.wrp", Tessak::KIND_8WVR, {64, 64}, {512, 512}, 32, 145, 0, 6751},
    {"grm_world01.wrp", Tessak::KIND_8WVR, {1, 1}, {2, 2}, 4, 1, 1, 512},
    {"cwrce_synthetic_test_world_4wvr.wrp", Tessak::KIND_4WVR, {4, 4}, {4, 4}, 50, 1, 3, 3},
};

std::string corpus(char const* name) { return (corpus_dir() / "wrp" / name).string(); }

TEST(WrpCorpus, OpensWithTrueSizesAndCounts) {
  if (!fs::is_directory(corpus_dir() / "wrp")) GTEST_SKIP() << "no corpus";
  for (auto const& c : kCorpus) {
    Loaded l;
    ASSERT_EQ(l.t->wrp_Open(corpus(c.file).c_str()), 0) << c.file << g_errs;
    EXPECT_EQ(l.t->wrp_Kind(), c.kind);
    EXPECT_EQ(l.t->wrp_LayerSize().x, c.layer.x);
    EXPECT_EQ(l.t->wrp_LayerSize().y, c.layer.y);
    EXPECT_EQ(l.t->wrp_MapSize().x, c.map.x);
    EXPECT_EQ(l.t->wrp_MapSize().y, c.map.y);
    EXPECT_EQ(l.t->wrp_GridSize(), c.grid);
    EXPECT_EQ(l.t->wrp_Textures().size(), c.textures) << c.file;
    if (c.templates) {
      EXPECT_EQ(l.t->wrp_Templates().size(), c.templates) << c.file;
    }
    EXPECT_EQ(l.t->wrp_Objects().size(), c.objects) << c.file;
    EXPECT_NE(g_msgs.find("Reading Elevations @"), std::string::npos);
  }
}

TEST(WrpCorpus, EditableFilesRewriteByteForByte) {
  if (!fs::is_directory(corpus_dir() / "wrp")) GTEST_SKIP() << "no corpus";
  TempFolder tmp;
  for (auto const& c : kCorpus) {
    Loaded l;
    ASSERT_EQ(l.t->wrp_Open(corpus(c.file).c_str()), 0);
    std::string out = tmp / "same.wrp";
    ASSERT_EQ(l.t->wrp_Create(out.c_str(), Tessak::SignatureOfKind(c.kind)), 0) << c.file;
    EXPECT_TRUE(get_file(out) == get_file(corpus(c.file))) << c.file;
  }
}

// Every binarised version and back: the ground and the objects arrive unchanged.
TEST(WrpCorpus, ConvertsThroughEveryBinarisedVersion) {
  if (!fs::is_directory(corpus_dir() / "wrp")) GTEST_SKIP() << "no corpus";
  TempFolder tmp;
  for (auto const& c : kCorpus) {
    for (uint32_t version : {3u, 17u, 18u, 20u, 23u, 24u, 25u, 32u, 33u}) {
      Loaded src, bin, back;
      ASSERT_EQ(src.t->wrp_Open(corpus(c.file).c_str()), 0);
      std::string oprw = tmp / "t.wrp", plain = tmp / "t8.wrp";
      ASSERT_EQ(src.t->wrp_Create(oprw.c_str(), "OPRW", version), 0) << c.file << " v" << version;
      ASSERT_EQ(bin.t->wrp_Open(oprw.c_str()), 0) << c.file << " v" << version << g_errs << g_msgs;
      EXPECT_EQ(bin.t->wrp_Version(), version);
      EXPECT_TRUE(same_ground(*src.t, *bin.t)) << c.file << " v" << version;
      EXPECT_TRUE(same_objects(*src.t, *bin.t)) << c.file << " v" << version;
      // Written back unchanged, a binarised terrain keeps its stored arrays and packed grids.
      std::string again = tmp / "again.wrp";
      ASSERT_EQ(bin.t->wrp_Create(again.c_str(), "OPRW"), 0);
      EXPECT_TRUE(get_file(again) == get_file(oprw)) << c.file << " v" << version;
      ASSERT_EQ(bin.t->wrp_Create(plain.c_str(), "8WVR"), 0);
      ASSERT_EQ(back.t->wrp_Open(plain.c_str()), 0);
      EXPECT_TRUE(same_ground(*src.t, *back.t)) << c.file << " v" << version;
      EXPECT_TRUE(same_objects(*src.t, *back.t)) << c.file << " v" << version;
    }
  }
}

// The 4WVR refusals (names over 31 bytes, layer indexes beyond the table) are checked on built terrains
// in test_wrp_oprw.cpp and on a real one through the command line.
}  // namespace
