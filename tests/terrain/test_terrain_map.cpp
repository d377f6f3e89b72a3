// Map pictures read back: their size, water and land where the elevations put them, north up, and
// object marks in the colour of their kind.
#include <gtest/gtest.h>

#include <cmath>

#include "anim/BisTransform.h"
#include "terrain/MapRenderer.h"
#include "terrain/WrpTestUtil.h"
#include "texture/PngImage.h"

using namespace wrp_test;

namespace {
using Colour = MapRenderer::Colour;

bool bluish(Colour c) { return c.b > c.r + 20 && c.b > c.g; }
bool same(Colour a, Colour b) { return a.r == b.r && a.g == b.g && a.b == b.b; }

Colour pixel(PngImage const& p, uint32_t x, uint32_t y) {
  uint8_t const* at = p.pixels.data() + (uint64_t(y) * p.width + x) * 3;
  return {at[0], at[1], at[2]};
}

// A coast: sea deepening to the west of column 20, a hill in the north-east, 5 m cells.
void fill_coast(Tessak& t, uint32_t cols, uint32_t rows) {
  t.wrp_SetGrids({cols, rows}, {cols, rows}, 5);
  std::vector<float> h(uint64_t(cols) * rows);
  for (uint32_t r = 0; r < rows; ++r)
    for (uint32_t c = 0; c < cols; ++c)
      h[r * cols + c] = (float(c) - 19.5f) * 2 + (c > 40 && r > 40 ? float((c - 40) * (r - 40)) * 0.5f : 0);
  t.wrp_SetElevations(h.data());
}

void place(Tessak& t, uint32_t model, float x, float z) {
  WRP_Object o;
  o.id = uint32_t(t.wrp_Objects().size());
  o.model = model;
  o.transform = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {x, 10, z}};
  t.wrp_EditObjects().push_back(o);
}

PngImage draw_file(Tessak const& t, uint32_t size, std::string const& file) {
  MapRenderer map;
  EXPECT_EQ(map.map_Write(t, file.c_str(), size), 0);
  std::string bytes = get_file(file);
  PngImage image;
  EXPECT_EQ(PngImage::decode(reinterpret_cast<uint8_t const*>(bytes.data()), bytes.size(), image), "");
  return image;
}

TEST(TerrainMap, WaterAndLandWhereTheElevationsPutThem) {
  TempFolder tmp;
  Loaded l;
  fill_coast(*l.t, 64, 48);
  PngImage image = draw_file(*l.t, 0, tmp / "map.png");
  ASSERT_EQ(image.width, 64u);
  ASSERT_EQ(image.height, 48u);
  ASSERT_EQ(image.channels, 3);
  float const* h = l.t->wrp_Elevations();
  for (uint32_t y = 0; y < 48; ++y)
    for (uint32_t x = 0; x < 64; ++x) {
      // North up: the picture's top row is the terrain's last (northernmost) row.
      bool water = h[(47 - y) * 64 + x] < 0;
      ASSERT_EQ(bluish(pixel(image, x, y)), water) << x << "," << y;
    }
  // Deeper water is darker.
  Colour shore = pixel(image, 19, 24), deep = pixel(image, 0, 24);
  EXPECT_LT(deep.r + deep.g + deep.b, shore.r + shore.g + shore.b);
}

// A pyramid: its north-western face turned to the light, its south-eastern face away from it.
TEST(TerrainMap, LightFallsFromTheNorthWest) {
  TempFolder tmp;
  Loaded l;
  l.t->wrp_SetGrids({33, 33}, {33, 33}, 10);
  std::vector<float> h(33 * 33);
  for (int r = 0; r < 33; ++r)
    for (int c = 0; c < 33; ++c) h[r * 33 + c] = float(100 - 5 * std::max(std::abs(r - 16), std::abs(c - 16)));
  l.t->wrp_SetElevations(h.data());
  PngImage image = draw_file(*l.t, 0, tmp / "map.png");
  auto brightness = [&](uint32_t x, uint32_t y) { Colour c = pixel(image, x, y); return c.r + c.g + c.b; };
  // Picture rows from the top: the north-west face is up and left of the summit (16, 16).
  EXPECT_GT(brightness(8, 16), brightness(24, 16));   // west face brighter than east
  EXPECT_GT(brightness(16, 8), brightness(16, 24));   // north face brighter than south
  EXPECT_GT(brightness(16, 24), 0);
}

TEST(TerrainMap, NorthUpWhenTheSeaIsInTheSouth) {
  TempFolder tmp;
  Loaded l;
  l.t->wrp_SetGrids({8, 8}, {16, 16}, 20);  // a layer grid coarser than the map grid
  std::vector<float> h(256);
  for (uint32_t r = 0; r < 16; ++r)
    for (uint32_t c = 0; c < 16; ++c) h[r * 16 + c] = r < 4 ? -10.f : 30.f;
  l.t->wrp_SetElevations(h.data());
  PngImage image = draw_file(*l.t, 32, tmp / "map.png");
  ASSERT_EQ(image.width, 32u);
  EXPECT_TRUE(bluish(pixel(image, 10, 31)));  // bottom: south
  EXPECT_FALSE(bluish(pixel(image, 10, 0)));  // top: north
}

