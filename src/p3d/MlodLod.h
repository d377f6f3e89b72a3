#pragma once
// One LOD of an editable model, read in place: every table is a view into the model's buffer
// (unaligned: copy values out with the getters or std::memcpy, never through a struct pointer).
// Only the per-face index and the small tagg, property and selection lists are owned.
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "anim/XYZTriplet.h"

// The layout a LOD was stored in.
enum MlodKind : int { MLOD_P3DM = 0, MLOD_SP3X = 1, MLOD_SP3D = 2 };

inline uint32_t p3d_le32(uint8_t const* p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}
inline float p3d_lef(uint8_t const* p) {
  float v;
  std::memcpy(&v, p, 4);
  return v;
}

// One corner as stored: point index, normal index, U, V (16 bytes).
struct MlodCorner {
  uint32_t point = 0, normal = 0;
  float u = 0, v = 0;
};

struct MlodFace {
  static constexpr uint32_t kCornerBytes = 16;
  uint8_t const* corners = nullptr;      // always four corner records, even for a triangle
  uint8_t const* texture_field = nullptr;  // SP3X/SP3D: the fixed 32-byte name as stored
  std::string_view texture, material;
  uint32_t nCorners = 0;
  uint32_t flags = 0;
  uint32_t uv_index = 0;  // where this face's corners start in a UV set (3 or 4 a face)

  MlodCorner corner(uint32_t i) const {
    MlodCorner c;
    std::memcpy(&c, corners + i * kCornerBytes, kCornerBytes);
    return c;
  }
};

class MlodTagg {
 public:
  enum Type : int {
    END_OF_FILE = 0, PROPERTY = 1, MATERIAL_INDEX = 2, SHARP_EDGES = 3, MASS = 4, UVSET = 5, LOCK = 6,
    SELECTED = 7, HIDE = 8, ANIMATION = 9, NAMED_SELECTION = 10,
  };
  // The kind a tagg name stands for; -1 for an unknown name beginning with '#'.
  static int TypeOfName(std::string_view name);
  int GetTaggType() const { return type; }

  int type = 0;
  std::string_view name;                // trimmed when it carried trailing blanks
  uint8_t const* name_field = nullptr;  // SP3X: the fixed 64-byte name as stored
  uint8_t const* data = nullptr;
  uint32_t stored_length = 0;  // the length word as written
  uint32_t data_size = 0;      // bytes of data that follow it (differs for a short mass tagg)
  // A property's texts: views into the 128-byte data, or texts the caller set.
  std::string_view prop_name, prop_value;
};

struct MlodProperty {
  std::string_view name, value;
};

// A named selection: one weight byte a point, then one a face.
struct LodNamedSelection {
  std::string_view name;
  uint8_t const* point_weights = nullptr;
  uint8_t const* face_weights = nullptr;
};

struct MlodLod {
  MlodKind kind = MLOD_P3DM;
  uint32_t version = 0;
  uint32_t flags = 0;
  uint32_t nPoints = 0, nNormals = 0, nFaces = 0;
  uint32_t nTriangles = 0, nQuads = 0;
  uint8_t const* points = nullptr;  // 16 bytes a point (x, y, z, flags); 12 in SP3D
  uint8_t const* normals = nullptr;
  std::vector<MlodFace> faces;

  bool has_taggs = false;
  std::vector<MlodTagg> taggs;  // without the closing "#EndOfFile#"
  uint8_t const* end_tagg_field = nullptr;  // SP3X: its 64-byte name as stored
  uint8_t const* demo = nullptr;            // an "SS3D" block after the faces, kept as stored
  uint32_t demo_size = 0;
  float resolution = 1.0f;

  // Derived from the taggs.
  std::vector<MlodProperty> properties;
  std::vector<LodNamedSelection> selections;
  uint8_t const* mass = nullptr;  // 4 bytes a point
  bool mass_short = false;        // its length word counted one byte a point
  uint8_t const* uv0 = nullptr;   // UV set 0: U, V a corner in face order
  uint8_t const* edges = nullptr; // sharp edges: pairs of point indices
  uint32_t nEdges = 0;

  uint32_t point_stride() const { return kind == MLOD_SP3D ? 12 : 16; }
  XYZTriplet point(uint32_t i) const {
    XYZTriplet t;
    std::memcpy(&t, points + size_t{i} * point_stride(), sizeof t);
    return t;
  }
  uint32_t point_flags(uint32_t i) const { return kind == MLOD_SP3D ? 0 : p3d_le32(points + size_t{i} * 16 + 12); }
  XYZTriplet normal(uint32_t i) const {
    XYZTriplet t;
    std::memcpy(&t, normals + size_t{i} * 12, sizeof t);
    return t;
  }
  float point_mass(uint32_t i) const { return mass ? p3d_lef(mass + size_t{i} * 4) : 0.0f; }
  // A corner's U and V: UV set 0 wins over the corner record, as the engine reads it.
  void corner_uv(uint32_t face, uint32_t c, float& u, float& v) const;

  // Rebuilds the property, selection and special-tagg views after the tagg list changed.
  void index_taggs();
};

// The text of a LOD resolution: the number, a blank and the name of a special LOD (no blank when
// the name is empty).
void lod_resolution_text(float resolution, bool integers_allowed, class GenString& out);
// Just the name ("Geometry", "ShadowVolume 5", "" for a visual LOD, ...).
void lod_resolution_name(float resolution, class GenString& out);

namespace lod_res {
constexpr float kViewGunner = 1000.0f;
constexpr float kGeometry = 1e13f;
constexpr float kBuoyancy = 2e13f;
constexpr float kPhysxOld = 3e13f;
constexpr float kPhysx = 4e13f;
constexpr float kMemory = 1e15f;
}  // namespace lod_res
