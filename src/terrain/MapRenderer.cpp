#include "terrain/MapRenderer.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "core/GuardedCall.h"
#include "terrain/Heightmap.h"
#include "terrain/Tessak.h"
#include "texture/PngImage.h"

using namespace grid_tool;

namespace {
// Light from the north-west, 45 degrees above the horizon, and the relief drawn twice as steep as
// it is: gentle country would otherwise look flat at map scale.
constexpr double kLightAzimuth = 315 * 3.14159265358979323846 / 180;
constexpr double kLightAltitude = 45 * 3.14159265358979323846 / 180;
constexpr double kExaggeration = 2;
// Depths shade from the lightest to the darkest blue over at least this many metres.
constexpr double kMinDepthRange = 20;

struct Stop {
  double at;
  double r, g, b;
};

// Lowland green through tan and brown to pale grey at the tops.
constexpr Stop kLand[] = {{0.00, 92, 148, 82},   {0.30, 156, 186, 104}, {0.55, 214, 200, 136},
                          {0.80, 176, 136, 92}, {1.00, 236, 232, 224}};
constexpr Stop kWater[] = {{0.0, 160, 205, 235}, {1.0, 26, 70, 140}};

template <size_t N>
MapRenderer::Colour ramp(Stop const (&stops)[N], double t) {
  t = std::clamp(t, 0.0, 1.0);
  size_t i = 1;
  while (i < N - 1 && t > stops[i].at) ++i;
  Stop const &a = stops[i - 1], &b = stops[i];
  double f = b.at > a.at ? (t - a.at) / (b.at - a.at) : 0;
  auto mix = [f](double x, double y) { return uint8_t(std::lround(x + (y - x) * f)); };
  return {mix(a.r, b.r), mix(a.g, b.g), mix(a.b, b.b)};
}

bool starts(std::string_view s, std::string_view prefix) { return s.substr(0, prefix.size()) == prefix; }
bool has(std::string_view s, std::string_view word) { return s.find(word) != std::string_view::npos; }

template <size_t N>
bool starts_any(std::string_view s, char const* const (&prefixes)[N]) {
  for (char const* p : prefixes)
    if (starts(s, p)) return true;
  return false;
}
template <size_t N>
bool has_any(std::string_view s, char const* const (&words)[N]) {
  for (char const* w : words)
    if (has(s, w)) return true;
  return false;
}

// Bilinear height at a fractional grid position, clamped to the grid.
float height_at(float const* h, uint32_t cols, uint32_t rows, double gx, double gy) {
  gx = std::clamp(gx, 0.0, double(cols - 1));
  gy = std::clamp(gy, 0.0, double(rows - 1));
  auto x0 = uint32_t(gx), y0 = uint32_t(gy);
  uint32_t x1 = std::min(x0 + 1, cols - 1), y1 = std::min(y0 + 1, rows - 1);
  double fx = gx - x0, fy = gy - y0;
  float const *r0 = h + uint64_t(y0) * cols, *r1 = h + uint64_t(y1) * cols;
  double a = r0[x0] + (r0[x1] - r0[x0]) * fx, b = r1[x0] + (r1[x1] - r1[x0]) * fx;
  return float(a + (b - a) * fy);
}
}  // namespace

MapRenderer::MapRenderer(BisDLL* dll) : _io(dll) {}

char const* MapRenderer::ErrorString(int code) { return Heightmap::ErrorString(code); }

MapRenderer::Colour MapRenderer::ColourOfKind(ObjectKind kind) {
  switch (kind) {
    case OBJECT_TREE: return {30, 96, 30};
    case OBJECT_BUILDING: return {170, 40, 30};
    case OBJECT_ROAD: return {40, 40, 40};
    default: return {180, 50, 150};
  }
}

MapRenderer::Colour MapRenderer::ColourOfWater(double depth_fraction) { return ramp(kWater, depth_fraction); }
MapRenderer::Colour MapRenderer::ColourOfLand(double height_fraction) { return ramp(kLand, height_fraction); }

