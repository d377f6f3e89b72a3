#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "anim/XYZTriplet.h"
#include "io/BisTypes.h"

// One entry of the layer table: the texture or rvmat names that the layer grid refers to by
// position. Editable exports allow several names per layer; binarised terrains carry one name and
// a marker byte.
struct WRP_Texture {
  std::vector<std::string> names;
  uint8_t marker = 0;
  std::string const& first() const {
    static std::string const empty;
    return names.empty() ? empty : names.front();
  }
};

// One placed object. `model` is a position in the template list as the file gives it (it may lie
// outside the list: Tessak::wrp_TemplateOf then finds none). The transform is in row form: x, y
// and z axes then the position, with y up.
struct WRP_Object {
  uint32_t id = 0;
  uint32_t model = 0;
  XYZTransform transform{};
  uint32_t shape = 0;  // the trailing word of binarised records, kept as read
};

// A classed model of a binarised terrain: a config class with its model and where it stands.
struct WRP_LandModel {
  std::string class_name;
  std::string model;
  XYZTriplet position;
  uint32_t id = 0;
};

// One link of the road network of a binarised terrain.
struct WRP_RoadLink {
  std::vector<XYZTriplet> points;
  std::vector<uint8_t> types;  // connection types, one per point, in newer versions
  uint32_t object_id = 0;
  std::string model;
  XYZTransform transform{};
};

// A record of the map display; its bytes stay in the file buffer, type word included.
struct WRP_MapInfo {
  uint32_t type = 0;
  uint32_t size = 0;
  uint8_t const* data = nullptr;
};
