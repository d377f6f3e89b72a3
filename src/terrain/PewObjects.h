#pragma once
// Model templates and the objects placed from them, as a project keeps them.
#include <cstdint>
#include <string>
#include <vector>

#include "io/BisTypes.h"

// Colours are four bytes r, g, b, a; all bits set means "the editor's default".
constexpr uint32_t kPewDefaultColour = 0xFFFFFFFFu;

// A model the editor can place. The project refers to it by `modelId`, which rises from one
// template to the next. Bytes after the known fields are kept as read and written back.
struct PewObjectTemplate {
  std::string model;  // the p3d path
  uint32_t modelId = 0;
  uint32_t kind = 0;  // 0 object, 4 forest, 5 road
  uint32_t outline = kPewDefaultColour;
  uint32_t colour = kPewDefaultColour;
  std::vector<uint8_t> extra;
};
using PewObjectTemplates = std::vector<PewObjectTemplate>;

// One placed model: its id, its template's model id and its transform in row form (x, y and z
// axes then the position, y up), the form terrains use.
struct PewObject {
  uint16_t present = 1;
  uint32_t objectId = 0;
  uint32_t modelId = 0;
  XYZTransform transform{};
};
using PewObjects = std::vector<PewObject>;