// Model paths name their kind in the folders of the game's data ("ca\plants2\tree\...",
// "a3\structures_f\households\...", "dz\structures\roads\...") and, in the oldest games, only in
// the file name ("data3d\str_buk.p3d" a tree, "data3d\dum01.p3d" a house). Roads are asked first
// (they sit among the structures), then plants, then walls, fences and rocks, then buildings.
MapRenderer::ObjectKind MapRenderer::KindOfModel(std::string_view path) {
  std::string lower(path);
  for (char& c : lower) c = char(std::tolower(static_cast<unsigned char>(c)));
  std::string_view p(lower);
  size_t slash = p.find_last_of("\\/");
  std::string_view name = slash == std::string_view::npos ? p : p.substr(slash + 1);
  std::string_view folders = slash == std::string_view::npos ? std::string_view() : p.substr(0, slash + 1);
  auto folder_starts = [&](std::initializer_list<char const*> prefixes) {
    for (size_t at = 0; at < folders.size();) {
      size_t end = folders.find_first_of("\\/", at);
      std::string_view part = folders.substr(at, end - at);
      for (char const* prefix : prefixes)
        if (starts(part, prefix)) return true;
      at = end + 1;
    }
    return false;
  };
  static char const* const kRoadWords[] = {"road", "runway", "silnice", "asfalt", "bridge", "sidewalk"};
  static char const* const kTreeStarts[] = {"t_", "b_", "str_", "strom", "les_", "krovi"};
  static char const* const kTreeWords[] = {"tree", "bush", "palm", "pine", "spruce", "oak"};
  static char const* const kOtherWords[] = {"wall", "fence", "zed", "plot", "rock", "stone", "sign", "pole", "lamp"};
  static char const* const kBuildingWords[] = {"house", "land_", "church", "kostel", "hangar", "barn", "shed", "tower",
                                               "hut",   "garage", "shop",  "hotel",  "school", "hospital", "station",
                                               "castle", "mill",  "factory", "warehouse", "ruin", "domek"};
  if (folder_starts({"road"}) || has_any(name, kRoadWords)) return OBJECT_ROAD;
  if (folder_starts({"plant", "tree", "bush", "vegetation", "forest"}) || starts_any(name, kTreeStarts) ||
      has_any(name, kTreeWords))
    return OBJECT_TREE;
  if (folder_starts({"rock", "wall", "fence"}) || has_any(name, kOtherWords)) return OBJECT_OTHER;
  bool dum =
      starts(name, "dum") && name.size() > 3 && (std::isdigit(static_cast<unsigned char>(name[3])) || name[3] == '_');
  if (folder_starts({"struct", "build", "house"}) || has_any(name, kBuildingWords) || dum) return OBJECT_BUILDING;
  return OBJECT_OTHER;
}

int MapRenderer::map_Draw(Tessak const& terrain, uint32_t size, PngImage& out) const {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    out = PngImage{};
    _draw(terrain, size, out);
    return 0;
  });
}

int MapRenderer::map_Write(Tessak const& terrain, char const* file, uint32_t size) const {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!file || !*file) throw "no filename";
    std::vector<uint8_t> bytes;
    {
      PngImage image;
      _draw(terrain, size, image);
      std::string failure = image.encode(bytes, kPngEffort);
      if (!failure.empty()) _io.io_throw(GE_CANNOT_WRITE, "cannot make the PNG: %s\r\n", failure.c_str());
      _io.io_callback("a map of %u x %u pixels\r\n", image.width, image.height);
    }
    OutputCloser closer{_io};
    if (!_io.io_CreateFile(file)) throw GE_CANNOT_WRITE;
    _io.io_WriteBlock(bytes.data(), bytes.size());
    if (!_io.io_CloseOutput()) _io.io_throw(GE_CANNOT_WRITE, "%s: %s\r\n", file, std::strerror(errno));
    return 0;
  });
}

