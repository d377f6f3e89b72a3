#pragma once
// The editor's drawing aids: named zones, road blocks, and the records a project carries without
// this library interpreting them (kept and written back byte for byte).
#include <cstdint>
#include <string>
#include <vector>

#include "io/BisTypes.h"

// A closed outline with a name. The alternative form ends with a visibility word instead of a
// second name.
struct PewNamedZone {
  uint16_t present = 1, moveable = 0;
  std::string name;
  uint32_t areaColour = 0, outlineColour = 0, style = 0;
  std::vector<float> points;  // x, z pairs
  uint32_t id = 0;
  std::string secondName;
  uint32_t visible = 1;
};
using PewNamedZones = std::vector<PewNamedZone>;
using PewAltNamedZones = std::vector<PewNamedZone>;

// A road piece: straight, curved, crossroad or end.
struct PewRoadBlockModel {
  uint32_t type = 0;
  uint32_t curve = 0;  // the curve's kind, read for curved pieces only
  std::string model;
  XYZTransform transform{};
};
struct PewRoadBlockModelList {
  uint32_t flag = 0;
  std::vector<PewRoadBlockModel> models;
};
struct PewRoadBlock {
  uint32_t flag = 0, flag2 = 0, type = 0;
  std::string name;
  std::vector<PewRoadBlockModelList> lists;
};
using PewRoadBlocks = std::vector<PewRoadBlock>;

// A named record whose body the editor alone understands.
struct PewBlock {
  std::string name;
  std::vector<uint8_t> body;
};
using PewOFPTextures = std::vector<PewBlock>;
using PewOFPTerrains = std::vector<PewBlock>;
using PewOFPForests = std::vector<PewBlock>;
using PewRoadNetTemplates = std::vector<PewBlock>;
using PewKeyPoints = std::vector<PewBlock>;
using PewBackGrounds = std::vector<PewBlock>;
using PewSelections = std::vector<PewBlock>;
