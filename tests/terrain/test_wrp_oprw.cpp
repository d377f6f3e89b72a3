// Binarised terrains built by the writer (no real one is at hand), then damaged on purpose: lying
// sizes end with their codes before anything is allocated, warnings never fail the read.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "anim/BisTransform.h"
#include "terrain/WrpTestUtil.h"

using namespace wrp_test;

namespace {
// Writes the small terrain as `signature` (and OPRW version) and returns the file's bytes.
std::string build(char const* signature, uint32_t version = 0, uint32_t layer = 8, uint32_t map = 16) {
  TempFolder tmp;
  Loaded l;
  fill_small(*l.t, layer, map, 5);
  std::string name = tmp / "t.wrp";
  EXPECT_EQ(l.t->wrp_Create(name.c_str(), signature, version), 0) << signature << version;
  return get_file(name);
}

// Where the reader announced a section ("Reading <section> @XXXX...").
uint32_t section_at(std::string const& bytes, char const* section) {
  Loaded l;
  EXPECT_EQ(l.open(bytes), 0);
  std::string key = std::string("Reading ") + section + " @";
  size_t at = g_msgs.find(key);
  EXPECT_NE(at, std::string::npos) << section;
  return at == std::string::npos ? 0 : uint32_t(std::stoul(g_msgs.substr(at + key.size()), nullptr, 16));
}

void put32(std::string& s, size_t at, uint32_t v) { std::memcpy(&s[at], &v, 4); }
std::string le32(uint32_t v) { return std::string(reinterpret_cast<char const*>(&v), 4); }

struct Damage {
  char const* what;
  std::function<void(std::string&)> apply;
  int result;
  char const* warning;  // expected in the error callback, or null
};

TEST(WrpOprw, DamagedFilesEndWithTheirCodes) {
  std::string const base = build("OPRW", 25);
  uint32_t const mapInfoSizeAt = section_at(base, "Compressed Bytes2") - 4;
  uint32_t const objectAreaAt = section_at(base, "packed grid 5") - 4;
  uint32_t const objectGridAt = section_at(base, "packed grid 4");
  uint32_t const cellFlagsAt = section_at(base, "Cell flags");
  uint32_t const roadsAt = section_at(base, "Roads");
  uint32_t const modelsAt = section_at(base, "Models");
  std::string const record = le32(0) + le32(7) + le32(0) + le32(0);  // a tree
  std::string const deep = std::string("\x01\xff\xff\xff\xff", 5);

  Damage const cases[] = {
      {"intact", [](std::string&) {}, 0, nullptr},
      {"map info shorter than announced",
       [&](std::string& s) { put32(s, mapInfoSizeAt, 100), s += record; }, 0,
       "***Warning*** MapInfoSize is incorrect\r\nIs 16, should be 100 \r\n"},
      {"unknown map-info type",
       [&](std::string& s) { put32(s, mapInfoSizeAt, 32), s += record + le32(40) + std::string(12, '\0'); }, 0,
       "***Warning*** unknown mapinfotype 40\r\nThe remainder of the file has not been read\r\n"},
      {"map-info record cut short", [&](std::string& s) { put32(s, mapInfoSizeAt, 10), s += le32(3) + "abcdef"; },
       WRP_BAD_MAPINFO, nullptr},
      {"object area not whole records", [&](std::string& s) { put32(s, objectAreaAt, 5 * 60 + 1); },
       WRP_BAD_OBJECT_SIZE, nullptr},
      {"object area beyond the file", [&](std::string& s) { put32(s, objectAreaAt, 0x7FFFFFC0); },
       WRP_BAD_OBJECT_SIZE, nullptr},
      {"map grid of 2^31 cells", [](std::string& s) { put32(s, 20, 65536), put32(s, 24, 32768); }, WRP_COMPRESSION,
       nullptr},
      {"map grid larger than any expansion of the file", [](std::string& s) { put32(s, 20, 8192), put32(s, 24, 8192); },
       WRP_COMPRESSION, nullptr},
      {"empty layer grid", [](std::string& s) { put32(s, 12, 0); }, WRP_COMPRESSION, nullptr},
      {"cell flags deeper than the grid", [&](std::string& s) { s.replace(cellFlagsAt, 5, deep); },
       WRP_PACKED_GRID, nullptr},
      {"packed grid deeper than the grid", [&](std::string& s) { s.replace(objectGridAt, 5, deep); },
       WRP_PACKED_GRID, nullptr},
      {"packed grid with an unknown root byte", [&](std::string& s) { s[objectGridAt] = 7; }, WRP_PACKED_GRID,
       nullptr},
      {"road network size wrong", [&](std::string& s) { put32(s, roadsAt, 8 * 8 * 4 + 4); }, WRP_ROAD_SIZES, nullptr},
      {"template count beyond the file", [&](std::string& s) { put32(s, modelsAt, 0x0FFFFFFF); },
       WRP_TEMPLATE_COUNT, nullptr},
      {"version 26", [](std::string& s) { put32(s, 4, 26); }, WRP_BAD_VERSION, nullptr},
      {"version 34", [](std::string& s) { put32(s, 4, 34); }, WRP_BAD_VERSION, nullptr},
      {"not a terrain", [](std::string& s) { s[0] = 'X'; }, WRP_NOT_WRP, nullptr},
      {"three bytes", [](std::string& s) { s.resize(3); }, WRP_NOT_WRP, nullptr},
      {"cut inside the elevations", [](std::string& s) { s.resize(200); }, WRP_COMPRESSION, nullptr},
  };
  for (auto const& c : cases) {
    std::string bytes = base;
    c.apply(bytes);
    Loaded l;
    EXPECT_EQ(l.open(bytes), c.result) << c.what << "\n" << g_errs;
    if (c.warning) {
      EXPECT_NE(g_errs.find(c.warning), std::string::npos) << c.what << "\n" << g_errs;
    }
    if (!c.result) {
      EXPECT_EQ(l.t->wrp_Objects().size(), 5u) << c.what;
    }
  }
}

TEST(WrpOprw, MapInfoRecordsBySizeTable) {
  std::string bytes = build("OPRW", 23);
  uint32_t sizeAt = section_at(bytes, "Compressed Bytes2") - 4;
  struct Rec {
    uint32_t type, size;
  } const recs[] = {{0, 16}, {3, 44}, {7, 8}, {24, 40}, {25, 28}, {33, 28}, {34, 24}};
  uint32_t total = 0;
  for (auto const& r : recs) bytes += le32(r.type) + std::string(r.size - 4, '\x01'), total += r.size;
  // A railway in version 23: 44 bytes, a word, 2 pairs, then 1 + 1 pairs.
  bytes += le32(35) + std::string(40, '\0') + le32(0) + le32(2) + std::string(16, '\0') + le32(1) +
           std::string(16, '\0');
  total += 44 + 4 + 4 + 16 + 4 + 16;
  put32(bytes, sizeAt, total);
  Loaded l;
  ASSERT_EQ(l.open(bytes), 0) << g_errs;
  EXPECT_EQ(l.t->wrp_Warnings(), 0u) << g_errs;
  ASSERT_EQ(l.t->wrp_MapInfos().size(), 8u);
  for (size_t i = 0; i < 7; ++i) EXPECT_EQ(l.t->wrp_MapInfos()[i].size, recs[i].size) << recs[i].type;
  EXPECT_EQ(l.t->wrp_MapInfos()[7].size, 88u);
  EXPECT_STREQ(Tessak::MapInfoName(35), "RAILWAY");
  EXPECT_STREQ(Tessak::MapInfoName(39), "SHIPWRECK");
  EXPECT_STREQ(Tessak::MapInfoName(40), "unknown");
}

// Version 23 files come with either coding of their arrays; both read, and an unchanged file is
// written back in the coding it came with.
TEST(WrpOprw, Version23ReadsEitherCoding) {
  std::string lzss = build("OPRW", 23, 32, 64), lzo = build("OPRW", 24, 32, 64);
  put32(lzo, 4, 23);  // without roads and map infos the two versions are laid out alike
  Loaded a, b;
  ASSERT_EQ(a.open(lzss), 0) << g_errs;
  ASSERT_EQ(b.open(lzo), 0) << g_errs;
  EXPECT_TRUE(same_ground(*a.t, *b.t));
  EXPECT_TRUE(same_objects(*a.t, *b.t));
  TempFolder tmp;
  ASSERT_EQ(b.t->wrp_Create((tmp / "again.wrp").c_str(), "OPRW"), 0);
  EXPECT_TRUE(get_file(tmp / "again.wrp") == lzo);
}

TEST(WrpOprw, OldestVersionsHaveNoLandModelsOrRoads) {
  for (uint32_t version : {2u, 3u}) {
    std::string bytes = build("OPRW", version, 256, 256);
    Loaded l;
    ASSERT_EQ(l.open(bytes), 0) << version << g_errs;
    EXPECT_EQ(g_msgs.find("land classes"), std::string::npos);
    EXPECT_EQ(g_msgs.find("Roads"), std::string::npos);
    EXPECT_EQ(l.t->wrp_Objects().size(), 5u);
    EXPECT_EQ(l.t->wrp_MapSize().x, 256u);
    // The objects fill the file up to the last word: a stray byte breaks the records.
    bytes.insert(bytes.size() - 4, 1, '\0');
    EXPECT_EQ(l.open(bytes), WRP_BAD_OBJECT_SIZE) << version;
  }
  TempFolder tmp;
  Loaded l;
  fill_small(*l.t, 8, 16, 1);
  EXPECT_EQ(l.t->wrp_Create((tmp / "v2.wrp").c_str(), "OPRW", 2), WRP_CANNOT_CONVERT);  // version 2 is 256 x 256
  EXPECT_EQ(l.t->wrp_Create((tmp / "v9.wrp").c_str(), "OPRW", 9), WRP_BAD_VERSION);
}

// The editable kinds of one grid keep heights to a twentieth of a metre; 1WVR also re-expresses
// each object as a position and a direction.
TEST(WrpOprw, SingleGridKindsRoundTrip) {
  for (char const* signature : {"4WVR", "1WVR"}) {
    TempFolder tmp;
    Loaded src, back;
    fill_small(*src.t, 8, 8, 4);
    BisTransform turn;
    turn.SetTransformArray(&src.t->wrp_EditObjects()[1].transform, false);
    turn.SetDirectionInDegrees(30, 1);
    std::string name = tmp / "t.wrp";
    ASSERT_EQ(src.t->wrp_Create(name.c_str(), signature), 0) << signature;
    ASSERT_EQ(back.t->wrp_Open(name.c_str()), 0) << signature << g_errs;
    ASSERT_EQ(back.t->wrp_Objects().size(), 4u);
    for (uint64_t i = 0; i < 64; ++i)
      EXPECT_NEAR(back.t->wrp_Elevations()[i], src.t->wrp_Elevations()[i], 0.026) << signature;
    EXPECT_EQ(std::memcmp(back.t->wrp_LayerIndex(), src.t->wrp_LayerIndex(), 64 * 2), 0);
    for (size_t i = 0; i < 4; ++i) {
      auto const &a = src.t->wrp_Objects()[i].transform, &b = back.t->wrp_Objects()[i].transform;
      EXPECT_NEAR(a.pos.x, b.pos.x, 1e-4) << signature;
      EXPECT_NEAR(a.pos.z, b.pos.z, 1e-4) << signature;
      EXPECT_NEAR(a.aside.x, b.aside.x, 1e-5) << signature << i;
      EXPECT_NEAR(a.dir.x, b.dir.x, 1e-5) << signature << i;
      EXPECT_EQ(*src.t->wrp_TemplateOf(src.t->wrp_Objects()[i]), *back.t->wrp_TemplateOf(back.t->wrp_Objects()[i]));
    }
  }
}

TEST(WrpOprw, TwoGridEditableKindsKeepEverythingExactly) {
  for (char const* signature : {"8WVR", "9WBV"}) {
    TempFolder tmp;
    Loaded src, back;
    fill_small(*src.t, 8, 16, 7);
    src.t->wrp_EditTextures()[2].names.push_back("second.rvmat");  // layers of several names survive
    std::string name = tmp / "t.wrp";
    ASSERT_EQ(src.t->wrp_Create(name.c_str(), signature), 0) << signature;
    ASSERT_EQ(back.t->wrp_Open(name.c_str()), 0) << signature << g_errs;
    EXPECT_EQ(back.t->wrp_Kind(), Tessak::KindOfSignature(signature, 4));
    EXPECT_TRUE(same_ground(*src.t, *back.t)) << signature;
    EXPECT_TRUE(same_objects(*src.t, *back.t)) << signature;
    EXPECT_EQ(back.t->wrp_Textures()[2].names.size(), 2u);
    EXPECT_EQ(back.t->wrp_GridSize(), 40.0f);
  }
}

TEST(WrpOprw, EditableRulesRefuseWhatTheKindCannotHold) {
  struct Case {
    char const* what;
    std::function<void(Tessak&)> edit;
    char const* signature;
    int result;
  } const cases[] = {
      {"513 textures", [](Tessak& t) { t.wrp_EditTextures().resize(513); }, "4WVR", WRP_TOO_MANY_PAX},
      {"32-byte name", [](Tessak& t) { t.wrp_EditTextures()[1].names = {std::string(32, 'a')}; }, "4WVR",
       WRP_PAX_NAME_LENGTH},
      {"31-byte name", [](Tessak& t) { t.wrp_EditTextures()[1].names = {std::string(31, 'a')}; }, "4WVR", 0},
      {"two names in a layer", [](Tessak& t) { t.wrp_EditTextures()[1].names.push_back("b.rvmat"); }, "4WVR",
       WRP_MULTI_LAYERS},
      {"index beyond the table", [](Tessak& t) { t.wrp_EditTextures().resize(3); }, "4WVR",
       WRP_ILLEGAL_LAYER_INDEX},
      {"used texture without a name", [](Tessak& t) { t.wrp_EditTextures()[2].names.clear(); }, "4WVR",
       WRP_EMPTY_TEXTURE},
      {"object without template", [](Tessak& t) { t.wrp_EditObjects()[0].model = 9; }, "8WVR", WRP_NO_TEMPLATE},
      {"object without template", [](Tessak& t) { t.wrp_EditObjects()[0].model = 9; }, "OPRW", WRP_NO_TEMPLATE},
  };
  for (auto const& c : cases) {
    TempFolder tmp;
    Loaded l;
    fill_small(*l.t, 8, 8, 2);
    c.edit(*l.t);
    EXPECT_EQ(l.t->wrp_Create((tmp / "t.wrp").c_str(), c.signature), c.result) << c.what;
  }
}

TEST(WrpOprw, LayerGridSpreadsOverTheMapForOneGridKinds) {
  TempFolder tmp;
  Loaded src, back;
  fill_small(*src.t, 4, 16, 1);
  std::string name = tmp / "t.wrp";
  ASSERT_EQ(src.t->wrp_Create(name.c_str(), "4WVR"), 0);
  ASSERT_EQ(back.t->wrp_Open(name.c_str()), 0);
  EXPECT_EQ(back.t->wrp_LayerSize().x, 16u);
  uint16_t const* idx = back.t->wrp_LayerIndex();
  EXPECT_EQ(idx[0], idx[3]);
  EXPECT_EQ(idx[4], 1 + (1 / 3) % 4);
  EXPECT_EQ(idx[16 * 4], 1 + (4 / 3) % 4);  // the first cell of the second layer row
  Loaded odd;
  fill_small(*odd.t, 5, 16, 1);
  EXPECT_EQ(odd.t->wrp_Create(name.c_str(), "4WVR"), WRP_CANNOT_CONVERT);
  // A refused conversion leaves the terrain as it was.
  Loaded refused;
  fill_small(*refused.t, 4, 16, 1);
  refused.t->wrp_EditTextures()[1].names = {std::string(40, 'x')};
  EXPECT_EQ(refused.t->wrp_Create(name.c_str(), "4WVR"), WRP_PAX_NAME_LENGTH);
  EXPECT_EQ(refused.t->wrp_LayerSize().x, 4u);
  EXPECT_EQ(refused.t->wrp_Kind(), Tessak::KIND_8WVR);
}

TEST(WrpOprw, ErrorTexts) {
  struct Case {
    int code;
    char const* text;
  } const cases[] = {{10, "Wrp: Not a WRP file"},
                     {11, "Wrp: Invalid version for OPWR wrp file"},
                     {25, "pax file name exceeds 31 bytes for 4wvr"},
                     {32, "wrong road sizes detected"},
                     {1, "Generic error or premature EOF"}};
  for (auto const& c : cases) EXPECT_STREQ(Tessak::ErrorString(c.code), c.text);
}
}  // namespace
