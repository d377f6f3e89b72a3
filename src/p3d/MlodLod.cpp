#include "p3d/MlodLod.h"

#include <cstring>

#include "text/GenString.h"

int MlodTagg::TypeOfName(std::string_view name) {
  static constexpr std::string_view kNames[] = {"#EndOfFile#", "#Property#", "#MaterialIndex#", "#SharpEdges#",
                                                "#Mass#",      "#UVset#",    "#Lock#",          "#Selected#",
                                                "#Hide#",      "#Animation#"};
  if (name.empty() || name[0] != '#') return NAMED_SELECTION;
  for (int i = 0; i < static_cast<int>(std::size(kNames)); ++i)
    if (name == kNames[i]) return i;
  // The modelling tools of the later generation write this spelling.
  if (name == "#UVSet#") return UVSET;
  return -1;
}

void MlodLod::corner_uv(uint32_t face, uint32_t c, float& u, float& v) const {
  MlodFace const& f = faces[face];
  if (uv0 && c < f.nCorners) {
    uint8_t const* p = uv0 + (size_t{f.uv_index} + c) * 8;
    u = p3d_lef(p);
    v = p3d_lef(p + 4);
    return;
  }
  MlodCorner k = f.corner(c);
  u = k.u;
  v = k.v;
}

void MlodLod::index_taggs() {
  properties.clear();
  selections.clear();
  mass = nullptr;
  mass_short = false;
  uv0 = nullptr;
  edges = nullptr;
  nEdges = 0;
  for (MlodTagg const& t : taggs) {
    switch (t.type) {
      case MlodTagg::PROPERTY:
        properties.push_back({t.prop_name, t.prop_value});
        break;
      case MlodTagg::NAMED_SELECTION:
        selections.push_back({t.name, t.data, t.data + nPoints});
        break;
      case MlodTagg::MASS:
        mass = t.data;
        mass_short = t.stored_length != t.data_size;
        break;
      case MlodTagg::UVSET:
        if (p3d_le32(t.data) == 0) uv0 = t.data + 4;
        break;
      case MlodTagg::SHARP_EDGES:
        edges = t.data;
        nEdges = t.data_size / 8;
        break;
      default:
        break;
    }
  }
}

namespace {
struct SpecialLod {
  float resolution;
  char const* name;
};
// Compared as exact bit patterns: a resolution is a label, not a measure.
constexpr SpecialLod kSpecialLods[] = {
    {1000.0f, "View Gunner"},
    {1100.0f, "View Pilot"},
    {1200.0f, "View Cargo"},
    {1e13f, "Geometry"},
    {2e13f, "bouyancy"},
    {3e13f, "physx old"},
    {4e13f, "physx"},
    {1e15f, "Memory"},
    {2e15f, "Land Contact"},
    {3e15f, "Roadway"},
    {4e15f, "Paths"},
    {5e15f, "HitPoints"},
    {6e15f, "View Geometry"},
    {7e15f, "Fire Geometry"},
    {8e15f, "View Cargo Geometry"},
    {9e15f, "View Cargo Fire Geometry"},
    {1e16f, "View Commander"},
    {1.1e16f, "View Commander Geometry"},
    {1.2e16f, "View Commander Fire Geometry"},
    {1.3e16f, "View Pilot Geometry"},
    {1.4e16f, "View Pilot Fire Geometry"},
    {1.5e16f, "View Gunner Geometry"},
    {1.6e16f, "View Gunner Fire Geometry"},
    {1.7e16f, "Sub Parts"},
    {1.8e16f, "Shadow Volume - View Cargo"},
    {1.9e16f, "Shadow Volume - View Pilot"},
    {2e16f, "Shadow Volume - View Gunner"},
    {2.1e16f, "Wreck"},
};
}  // namespace

void lod_resolution_name(float resolution, GenString& out) {
  uint32_t bits;
  std::memcpy(&bits, &resolution, 4);
  for (SpecialLod const& s : kSpecialLods) {
    uint32_t b;
    std::memcpy(&b, &s.resolution, 4);
    if (b == bits) {
      out = s.name;
      return;
    }
  }
  if (resolution >= 10000.0f && resolution < 20000.0f)
    out.Format("ShadowVolume %.0f", static_cast<double>(resolution - 10000.0f));
  else if (resolution >= 20000.0f && resolution < 30000.0f)
    out.Format("Edit %.0f", static_cast<double>(resolution - 20000.0f));
  else if (resolution >= 30000.0f)
    out.Format("(0x%8X)", bits);
  else
    out.Clear();
}

void lod_resolution_text(float resolution, bool integers_allowed, GenString& out) {
  GenString name;
  lod_resolution_name(resolution, name);
  try {
    out.str_FloatToStr(resolution, integers_allowed);
  } catch (char const*) {
    out.Format("%g", static_cast<double>(resolution));
  }
  if (!name.str_IsEmpty()) out.str_Add(" %s", name.c_str());
}
