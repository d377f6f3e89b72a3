#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <set>

#include "WrpTestUtil.h"
#include "config/Sembric.h"
#include "terrain/Grindel.h"

namespace {
using namespace wrp_test;

// A terrain and a project tool sharing one context, with every message captured.
struct Pair : Loaded {
  Grindel* g = dll.dll_GetGrindel();
  TempFolder tmp;
  Pair() {
    g->pew_GetIO()->io_SetStdioCallBack(capture_msg);
    g->pew_GetIO()->io_SetErrCallBack(capture_err);
  }
  int reopen(std::string const& bytes) {
    pew = bytes;
    return g->pew_Open(reinterpret_cast<unsigned char const*>(pew.data()), unsigned(pew.size()), nullptr);
  }
  std::string write() {
    EXPECT_EQ(g->pew_Write((tmp / "p.pew").c_str()), 0);
    return get_file(tmp / "p.pew");
  }
  std::string pew;
  std::string errs;  // the errors of making and reopening, kept past later contexts
};

size_t count_of(std::string const& text, std::string const& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// The project holds the terrain's ground and objects, and a terrain built back from it holds them
// again; ids of the project are unique.
void check_round_trip(Pair& p, int version) {
  Tessak const& t = *p.t;
  std::string file = p.tmp / "made.pew";
  ASSERT_EQ(p.g->MakePew(file.c_str(), version, p.t, nullptr, nullptr), 0) << g_errs;
  ASSERT_EQ(p.g->pew_Open(file.c_str(), nullptr), 0) << g_errs;
  Grindel const& g = *p.g;
  EXPECT_EQ(g.pew_Version(), version);
  EXPECT_EQ(g.pew_GridSize(), t.wrp_GridSize());
  uint64_t cells = uint64_t(t.wrp_MapSize().x) * t.wrp_MapSize().y;
  ASSERT_EQ(g.elevations.heights.size(), cells);
  EXPECT_EQ(std::memcmp(g.elevations.heights.data(), t.wrp_Elevations(), cells * 4), 0);
  ASSERT_EQ(g.layers.size(), 1u);
  PewLayer const& base = g.layers[0];
  ASSERT_EQ(base.cells.size(), uint64_t(t.wrp_LayerSize().x) * t.wrp_LayerSize().y);
  EXPECT_EQ(std::memcmp(base.cells.data(), t.wrp_LayerIndex(), base.cells.size() * 2), 0);
  ASSERT_GE(base.materials.size(), t.wrp_Textures().size());
  for (size_t i = 0; i < t.wrp_Textures().size(); ++i) EXPECT_EQ(base.materials[i].names, t.wrp_Textures()[i].names);
  ASSERT_EQ(g.objects.size(), t.wrp_Objects().size());
  std::set<uint32_t> ids;
  std::set<uint32_t> source_ids;
  size_t duplicates = 0;
  for (size_t i = 0; i < g.objects.size(); ++i) {
    ids.insert(g.objects[i].objectId);
    uint32_t id = t.wrp_Objects()[i].id;
    duplicates += id > Grindel::kMaxObjectId || !source_ids.insert(id).second;
    EXPECT_EQ(std::memcmp(&g.objects[i].transform, &t.wrp_Objects()[i].transform, sizeof(XYZTransform)), 0);
    std::string const* model = t.wrp_TemplateOf(t.wrp_Objects()[i]);
    ASSERT_NE(g.pew_TemplateOf(g.objects[i].modelId), nullptr);
    if (model && !model->empty()) {
      EXPECT_EQ(g.pew_TemplateOf(g.objects[i].modelId)->model, *model);
    }
  }
  EXPECT_EQ(ids.size(), g.objects.size());
  EXPECT_EQ(count_of(g_errs, "warning, duplicated object id"), duplicates);
  p.errs = g_errs;

  Loaded back;
  ASSERT_EQ(back.t->wrp_CreateFromPew(Tessak::KIND_8WVR, p.g, nullptr), 0);
  std::string wrp = p.tmp / "back.wrp";
  ASSERT_EQ(back.t->wrp_Create(wrp.c_str(), "8WVR"), 0);
  ASSERT_EQ(back.t->wrp_Open(wrp.c_str()), 0);
  ASSERT_EQ(back.t->wrp_MapSize().x, t.wrp_MapSize().x);
  ASSERT_EQ(back.t->wrp_MapSize().y, t.wrp_MapSize().y);
  for (uint64_t i = 0; i < cells; ++i)
    ASSERT_NEAR(back.t->wrp_Elevations()[i], t.wrp_Elevations()[i], Tessak::kHeightStep / 2) << i;
  ASSERT_EQ(back.t->wrp_Objects().size(), t.wrp_Objects().size());
  for (size_t i = 0; i < t.wrp_Objects().size(); ++i)
    ASSERT_EQ(std::memcmp(&back.t->wrp_Objects()[i].transform, &t.wrp_Objects()[i].transform, sizeof(XYZTransform)),
              0);
}

TEST(Pew, EveryCorpusTerrainMakesAProjectAndComesBack) {
  auto dir = corpus_dir() / "wrp";
  if (!std::filesystem::is_directory(dir)) GTEST_SKIP() << "no corpus";
  for (auto const& entry : std::filesystem::directory_iterator(dir)) {
    for (int version : {58, 59, 60}) {
      SCOPED_TRACE(entry.path().string() + " v" + std::to_string(version));
      Pair p;
      ASSERT_EQ(p.t->wrp_Open(entry.path().c_str()), 0);
      check_round_trip(p, version);
    }
  }
}

TEST(Pew, DuplicatedIdsAreRenumberedOnceEach) {
  Pair p;
  fill_small(*p.t, 4, 8, 6);
  auto& obj = p.t->wrp_EditObjects();
  uint32_t ids[] = {5, 5, 7, 5, 0xFFFFFFFFu, 2};
  for (size_t i = 0; i < obj.size(); ++i) obj[i].id = ids[i];
  check_round_trip(p, 59);
  EXPECT_EQ(count_of(p.errs, "warning, duplicated object id"), 3u);
  EXPECT_NE(p.errs.find("warning, duplicated object id 5 is replaced with 8\r\n"), std::string::npos);
}

TEST(Pew, HeaderAndSizeFields) {
  Pair p;
  fill_small(*p.t, 4, 4, 3);
  std::string file = p.tmp / "a.pew";
  ASSERT_EQ(p.g->MakePew(file.c_str(), 59, p.t, nullptr, nullptr), 0);
  std::string good = get_file(file);
  auto with_size = [&](int64_t delta) {
    std::string s = good;
    uint32_t v = uint32_t(int64_t(s.size()) + delta);
    std::memcpy(&s[7], &v, 4);
    return s;
  };
  std::string reserved = good;
  reserved[11] = 1;
  struct Case {
    char const* name;
    std::string bytes;
    int code;
  } cases[] = {
      {"as made", good, 0},
      {"size one more", with_size(1), PEW_FILESIZE},
      {"size one less", with_size(-1), PEW_FILESIZE},
      {"trailing byte (size agrees)", [&] { std::string s = good + '\0'; uint32_t v = uint32_t(s.size()); std::memcpy(&s[7], &v, 4); return s; }(), GE_RESIDUAL_BYTES},
      {"unknown signature", "POSEW61" + good.substr(7), PEW_UNKNOWN_HEADER},
      {"short", "POSEW", PEW_UNKNOWN_HEADER},
      {"reserved word set", reserved, Grindel::kDetectedError},
      {"truncated", [&] { std::string s = good.substr(0, good.size() - 9); uint32_t v = uint32_t(s.size()); std::memcpy(&s[7], &v, 4); return s; }(), PEW_CANNOT_DECODE},
  };
  for (Case const& c : cases) EXPECT_EQ(p.reopen(c.bytes), c.code) << c.name;
}

TEST(Pew, Version28HasNoSizeFieldsAndTakesDefaultGrid) {
  Pair p;
  p.g->pew_New(28, 12.5f);
  p.g->oldElevations = {2, 1, {1.5f, 2.5f}, {}};
  std::string bytes = p.write();
  EXPECT_EQ(bytes.compare(0, 7, "POSEW28"), 0);
  ASSERT_EQ(p.reopen(bytes), 0) << g_errs;
  EXPECT_EQ(p.g->pew_GridSize(), 50.0f);
  EXPECT_EQ(p.g->pew_SegmentSize(), 480.0f);
  EXPECT_EQ(p.g->oldElevations.heights, (std::vector<float>{1.5f, 2.5f}));
}

// Every word of a small project set to the largest count ends with a code and allocates nothing
// it could not fill.
TEST(Pew, HostileWordsEndWithCodes) {
  Pair p;
  fill_small(*p.t, 2, 2, 2);
  std::string file = p.tmp / "h.pew";
  ASSERT_EQ(p.g->MakePew(file.c_str(), 60, p.t, nullptr, nullptr), 0);
  std::string good = get_file(file);
  for (size_t at = 11; at + 4 <= good.size(); ++at) {
    std::string s = good;
    std::memset(&s[at], 0xFF, 4);
    int r = p.reopen(s);
    EXPECT_TRUE(r == 0 || (r >= 1 && r <= 20)) << at;
  }
}

// Sections the library does not interpret come back byte for byte.
TEST(Pew, KeptBlocksAndRecordsComeBackUnchanged) {
  Pair p;
  p.g->pew_New(60, 25.0f);
  Grindel& g = *p.g;
  g.ofpTextures = {{"sand", {1, 2, 3}}};
  g.noOfpTerrains = 0;
  g.ofpTerrains = {{"grass", {9}}};
  g.roadNets = {{"asphalt", {}}};
  g.templates = {{"a.p3d", 1, 0, 1, 2, {7, 7}}, {"b.p3d", 3, 4, 1, 2, {}}};
  g.objects = {{1, 10, 3, {}}};
  g.layers = {{"Base", 1, 1, {{PewTerrainMaterial::RVMAT, 0, {"x.rvmat"}}}, {0}}};
  g.namedZones = {{1, 0, "zone", 1, 2, 3, {0, 0, 1, 1}, 4, "second", 1}};
  g.altNamedZones = {{1, 1, "alt", 1, 2, 3, {}, 5, "", 0}};
  g.roadBlocks = {{0, 0, 1, "crossing", {{0, {{1, 2, "curve.p3d", {}}, {0, 0, "str.p3d", {}}}}}}};
  g.keyPoints = {{"town", {0xAA, 0xBB}}};
  g.backGrounds = {{"map.png", {1}}};
  g.selections = {{"all", {1, 0, 0, 0, 10, 0, 0, 0}}};
  std::string first = p.write();
  ASSERT_EQ(p.reopen(first), 0) << g_errs;
  EXPECT_EQ(g.keyPoints[0].body, (std::vector<uint8_t>{0xAA, 0xBB}));
  EXPECT_EQ(g.roadBlocks[0].lists[0].models[0].curve, 2u);
  EXPECT_EQ(p.write(), first);
}

TEST(Pew, ReaderChecks) {
  struct Case {
    char const* name;
    void (*edit)(Grindel&);
    int code;
  } cases[] = {
      {"same model twice", [](Grindel& g) { g.templates[1].model = g.templates[0].model; }, PEW_DUPLICATE_TEMPLATE},
      {"same model id twice", [](Grindel& g) { g.templates[1].modelId = g.templates[0].modelId; }, PEW_DUPLICATE_TEMPLATE},
      {"model ids falling", [](Grindel& g) { std::swap(g.templates[0].modelId, g.templates[1].modelId); }, PEW_NON_LINEAR_MODEL},
      {"object of no model", [](Grindel& g) { g.objects[0].modelId = 99; }, PEW_NO_MODEL},
      {"object id twice", [](Grindel& g) { g.objects[1].objectId = g.objects[0].objectId; }, PEW_DUAL_INSTANCE},
      {"object id too large", [](Grindel& g) { g.objects[0].objectId = 0x80000000u; }, PEW_BAD_INSTANCE_ID},
      {"layer twice", [](Grindel& g) { g.layers.push_back(g.layers[0]); }, PEW_DUPLICATE_LAYER},
      {"material beyond list", [](Grindel& g) { g.layers[0].cells[0] = uint16_t(g.layers[0].materials.size()); }, PEW_MATERIAL_INDEX},
  };
  for (Case const& c : cases) {
    Pair p;
    fill_small(*p.t, 4, 4, 3);
    ASSERT_EQ(p.g->MakePew((p.tmp / "m.pew").c_str(), 60, p.t, nullptr, nullptr), 0);
    ASSERT_EQ(p.g->pew_Open((p.tmp / "m.pew").c_str(), nullptr), 0);
    c.edit(*p.g);
    EXPECT_EQ(p.reopen(p.write()), c.code) << c.name;
  }
}

TEST(Pew, RoadBlockOddities) {
  Pair p;
  p.g->pew_New(59, 50.0f);
  p.g->roadBlocks = {{1, 1, 7, "odd", {{1, {{9, 0, "m.p3d", {}}, {1, 6, "c.p3d", {}}}}}}};
  ASSERT_EQ(p.reopen(p.write()), 0);
  for (char const* w : {"PewRoadBlock has non-zero flag\r\n", "PewRoadBlock has non-zero flag2\r\n",
                        "PewRoadBlock has Type != 0..3\r\n", "PewRoadBlockModelList has non-zero flag\r\n",
                        "PewRoadBlockModel Type not 0..3\r\n", "curved road unknown type 6\r\n"})
    EXPECT_NE(g_errs.find(w), std::string::npos) << w;
  EXPECT_EQ(p.g->pew_Warnings(), 6u);
}

// Model colours from a colour config, as text or binarised, as flat or nested pairs; the rest keep the
// default colour.
TEST(Pew, ColourConfig) {
  struct Case {
    char const* name;
    char const* text;
    bool binarised;
    int code;
    uint32_t tree, house;  // data3d\tree.p3d and data3d\house.p3d: r, g, b, a
  } cases[] = {
      {"pairs", "class objects { colors[] = {\"TREE\", 0x102030, \"house\", 255}; };", false, 0, 0xFF302010u,
       0xFFFF0000u},
      {"nested pairs, binarised", "class objects { colors[] = {{\"house\", 0x0000FF}}; };", true, 0,
       kPewDefaultColour, 0xFFFF0000u},
      {"nested elsewhere", "class other { class objects { colors[]={\"tree\",1}; }; };", false, PEW_BAD_CONFIG, 0, 0},
      {"odd list", "class objects { colors[] = {\"tree\"}; };", false, PEW_BAD_CONFIG, 0, 0},
      {"colour not a number", "class objects { colors[] = {\"tree\", \"red\"}; };", false, PEW_BAD_CONFIG, 0, 0},
      {"no class", "x = 1;", false, PEW_BAD_CONFIG, 0, 0},
  };
  for (Case const& c : cases) {
    Pair p;
    fill_small(*p.t, 4, 4, 2);
    std::string cfg = p.tmp / "c.hpp";
    put_file(cfg, c.text);
    if (c.binarised) {
      Sembric* rap = p.dll.dll_GetRap();
      ASSERT_EQ(rap->rap_Create(cfg.c_str(), 0, capture_err), 0) << g_errs;
      cfg = p.tmp / "c.bin";
      ASSERT_EQ(rap->rap_Output(cfg.c_str(), Sembric::RAPO_ARMA), 0);
    }
    EXPECT_EQ(p.g->MakePew((p.tmp / "c.pew").c_str(), c.binarised ? 58 : 60, p.t, nullptr, cfg.c_str()), c.code)
        << c.name << g_errs;
    if (c.code) continue;
    ASSERT_EQ(p.g->pew_Open((p.tmp / "c.pew").c_str(), nullptr), 0);
    EXPECT_EQ(p.g->templates[0].colour, c.tree) << c.name;
    EXPECT_EQ(p.g->templates[1].colour, c.house) << c.name;
  }
}

TEST(Pew, UnknownVersionIsRefused) {
  Pair p;
  fill_small(*p.t, 4, 4, 1);
  EXPECT_EQ(p.g->MakePew((p.tmp / "v.pew").c_str(), 57, p.t, nullptr, nullptr), 3);
  EXPECT_NE(g_msgs.find("unknown pose type\r\n"), std::string::npos);
}
}  // namespace