void MapRenderer::_draw(Tessak const& terrain, uint32_t size, PngImage& out) const {
  float const* h = terrain.wrp_Elevations();
  uLongPair map = terrain.wrp_MapSize(), layer = terrain.wrp_LayerSize();
  if (terrain.wrp_Kind() == Tessak::KIND_NONE || !h || !map.x || !map.y)
    _io.io_throw(GE_INVALID_FILE, "no terrain is loaded\r\n");
  uint32_t longer = std::max(map.x, map.y);
  if (size == 0) size = std::min(longer, kDefaultMaxSize);
  if (size > kMaxSize)
    _io.io_throw(GRID_BAD_PICTURE, "a map of %u pixels across is larger than the %u a picture may have\r\n", size,
                 kMaxSize);
  uint64_t cells = uint64_t(map.x) * map.y;
  float lo = h[0], hi = h[0];
  for (uint64_t i = 0; i < cells; ++i) {
    if (!std::isfinite(h[i]))
      _io.io_throw(GRID_BAD_ELEVATION, "the elevation at column %llu, row %llu from the south is not a number\r\n",
                   static_cast<unsigned long long>(i % map.x), static_cast<unsigned long long>(i / map.x));
    lo = std::min(lo, h[i]);
    hi = std::max(hi, h[i]);
  }
  auto side = [&](uint32_t mine) {
    return mine == longer ? size : std::max<uint32_t>(1, uint32_t(std::lround(double(size) * mine / longer)));
  };
  uint32_t const width = side(map.x), height = side(map.y);
  // World metres: the header's grid size is a layer cell, so the world is layer cells wide.
  double const world_x = double(terrain.wrp_GridSize()) * layer.x, world_y = double(terrain.wrp_GridSize()) * layer.y;
  double const pixel_x = world_x / width, pixel_y = world_y / height;
  double const cell_x = world_x / map.x, cell_y = world_y / map.y;

  out.width = width;
  out.height = height;
  out.channels = 3;
  out.bit_depth = 8;
  out.pixels.assign(out.row_bytes() * height, 0);

  // Heights at the pixel centres, three picture rows at a time: the row drawn and its neighbours
  // to the north and south for the slope.
  auto sample_row = [&](int64_t py, std::vector<float>& row) {
    py = std::clamp<int64_t>(py, 0, int64_t(height) - 1);
    double gy = (double(height) - double(py) - 0.5) * map.y / height - 0.5;
    for (uint32_t px = 0; px < width; ++px) {
      double gx = (px + 0.5) * map.x / width - 0.5;
      row[px] = height_at(h, map.x, map.y, gx, gy);
    }
  };
  std::vector<float> north(width), here(width), south(width);
  sample_row(-1, north);
  sample_row(0, here);
  double const land_lo = std::max(0.0, double(lo)), land_span = double(hi) - land_lo;
  double const depth_span = std::max(kMinDepthRange, -double(lo));
  double const lx = std::sin(kLightAzimuth) * std::cos(kLightAltitude);
  double const ly = std::cos(kLightAzimuth) * std::cos(kLightAltitude);
  double const lz = std::sin(kLightAltitude);
  for (uint32_t py = 0; py < height; ++py) {
    sample_row(int64_t(py) + 1, south);
    double dy = (py > 0 ? 1 : 0) + (py + 1 < height ? 1 : 0);
    uint8_t* pixel = out.pixels.data() + uint64_t(py) * out.row_bytes();
    for (uint32_t px = 0; px < width; ++px, pixel += 3) {
      double z = here[px];
      Colour c;
      if (z < 0) {
        c = ColourOfWater(-z / depth_span);
      } else {
        c = ColourOfLand(land_span > 0 ? (z - land_lo) / land_span : 0);
        uint32_t left = px ? px - 1 : 0, right = std::min(px + 1, width - 1);
        double east = right > left ? (here[right] - here[left]) / ((right - left) * pixel_x) : 0;
        double northward = dy > 0 ? (north[px] - south[px]) / (dy * pixel_y) : 0;
        double nx = -east * kExaggeration, ny = -northward * kExaggeration;
        double shade = (nx * lx + ny * ly + lz) / std::sqrt(nx * nx + ny * ny + 1) / lz;
        double f = std::clamp(shade, 0.3, 1.3);
        c = {uint8_t(std::min(255.0, c.r * f)), uint8_t(std::min(255.0, c.g * f)), uint8_t(std::min(255.0, c.b * f))};
      }
      pixel[0] = c.r, pixel[1] = c.g, pixel[2] = c.b;
    }
    std::swap(north, here);
    std::swap(here, south);
  }

  // Objects on top, trees first so that buildings and roads stay visible among them.
  auto const& objects = terrain.wrp_Objects();
  if (objects.empty()) return;
  auto const& templates = terrain.wrp_Templates();
  std::vector<uint8_t> kinds(templates.size());
  for (size_t i = 0; i < templates.size(); ++i) kinds[i] = uint8_t(KindOfModel(templates[i]));
  // Marks as wide as the things they stand for where the picture is fine enough (a tree's crown 6 m,
  // a house 10 m), never less than a pixel nor more than nine.
  for (ObjectKind kind : {OBJECT_TREE, OBJECT_OTHER, OBJECT_ROAD, OBJECT_BUILDING}) {
    Colour c = ColourOfKind(kind);
    double radius = kind == OBJECT_TREE ? 3 : kind == OBJECT_BUILDING ? 5 : 2;
    int r = int(std::min(4.0, radius / std::max(pixel_x, pixel_y)));
    for (WRP_Object const& o : objects) {
      ObjectKind k = o.model < kinds.size() ? ObjectKind(kinds[o.model]) : OBJECT_OTHER;
      if (k != kind) continue;
      // The pixel whose centre shows the height nearest the object.
      double fx = (o.transform.pos.x / cell_x + 0.5) * width / map.x;
      double fy = double(height) - (o.transform.pos.z / cell_y + 0.5) * height / map.y;
      if (!(fx >= 0 && fx < width && fy >= 0 && fy < height)) continue;
      int cx = int(fx), cy = int(fy);
      for (int y = std::max(0, cy - r); y <= std::min(int(height) - 1, cy + r); ++y)
        for (int x = std::max(0, cx - r); x <= std::min(int(width) - 1, cx + r); ++x) {
          uint8_t* p = out.pixels.data() + uint64_t(y) * out.row_bytes() + uint64_t(x) * 3;
          p[0] = c.r, p[1] = c.g, p[2] = c.b;
        }
    }
  }
}