TEST(TerrainMap, ObjectsAreMarkedInTheColourOfTheirKind) {
  TempFolder tmp;
  Loaded l;
  fill_coast(*l.t, 64, 64);
  l.t->wrp_EditTemplates() = {"ca\\plants2\\tree\\t_picea2s.p3d", "ca\\structures\\house\\housev_1i1.p3d",
                              "ca\\roads2\\asf1_25.p3d", "ca\\misc\\barrel.p3d"};
  // Each object at the centre of a map cell, so that it lands on that cell's pixel.
  place(*l.t, 0, 30 * 5, 10 * 5);
  place(*l.t, 1, 40 * 5, 50 * 5);
  place(*l.t, 2, 50 * 5, 20 * 5);
  place(*l.t, 3, 25 * 5, 60 * 5);
  place(*l.t, 7, 26 * 5, 60 * 5);  // no template: one of the rest
  place(*l.t, 0, -50, 100);        // beyond the west edge: not drawn
  PngImage image = draw_file(*l.t, 0, tmp / "map.png");
  ASSERT_EQ(image.width, 64u);
  struct Mark {
    uint32_t column, row;
    MapRenderer::ObjectKind kind;
  } const marks[] = {{30, 10, MapRenderer::OBJECT_TREE},
                     {40, 50, MapRenderer::OBJECT_BUILDING},
                     {50, 20, MapRenderer::OBJECT_ROAD},
                     {25, 60, MapRenderer::OBJECT_OTHER},
                     {26, 60, MapRenderer::OBJECT_OTHER}};
  for (auto const& m : marks)
    EXPECT_TRUE(same(pixel(image, m.column, 63 - m.row), MapRenderer::ColourOfKind(m.kind))) << m.column;
  EXPECT_FALSE(same(pixel(image, 31, 63 - 10), MapRenderer::ColourOfKind(MapRenderer::OBJECT_TREE)));
}

TEST(TerrainMap, SizesAndRefusals) {
  Loaded l;
  fill_coast(*l.t, 64, 32);
  MapRenderer map;
  map.map_GetIO()->io_SetErrCallBack(capture_err);
  PngImage image;
  ASSERT_EQ(map.map_Draw(*l.t, 100, image), 0);
  EXPECT_EQ(image.width, 100u);
  EXPECT_EQ(image.height, 50u);
  ASSERT_EQ(map.map_Draw(*l.t, 7, image), 0);
  EXPECT_EQ(image.width, 7u);
  EXPECT_EQ(image.height, 4u);
  EXPECT_EQ(map.map_Draw(*l.t, MapRenderer::kMaxSize + 1, image), GRID_BAD_PICTURE);
  std::vector<float> h(l.t->wrp_Elevations(), l.t->wrp_Elevations() + 64 * 32);
  h[100] = std::nanf("");
  l.t->wrp_SetElevations(h.data());
  EXPECT_EQ(map.map_Draw(*l.t, 0, image), GRID_BAD_ELEVATION);
  Loaded none;
  EXPECT_EQ(map.map_Draw(*none.t, 0, image), GE_INVALID_FILE);
  EXPECT_TRUE(image.pixels.empty());
}

TEST(TerrainMap, ModelsAreToldApartByTheirPaths) {
  struct Case {
    char const* path;
    MapRenderer::ObjectKind kind;
  } const cases[] = {
      {"dz\\plants\\tree\\t_quercusrobur_3f.p3d", MapRenderer::OBJECT_TREE},
      {"a3\\plants_f\\bush\\b_neriumo2d_f.p3d", MapRenderer::OBJECT_TREE},
      {"data3d\\str_listnac_vysoky.p3d", MapRenderer::OBJECT_TREE},
      {"dz/structures/roads/parts/path_dirt_30.p3d", MapRenderer::OBJECT_ROAD},
      {"CA\\Roads2\\asf1_25.p3d", MapRenderer::OBJECT_ROAD},
      {"a3\\structures_f\\bridges\\bridge_concrete_f.p3d", MapRenderer::OBJECT_ROAD},
      {"dz\\structures\\specific\\castles\\castle_bergfrit.p3d", MapRenderer::OBJECT_BUILDING},
      {"a3\\structures_f\\households\\house_small01\\i_house_small_01_v1_f.p3d", MapRenderer::OBJECT_BUILDING},
      {"data3d\\dum01.p3d", MapRenderer::OBJECT_BUILDING},
      {"a3\\structures_f\\walls\\wall_indcnc_4_f.p3d", MapRenderer::OBJECT_OTHER},
      {"a3\\rocks_f\\sharp\\sharprock_spike.p3d", MapRenderer::OBJECT_OTHER},
      {"data3d\\dummy17.p3d", MapRenderer::OBJECT_OTHER},
      {"", MapRenderer::OBJECT_OTHER},
  };
  for (auto const& c : cases) EXPECT_EQ(MapRenderer::KindOfModel(c.path), c.kind) << c.path;
}
}  // namespace
