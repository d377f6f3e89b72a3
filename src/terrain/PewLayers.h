#pragma once
// The ground of a project: the height grid and the material layers painted over it.
#include <cstdint>
#include <string>
#include <vector>

// A surface a layer cell can name: an rvmat, or (older terrains) a list of textures.
struct PewTerrainMaterial {
  enum Type : uint32_t { RVMAT = 0, TEXTURES = 1 };
  uint32_t type = RVMAT;
  uint8_t marker = 0;  // the terrain's marker byte, carried through
  std::vector<std::string> names;
};
using PewTerrainMaterials = std::vector<PewTerrainMaterial>;

// A named layer: a grid of positions in its own material list, row by row.
struct PewLayer {
  std::string name;
  uint32_t sizeX = 0, sizeY = 0;
  PewTerrainMaterials materials;
  std::vector<uint16_t> cells;
};
using PewLayers = std::vector<PewLayer>;

// Heights in metres on the terrain grid, row by row, and what follows them unread.
struct PewElevations {
  uint32_t sizeX = 0, sizeY = 0;
  std::vector<float> heights;
  std::vector<uint8_t> extra;
};
