// Binarised models: two small real models, and what goes wrong when their bytes are changed.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/BisDLL.h"
#include "io/BisFileIO_test_util.h"
#include "p3d/Morvane.h"
#include "io/BisFileIO.h"
#include "p3d/OdolModel.h"
#include "text/GenString.h"

namespace {

std::string data(char const* name) {
  std::ifstream f(std::string(VENDRAK_TEST_DATA) + "/p3d/" + name, std::ios::binary);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

void put32(std::string& s, size_t at, uint32_t v) { std::memcpy(&s[at], &v, 4); }

struct Opened {
  BisDLL dll;
  Morvane* m = dll.dll_GetMorvane();
  std::string bytes;  // the model is read in place: its buffer lives as long as it
  int r;
  explicit Opened(std::string in) : bytes(std::move(in)) {
    g_msgs.clear();
    m->p3d_GetIO()->io_SetErrCallBack(capture_msg);
    r = m->p3d_Open(reinterpret_cast<unsigned char const*>(bytes.data()), static_cast<unsigned>(bytes.size()), 0, capture_msg);
  }
};
}  // namespace

TEST(Odol, RealModelsOpen) {
  Opened ofp(data("target_odol7.p3d"));
  ASSERT_EQ(ofp.r, 0) << g_msgs;
  GenString kind;
  ofp.m->p3d_GetTypeStr(&kind);
  EXPECT_STREQ(kind.c_str(), "ODOL 7 (ofp): : nLods=4\r\n");
  EXPECT_EQ(ofp.m->p3d_get_resolution(1), 1e13f);
  EXPECT_EQ(ofp.m->p3d_get_nPoints(ofp.m->p3d_get_lod(0)), 9u);

  Opened arma(data("optic_odol73.p3d"));
  ASSERT_EQ(arma.r, 0) << g_msgs;
  EXPECT_NE(g_msgs.find("Header AppID: 0\r\nHeader Prefix: \r\n"), std::string::npos) << g_msgs;
  arma.m->p3d_GetTypeStr(&kind);
  EXPECT_STREQ(kind.c_str(), "ODOL 73 (Arma3) : nLods=1\r\n");
  void const* lod = arma.m->p3d_get_lod(0);
  EXPECT_EQ(arma.m->p3d_get_nPoints(lod), 20u);
  EXPECT_EQ(arma.m->p3d_get_nFaces(lod), 6u);
  EXPECT_EQ(arma.m->p3d_GetOdol()->trailing_size(), 36u);
}


// Written from its values, a model comes back byte for byte; with a longer text it still opens,
// the text read back and everything behind it moved.
TEST(Odol, WrittenFromItsValues) {
  struct Case {
    char const* file;
    char const* prefix;   // set when not null
    char const* texture;  // the first LOD's first texture, set when not null
  } cases[] = {
      {"target_odol7.p3d", nullptr, nullptr},
      {"optic_odol73.p3d", nullptr, nullptr},
      {"optic_odol73.p3d", "a\\b", nullptr},
      {"target_odol7.p3d", nullptr, "x\\y.pac"},
  };
  std::string out = (std::filesystem::temp_directory_path() / "vendrak-odol-write.p3d").string();
  for (Case const& c : cases) {
    Opened o(data(c.file));
    ASSERT_EQ(o.r, 0) << c.file << ": " << g_msgs;
    OdolModel* odol = o.m->p3d_GetOdol();
    // The file grows or shrinks by the difference in length, nothing else.
    int64_t grows = 0;
    if (c.prefix) grows += int64_t(std::strlen(c.prefix)) - int64_t(odol->prefix().size());
    if (c.texture) grows += int64_t(std::strlen(c.texture)) - int64_t(odol->lod(0)->textures[0].size());
    if (c.prefix) odol->set_prefix(c.prefix);
    if (c.texture) {
      ASSERT_TRUE(odol->set_texture(0, 0, c.texture)) << c.file;
      EXPECT_FALSE(odol->set_texture(0, 9999, c.texture)) << c.file;
    }
    ASSERT_EQ(o.m->p3d_Create(out.c_str()), 0) << c.file;
    std::ifstream f(out, std::ios::binary);
    std::stringstream written;
    written << f.rdbuf();
    if (!c.prefix && !c.texture) {
      EXPECT_TRUE(written.str() == o.bytes) << c.file << " was not written back unchanged";
      continue;
    }
    Opened back(written.str());
    ASSERT_EQ(back.r, 0) << c.file << ": " << g_msgs;
    OdolModel const* b = back.m->p3d_GetOdol();
    EXPECT_EQ(b->prefix(), c.prefix ? c.prefix : odol->prefix()) << c.file;
    EXPECT_EQ(b->lod(0)->textures[0], c.texture ? c.texture : odol->lod(0)->textures[0]) << c.file;
    EXPECT_EQ(b->lod(0)->nFaces, odol->lod(0)->nFaces) << c.file;
    EXPECT_EQ(int64_t(written.str().size()), int64_t(o.bytes.size()) + grows) << c.file;
  }
  std::filesystem::remove(out);
}

// Another binariser may store an end offset or a face data size that strays from what the LOD
// gives; such a model opens, and keeps the stray amount when it is written, even moved.
TEST(Odol, StrayDerivedWordsAreKept) {
  std::string v73 = data("optic_odol73.p3d");
  size_t face_size_at = 0;  // the first LOD's face data size word
  {
    Opened o(v73);
    ASSERT_EQ(o.r, 0) << g_msgs;
    face_size_at = static_cast<size_t>(o.m->p3d_GetOdol()->lod(0)->faces - reinterpret_cast<uint8_t const*>(o.bytes.data())) - 6;
  }
  std::string out = (std::filesystem::temp_directory_path() / "vendrak-odol-stray.p3d").string();
  for (size_t at : {size_t{0x132}, face_size_at}) {
    std::string stray = v73;
    uint32_t word;
    std::memcpy(&word, &stray[at], 4);
    put32(stray, at, word + 18);
    for (char const* prefix : {static_cast<char const*>(nullptr), "a\\b"}) {
      Opened o(stray);
      ASSERT_EQ(o.r, 0) << at << ": " << g_msgs;
      if (prefix) o.m->p3d_GetOdol()->set_prefix(prefix);
      ASSERT_EQ(o.m->p3d_Create(out.c_str()), 0);
      std::ifstream f(out, std::ios::binary);
      std::stringstream written;
      written << f.rdbuf();
      std::string expect = stray;
      if (prefix) {  // the header grows by the prefix, and every offset with it
        expect = written.str();
        uint32_t moved;
        std::memcpy(&moved, &expect[at + 3], 4);
        EXPECT_EQ(moved, word + 18 + (at == 0x132 ? 3 : 0)) << at;
        continue;
      }
      EXPECT_TRUE(written.str() == expect) << at;
    }
  }
  std::filesystem::remove(out);
}

TEST(Odol, KindTexts) {
  struct Case {
    int kind;
    char const* text;
  } cases[] = {{46, "ODOL 46 (Arma1 lzss)"}, {47, "ODOL 47 (Arma2 lzo)"}, {49, "ODOL 49 (Arma2 lzo)"},
               {50, "ODOL 50 (Arrowhead)"},  {55, "ODOL 55 (Arrowhead)"}, {56, "ODOL 56 (Arma3)"},
               {7, "ODOL 7 (ofp):"},         {0, "MLOD"}};
  for (Case const& c : cases) {
    GenString t;
    Morvane::p3d_KindText(c.kind, &t);
    EXPECT_STREQ(t.c_str(), c.text);
  }
}

TEST(Odol, FailuresEndWithTheirCodes) {
  std::string v7 = data("target_odol7.p3d"), v73 = data("optic_odol73.p3d");
  struct Case {
    char const* what;
    std::string bytes;
    int code;
    char const* message;
  } cases[] = {
      {"version 30", [&] { std::string s = v73; put32(s, 4, 30); return s; }(), P3DERR_UNKNOWN_ODOL, "Type 30 "},
      {"v7 residue", v7 + "xyz", P3DERR_V7_EXCESS, "Warning: V7 residue of 3 bytes\r\n"},
      {"v7 truncated", v7.substr(0, v7.size() - 5), P3DERR_V7_TRUNCATED, "Warning: V7 truncated file by 5 bytes\r\n"},
      {"lying LOD count", [&] { std::string s = v73; put32(s, 13, 0x7FFFFFFF); return s; }(), GE_EOF, ""},
      // The LOD's start offset no longer names where it lies.
      {"scrambled offsets", [&] { std::string s = v73; put32(s, 0x12e, 0x138); return s; }(), GE_CODE_BUG,
       "lod offset addresses are scrambled"},
      {"cut in a LOD", v73.substr(0, 0x300), GE_EOF, ""},
  };
  for (Case const& c : cases) {
    Opened o(c.bytes);
    EXPECT_EQ(o.r, c.code) << c.what << ": " << g_msgs;
    EXPECT_NE(g_msgs.find(c.message), std::string::npos) << c.what << ": " << g_msgs;
    EXPECT_EQ(o.m->p3d_GetLodCount(), 0) << c.what;
  }
}

TEST(Odol, PackedUvExpandsBetweenItsBounds) {
  EXPECT_EQ(odol_expand_uv(-32767, 0.25f, 0.75f), 0.25f);
  EXPECT_FLOAT_EQ(odol_expand_uv(32767, 0.0f, 2.0f), 2.0f * 65534.0f / 65536.0f);
  EXPECT_FLOAT_EQ(odol_expand_uv(0, -1.0f, 1.0f), -1.0f + 2.0f * 32767.0f / 65536.0f);
}

TEST(OdolText, ModelCfgOfModelsWithoutSkeleton) {
  for (char const* name : {"optic_odol73.p3d", "target_odol7.p3d"}) {
    Opened o(data(name));
    ASSERT_EQ(o.r, 0);
    std::string t = o.m->p3d_ExtractSkeleton();
    EXPECT_EQ(t.find("skeletonName=\""), std::string::npos) << t;
    EXPECT_EQ(t.find("cfgSkeletons"), std::string::npos);
    EXPECT_NE(t.find("\t\tclass Animations\r\n\t\t{\r\n\t\t};//Animations\r\n\t};//modelclass\r\n};//CfgModels\r\n"),
              std::string::npos)
        << t;
    size_t axes = t.find("/*<potential axis>"), end = t.find("</potential axis>*/");
    ASSERT_NE(axes, std::string::npos);
    std::string listed = t.substr(axes, end - axes);
    for (char const* never : {"omponent", "proxy:", "\n*"}) EXPECT_EQ(listed.find(never), std::string::npos) << listed;
  }
}
