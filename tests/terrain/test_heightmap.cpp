// Terrains as grids: which way the rows run, grids that come back exactly, real terrains whose
// grids hold their stored elevations, and damaged grids refused with their codes and line numbers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "anim/BisTransform.h"
#include "terrain/Heightmap.h"
#include "terrain/ObjectListing.h"
#include "terrain/WrpTestUtil.h"
#include "texture/PngImage.h"

using namespace wrp_test;

namespace {
// A terrain whose heights say where they stand: column + 1000 * row (rows from the south), with a
// fraction no decimal prints shortly, so that any reordering or rounding shows.
void fill_marked(Tessak& t, uint32_t cols, uint32_t rows, float cell) {
  t.wrp_SetGrids({cols, rows}, {cols, rows}, cell);
  std::vector<float> h(uint64_t(cols) * rows);
  for (uint32_t r = 0; r < rows; ++r)
    for (uint32_t c = 0; c < cols; ++c) h[r * cols + c] = float(c + 1000.0 * r - 2500) + 1.0f / 3;
  t.wrp_SetElevations(h.data());
}

struct Grid {
  Heightmap hm;
  Grid() {
    hm.hm_GetIO()->io_SetStdioCallBack(capture_msg);
    hm.hm_GetIO()->io_SetErrCallBack(capture_err);
  }
};

bool same_heights(Tessak const& t, Heightmap const& g) {
  uLongPair m = t.wrp_MapSize();
  return g.hm_Columns() == m.x && g.hm_Rows() == m.y &&
         std::memcmp(g.hm_Heights().data(), t.wrp_Elevations(), uint64_t(m.x) * m.y * 4) == 0;
}

TEST(Heightmap, FilesPutTheNorthernRowFirst) {
  TempFolder tmp;
  Loaded l;
  fill_marked(*l.t, 3, 4, 2.5f);
  Grid g;
  ASSERT_EQ(g.hm.hm_FromTerrain(*l.t), 0);
  ASSERT_EQ(g.hm.hm_Write((tmp / "t.asc").c_str(), Heightmap::FORM_ASC), 0);
  ASSERT_EQ(g.hm.hm_Write((tmp / "t.xyz").c_str(), Heightmap::FORM_XYZ), 0);
  std::string const asc =
      "ncols 3\nnrows 4\nxllcorner 0\nyllcorner 0\ncellsize 2.5\n"
      "500.33334 501.33334 502.33334\n-499.66666 -498.66666 -497.66666\n";
  EXPECT_EQ(get_file(tmp / "t.asc").substr(0, asc.size()), asc);
  EXPECT_EQ(get_file(tmp / "t.xyz").substr(0, 54), "0 7.5 500.33334\n2.5 7.5 501.33334\n5 7.5 502.33334\n0 5 ");
  EXPECT_NE(g_msgs.find("3 x 4 heights of 2.5 m cells, -2499.6667 m to 502.33334 m"), std::string::npos) << g_msgs;
}

// Terrain to grid to terrain, in every text form and with odd sizes and cells: the same floats.
TEST(Heightmap, GridsComeBackExactly) {
  struct Case {
    char const* name;
    uint32_t cols, rows;
    float cell;
    int form;
  } const cases[] = {
      {"asc square", 16, 16, 4, Heightmap::FORM_ASC},   {"xyz square", 16, 16, 4, Heightmap::FORM_XYZ},
      {"asc oblong", 5, 9, 0.1f, Heightmap::FORM_ASC},   {"xyz oblong", 5, 9, 0.1f, Heightmap::FORM_XYZ},
      {"xyz fine cells", 7, 3, 7.3333f, Heightmap::FORM_XYZ}, {"one row", 6, 1, 50, Heightmap::FORM_ASC},
  };
  TempFolder tmp;
  for (auto const& c : cases) {
    Loaded src;
    fill_marked(*src.t, c.cols, c.rows, c.cell);
    src.t->wrp_EditTemplates() = {"x.p3d"};
    Grid out, in, again;
    ASSERT_EQ(out.hm.hm_FromTerrain(*src.t), 0) << c.name;
    std::string file = tmp / (c.form == Heightmap::FORM_ASC ? "g.asc" : "g.xyz");
    ASSERT_EQ(out.hm.hm_Write(file.c_str(), c.form), 0) << c.name;
    ASSERT_EQ(in.hm.hm_Read(file.c_str()), 0) << c.name << g_errs;
    EXPECT_TRUE(same_heights(*src.t, in.hm)) << c.name;
    EXPECT_EQ(float(in.hm.hm_CellSize()), c.cell) << c.name;
    Loaded made;
    ASSERT_EQ(in.hm.hm_ToTerrain(*made.t), 0) << c.name;
    bool odd = (c.cols & (c.cols - 1)) || (c.rows & (c.rows - 1));
    EXPECT_EQ(g_errs.find("is not a power of two") != std::string::npos, odd) << c.name << g_errs;
    EXPECT_TRUE(same_heights(*made.t, in.hm)) << c.name;
    EXPECT_EQ(made.t->wrp_GridSize(), c.cell) << c.name;
    EXPECT_TRUE(made.t->wrp_Objects().empty() && made.t->wrp_Templates().empty()) << c.name;
    ASSERT_EQ(made.t->wrp_Textures().size(), 2u);
    EXPECT_EQ(made.t->wrp_Textures()[1].first(), Heightmap::kDefaultTexture);
    EXPECT_EQ(made.t->wrp_LayerIndex()[0], 1);
    std::string wrp = tmp / "made.wrp";
    ASSERT_EQ(made.t->wrp_Create(wrp.c_str(), "8WVR"), 0);
    Loaded back;
    ASSERT_EQ(back.t->wrp_Open(wrp.c_str()), 0) << c.name;
    ASSERT_EQ(again.hm.hm_FromTerrain(*back.t), 0);
    std::string second = tmp / "again";
    ASSERT_EQ(again.hm.hm_Write(second.c_str(), c.form), 0);
    EXPECT_EQ(get_file(second), get_file(file)) << c.name;
  }
}

// Real terrains and the binarised ones the writer makes of them: the grid holds every stored
// elevation and the cell size; the PNG spans the terrain's lowest to highest elevation.
TEST(Heightmap, CorpusTerrainsGiveTheirStoredElevations) {
  if (!std::filesystem::is_directory(corpus_dir() / "wrp")) GTEST_SKIP() << "no corpus";
  struct Case {
    char const* file;
    double cell;
  } const cases[] = {{"avebury_avebury.wrp", 4}, {"grm_world01.wrp", 2}, {"cwrce_synthetic_test_world_4wvr.wrp", 50}};
  TempFolder tmp;
  for (auto const& c : cases) {
    for (uint32_t version : {0u, 3u, 25u}) {
      Loaded l;
      std::string source = (corpus_dir() / "wrp" / c.file).string();
      ASSERT_EQ(l.t->wrp_Open(source.c_str()), 0);
      if (version) {
        std::string oprw = tmp / "b.wrp";
        ASSERT_EQ(l.t->wrp_Create(oprw.c_str(), "OPRW", version), 0);
        ASSERT_EQ(l.t->wrp_Open(oprw.c_str()), 0);
      }
      Grid g, read;
      ASSERT_EQ(g.hm.hm_FromTerrain(*l.t), 0) << c.file;
      std::string asc = tmp / "c.asc", png = tmp / "c.png";
      ASSERT_EQ(g.hm.hm_Write(asc.c_str(), Heightmap::FORM_ASC), 0);
      ASSERT_EQ(read.hm.hm_Read(asc.c_str()), 0) << c.file << g_errs;
      EXPECT_TRUE(same_heights(*l.t, read.hm)) << c.file << " v" << version;
      // The oldest binarised terrains keep no cell size: theirs are 50 m wide.
      if (version != 3) {
        EXPECT_EQ(read.hm.hm_CellSize(), c.cell) << c.file << " v" << version;
      }
      Loaded made;
      Grid again;
      ASSERT_EQ(read.hm.hm_ToTerrain(*made.t), 0);
      ASSERT_EQ(again.hm.hm_FromTerrain(*made.t), 0);
      std::string second = tmp / "again.asc";
      ASSERT_EQ(again.hm.hm_Write(second.c_str(), Heightmap::FORM_ASC), 0);
      EXPECT_TRUE(get_file(second) == get_file(asc)) << c.file << " v" << version;

      ASSERT_EQ(g.hm.hm_Write(png.c_str(), Heightmap::FORM_PNG), 0);
      std::string bytes = get_file(png);
      PngImage image;
      ASSERT_EQ(PngImage::decode(reinterpret_cast<uint8_t const*>(bytes.data()), bytes.size(), image), "");
      EXPECT_EQ(image.width, l.t->wrp_MapSize().x);
      EXPECT_EQ(image.bit_depth, 16);
      EXPECT_EQ(image.channels, 1);
      float const* h = l.t->wrp_Elevations();
      uint64_t n = uint64_t(l.t->wrp_MapSize().x) * l.t->wrp_MapSize().y;
      auto [lo, hi] = std::minmax_element(h, h + n);
      std::map<std::string, std::string> texts(image.texts.begin(), image.texts.end());
      EXPECT_EQ(std::stof(texts[Heightmap::kPngMinKey]), *lo) << c.file;
      EXPECT_EQ(std::stof(texts[Heightmap::kPngMaxKey]), *hi) << c.file;
      auto const* grey = reinterpret_cast<uint16_t const*>(image.pixels.data());
      auto [dark, light] = std::minmax_element(grey, grey + n);
      EXPECT_EQ(*dark, 0);
      EXPECT_EQ(*light, *hi > *lo ? 65535 : 0);
    }
  }
}

// Every kind the terrain tool writes gives back its stored elevations; the single-grid kinds keep
// twentieths of a metre, so the heights are made of those.
TEST(Heightmap, EveryKindGivesItsElevations) {
  struct Kind {
    char const* signature;
    uint32_t version, side;
  } const kinds[] = {{"8WVR", 0, 16},  {"9WBV", 0, 16},  {"4WVR", 0, 16},  {"1WVR", 0, 16},  {"OPRW", 2, 256},
                     {"OPRW", 3, 16},  {"OPRW", 17, 16}, {"OPRW", 20, 16}, {"OPRW", 24, 16}, {"OPRW", 33, 16}};
  TempFolder tmp;
  for (auto const& k : kinds) {
    Loaded src;
    src.t->wrp_SetGrids({k.side, k.side}, {k.side, k.side}, 10);
    std::vector<float> h(k.side * k.side);
    for (size_t i = 0; i < h.size(); ++i) h[i] = float(int(i * 37 % 2001) - 1000) * Tessak::kHeightStep;
    src.t->wrp_SetElevations(h.data());
    src.t->wrp_EditTextures().resize(1);  // every layer cell names the empty first entry
    std::string file = tmp / "k.wrp";
    ASSERT_EQ(src.t->wrp_Create(file.c_str(), k.signature, k.version), 0) << k.signature << k.version;
    Loaded back;
    ASSERT_EQ(back.t->wrp_Open(file.c_str()), 0);
    Grid g;
    ASSERT_EQ(g.hm.hm_FromTerrain(*back.t), 0) << k.signature << k.version;
    EXPECT_TRUE(same_heights(*src.t, g.hm)) << k.signature << k.version;
    EXPECT_EQ(g.hm.hm_Min(), *std::min_element(h.begin(), h.end()));
  }
}

TEST(Heightmap, ReadsWhatGisToolsWrite) {
  struct Case {
    char const* name;
    std::string text;
    uint32_t cols, rows;
    double cell;
    std::vector<float> south_first;
  } const cases[] = {
      {"CR LF, tabs, centre, no-data unused, upper case",
       "NCOLS 2\r\nNROWS 2\r\nXLLCENTER 200000\r\nYLLCENTER 0\r\nCELLSIZE 5\r\nNODATA_VALUE -9999\r\n"
       "1\t2\r\n3 +4e0\r\n",
       2, 2, 5, {3, 4, 1, 2}},
      {"a height too small for a float", "ncols 2\nnrows 1\ncellsize 1\n1e-60 -2.5\n", 2, 1, 1, {0, -2.5}},
      {"byte order mark, dx and dy, no corner, no last line end",
       "\xEF\xBB\xBFncols 1\nnrows 2\ndx 2\ndy 2\n7\n8", 1, 2, 2, {8, 7}},
      {"xyz with column names and commas", "x,y,z\n0,10,1\n10,10,2\n0,0,3\n10,0,4\n", 2, 2, 10, {3, 4, 1, 2}},
      {"xyz column by column, south first, offset origin",
       "500 100 1\n500 102.5 2\n502.5 100 3\n502.5 102.5 4\n", 2, 2, 2.5, {1, 3, 2, 4}},
      {"xyz shuffled rows", "0 1 5\n1 1 6\n0 0 7\n1 0 8\n0 2 1\n1 2 2\n", 2, 3, 1, {7, 8, 5, 6, 1, 2}},
  };
  for (auto const& c : cases) {
    Grid g;
    ASSERT_EQ(g.hm.hm_Read(c.text.data(), c.text.size()), 0) << c.name << g_errs;
    EXPECT_EQ(g.hm.hm_Columns(), c.cols) << c.name;
    EXPECT_EQ(g.hm.hm_Rows(), c.rows) << c.name;
    EXPECT_EQ(g.hm.hm_CellSize(), c.cell) << c.name;
    EXPECT_EQ(g.hm.hm_Heights(), c.south_first) << c.name;
  }
}

TEST(Heightmap, DamagedGridsAreRefusedWithTheirLine) {
  std::string const head = "ncols 3\nnrows 2\nxllcorner 0\nyllcorner 0\ncellsize 10\n";
  struct Case {
    char const* name;
    std::string text;
    int code;
    char const* message;
  } const cases[] = {
      {"empty", "", GRID_UNKNOWN_FORM, "the file is empty"},
      {"a picture", "\x89PNG\r\n\x1a\n", GRID_UNKNOWN_FORM, "neither an ESRI grid header"},
      {"short row", head + "1 2 3\n4 5\n", GRID_ROW_LENGTH, "line 7 (row 2) has 2 heights where ncols is 3"},
      {"long row", head + "1 2 3 4\n4 5 6\n", GRID_ROW_LENGTH, "line 6 (row 1) has 4 heights where ncols is 3"},
      {"missing row", head + "100 200 300\n", GRID_ROW_LENGTH, "the grid ends after 1 rows; nrows is 2"},
      {"extra row", head + "1 2 3\n4 5 6\n7 8 9\n", GRID_ROW_LENGTH, "line 8: more rows than nrows (2)"},
      {"decimal comma", head + "1 2 3\n4 5,5 6\n", GRID_NOT_A_NUMBER, "line 7, value 2: '5,5' is not a number"},
      {"NaN", head + "1 nan 3\n4 5 6\n", GRID_BAD_ELEVATION, "line 6, value 2: nan is no elevation"},
      {"infinite", head + "1 2 3\n4 5 1e999\n", GRID_BAD_ELEVATION, "line 7, value 3: 1e999 is no elevation"},
      {"no data", head + "NODATA_value -9999\n1 2 3\n4 -9999 -9999\n", GRID_BAD_ELEVATION,
       "2 cells hold the no-data value -9999 (the first on line 8, value 2)"},
      {"absurd size", "ncols 99999999\nnrows 99999999\ncellsize 1\n1\n", GRID_BAD_SIZE, "larger than any terrain"},
      {"size the file cannot hold", "ncols 4000\nnrows 4000\ncellsize 1\n1 2\n", GRID_BAD_SIZE,
       "cannot fit in the 4 bytes"},
      {"negative size", "ncols -3\nnrows 2\ncellsize 1\n1 2 3\n", GRID_BAD_SIZE, "ncols -3 is not a count"},
      {"zero cell", "ncols 1\nnrows 1\ncellsize 0\n1\n", GRID_BAD_CELL, "cellsize 0 m is out of range"},
      {"absurd cell", "ncols 1\nnrows 1\ncellsize 1e30\n1\n", GRID_BAD_CELL, "cellsize 1e+30 m is out of range"},
      {"world too wide", "ncols 1001\nnrows 1\ncellsize 9999\n1\n", GRID_BAD_CELL, "10009 km across"},
      {"oblong cells", "ncols 1\nnrows 1\ndx 1\ndy 2\n1\n", GRID_NOT_SQUARE, "cells of 1 m by 2 m"},
      {"no cell size", "ncols 1\nnrows 1\n1\n", GRID_BAD_HEADER, "the header has no cellsize"},
      {"unknown keyword", "ncols 1\nnrows 1\nrotation 5\n", GRID_BAD_HEADER, "line 3: 'rotation' is not a keyword"},
      {"twice", "ncols 1\nncols 1\n", GRID_BAD_HEADER, "line 2: ncols is given twice"},
      {"xyz short line", "0 0 1\n1 0\n", GRID_ROW_LENGTH, "line 2 has 2 values"},
      {"xyz text", "0 0 1\n1 zero 2\n", GRID_NOT_A_NUMBER, "line 2: the y 'zero' is not a position"},
      {"xyz NaN", "0 0 1\n1 0 NaN\n", GRID_BAD_ELEVATION, "line 2: NaN is no elevation"},
      {"xyz hole", "0 0 1\n1 0 2\n0 1 3\n", GRID_IRREGULAR, "3 points do not fill a grid of 2 x 2"},
      {"xyz twice", "0 0 1\n1 0 2\n0 1 3\n0 1 4\n", GRID_IRREGULAR, "line 4: a second point at 0, 1"},
      {"xyz off the grid", "0 0 1\n1 0 2\n2 0 3\n0 1 4\n1.15 1 5\n2 1 6\n", GRID_IRREGULAR,
       "line 5: the point at 1.15, 1 lies between"},
      {"xyz one point", "5 5 5\n", GRID_BAD_SIZE, "one point makes no grid"},
      {"xyz far apart", "0 0 1\n0.01 0 1\n1e6 0 1\n", GRID_BAD_SIZE, "more heights than any terrain"},
  };
  for (auto const& c : cases) {
    Grid g;
    clear_captured();
    EXPECT_EQ(g.hm.hm_Read(c.text.data(), c.text.size()), c.code) << c.name << ": " << g_errs;
    EXPECT_NE(g_errs.find(c.message), std::string::npos) << c.name << ": " << g_errs;
    EXPECT_EQ(g.hm.hm_Columns(), 0u) << c.name;
    EXPECT_TRUE(g.hm.hm_Heights().empty()) << c.name;
  }
}

TEST(Heightmap, TerrainsThatMakeNoGrid) {
  Grid g;
  Loaded none;
  EXPECT_EQ(g.hm.hm_FromTerrain(*none.t), GE_INVALID_FILE);
  Loaded oblong;
  oblong.t->wrp_SetGrids({2, 4}, {4, 4}, 10);  // layer cells 10 m by 10 m, map cells 5 m by 10 m
  EXPECT_EQ(g.hm.hm_FromTerrain(*oblong.t), GRID_NOT_SQUARE);
  Loaded broken;
  fill_marked(*broken.t, 4, 4, 10);
  std::vector<float> h(broken.t->wrp_Elevations(), broken.t->wrp_Elevations() + 16);
  h[6] = std::nanf("");
  broken.t->wrp_SetElevations(h.data());
  clear_captured();
  EXPECT_EQ(g.hm.hm_FromTerrain(*broken.t), GRID_BAD_ELEVATION);
  EXPECT_NE(g_errs.find("at x 20 m, z 10 m (column 2, row 1 from the south)"), std::string::npos) << g_errs;
  Loaded made;
  EXPECT_EQ(g.hm.hm_ToTerrain(*made.t), GRID_BAD_SIZE);  // nothing read
  EXPECT_EQ(g.hm.hm_Write("x.asc", Heightmap::FORM_ASC), GRID_BAD_SIZE);
}

TEST(ObjectListing, ListingsPlaceTheirObjectsBack) {
  TempFolder tmp;
  Loaded src;
  fill_small(*src.t, 4, 8, 0);
  src.t->wrp_EditTemplates() = {"ca\\plants2\\tree\\t_pinus.p3d", "ca\\structures\\house \"a\".p3d"};
  struct Placed {
    double x, y, z, dir, scale;
  } const placed[] = {{10.5, 200.25, 31.125, 90, 1}, {0, 0, -2.5, 45.5, 0.85}, {319.999, 12, 7, 270.25, 1.25}};
  for (size_t i = 0; i < std::size(placed); ++i) {
    WRP_Object o;
    o.id = uint32_t(7 + i);
    o.model = uint32_t(i % 2);
    o.transform.up.y = float(placed[i].scale);
    BisTransform t;
    t.SetTransformArray(&o.transform, false);
    t.SetDirectionInDegrees(placed[i].dir, float(placed[i].scale));
    t.SetXYZ(placed[i].x, placed[i].z, placed[i].y);
    src.t->wrp_EditObjects().push_back(o);
  }
  for (bool csv : {false, true}) {
    ObjectListing out, in;
    std::string file = tmp / "objects.txt";
    ASSERT_EQ(out.ol_Write(*src.t, file.c_str(), csv), 0);
    ASSERT_EQ(in.ol_Read(file.c_str()), 0) << get_file(file);
    Loaded made;
    fill_small(*made.t, 4, 8, 0);
    made.t->wrp_EditTemplates() = {"ca\\structures\\house \"a\".p3d"};  // a template the terrain has already
    ASSERT_EQ(in.ol_PlaceOn(*made.t), 0);
    EXPECT_EQ(made.t->wrp_Templates().size(), 2u);
    std::string again = tmp / "again.txt";
    ASSERT_EQ(out.ol_Write(*made.t, again.c_str(), csv), 0);
    EXPECT_EQ(get_file(again), get_file(file)) << csv;
  }
}

TEST(ObjectListing, BadLinesAreNamed) {
  struct Case {
    char const* name;
    std::string text;
    int code;
    char const* message;
  } const cases[] = {
      {"spaces in a model name", "# comment\n\n3 ca\\my house.p3d 1 2 3 90 1\n", 0, ""},
      {"csv with quotes", "id,model,x,y,z,direction,scale\n3,\"a \"\"b\"\".p3d\",1,2,3,90,1\n", 0, ""},
      {"no model", "3 - 1 2 3 90 1\n", GRID_BAD_OBJECTS, "line 1: the object has no model"},
      {"too few numbers", "3 a.p3d 1 2 3 90\n", GRID_BAD_OBJECTS, "the object has no model"},
      {"id not a number", "x a.p3d 1 2 3 90 1\n", GRID_BAD_OBJECTS, "line 1: the id is not a whole number"},
      {"NaN position", "1 a.p3d 1 nan 3 90 1\n", GRID_BAD_OBJECTS, "line 1: the y 'nan' is not a number"},
      {"zero scale", "1 a.p3d 1 2 3 90 0\n", GRID_BAD_OBJECTS, "the scale is not one an object can have"},
      {"far away", "1 a.p3d 1e9 2 3 90 1\n", GRID_BAD_OBJECTS, "farther away than any terrain"},
      {"open quote", "1,\"a.p3d,1,2,3,90,1\n", GRID_BAD_OBJECTS, "the model's quotes are not closed"},
      {"csv short", "1,a.p3d,1,2,3\n", GRID_BAD_OBJECTS, "an object is id,model,x,y,z,direction,scale"},
  };
  for (auto const& c : cases) {
    ObjectListing l;
    l.ol_GetIO()->io_SetErrCallBack(capture_err);
    clear_captured();
    EXPECT_EQ(l.ol_Read(c.text.data(), c.text.size()), c.code) << c.name << ": " << g_errs;
    EXPECT_NE(g_errs.find(c.message), std::string::npos) << c.name << ": " << g_errs;
    EXPECT_EQ(l.ol_Entries().size(), c.code ? 0u : 1u) << c.name;
  }
}
}  // namespace
