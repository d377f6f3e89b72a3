#pragma once
// A terrain drawn as a map a person recognises: relief shaded with light from the north-west and
// tinted by height, ground below sea level as water in blue that deepens with depth, and the
// objects as small marks coloured by what their model is (trees, buildings, roads, the rest).
// North is up.
//
//   MapRenderer map(&dll);
//   int r = map.map_Write(*dll.dll_GetTessak(), "island.png", 0);   // the grid's size, at most 4096
#include <cstdint>
#include <string_view>

#include "io/BisFileIO.h"
#include "terrain/GridErrors.h"

class BisDLL;
class Tessak;
struct PngImage;

class MapRenderer {
 public:
  enum ObjectKind : int { OBJECT_TREE = 0, OBJECT_BUILDING, OBJECT_ROAD, OBJECT_OTHER, OBJECT_KINDS };
  struct Colour {
    uint8_t r, g, b;
  };
  // A picture defaults to one pixel per height up to this many on its longer side.
  static constexpr uint32_t kDefaultMaxSize = 4096;
  static constexpr uint32_t kMaxSize = 16384;

  explicit MapRenderer(BisDLL* dll = nullptr);
  MapRenderer(MapRenderer const&) = delete;
  MapRenderer& operator=(MapRenderer const&) = delete;

  BisFileIO* map_GetIO() { return &_io; }

  // Draws a loaded terrain `size` pixels along its longer side (0: as many as the grid has heights,
  // at most kDefaultMaxSize) into an 8-bit RGB picture.
  int map_Draw(Tessak const& terrain, uint32_t size, PngImage& out) const;
  // Draws and writes it as a PNG file.
  int map_Write(Tessak const& terrain, char const* file, uint32_t size) const;

  // The texts of the grid and terrain codes.
  static char const* ErrorString(int code);

  // What a model is, told by the words of its path: its folders ("plants", "roads", "structures",
  // "buildings"...) or its name ("t_" trees, "b_" bushes, "house", "wall"...).
  static ObjectKind KindOfModel(std::string_view path);
  static Colour ColourOfKind(ObjectKind kind);
  // Sea, land and their tints, for the picture's readers (and tests).
  static Colour ColourOfWater(double depth_fraction);
  static Colour ColourOfLand(double height_fraction);

 private:
  BisFileIO mutable _io;

  void _draw(Tessak const& terrain, uint32_t size, PngImage& out) const;
};
