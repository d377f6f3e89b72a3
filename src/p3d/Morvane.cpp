#include "p3d/Morvane.h"

#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <unordered_set>

#include "core/BisDLL.h"
#include "core/GenericError.h"
#include "core/GuardedCall.h"
#include "p3d/OdolModel.h"
#include "p3d/P3dCursor.h"
#include "text/TokenPairs.h"

Morvane* BisDLL::dll_GetMorvane() { return dll_slot<Morvane>(SLOT_MORVANE); }

Morvane::Morvane(BisDLL* dll) : _dll(dll), _io(dll) {}

Morvane::~Morvane() = default;

char const* Morvane::ErrorString(int code) {
  switch (code) {
    case P3DERR_COMPRESSION: return "P3D: compression error";
    case P3DERR_UNDECODABLE: return "P3D: undecodable";
    case P3DERR_STR_EXCEEDS_32: return "P3D: str exceeds 32";
    case P3DERR_WRONG_HDR_TYPE: return "P3D: wrong hdr type specified";
    case P3DERR_UNKNOWN_TAGG: return "P3D: unknown tagg";
    case P3DERR_MASS_WRONG_LOD: return "P3D: mass tagg not in correct lod";
    case P3DERR_MASS_MISSING: return "P3D: mass tagg missing";
    case P3DERR_MASS_TWICE: return "P3D: mass entered twice in same lod";
    case P3DERR_NORMALS_MISMATCH: return "P3D: normals count mismatch";
    case P3DERR_SHARP_EDGES_REPEATED: return "P3D: Sharp edges repeated in same lod";
    case P3DERR_BAD_FRAME_COUNT: return "P3D: bad frame count";
    case P3DERR_VERTEX_MISCOUNT: return "P3D: P3DERR_VERTEX_MISCOUNT";
    case P3DERR_PROXYNAME_MISMATCH: return "P3D: Proxyname mismatch";
    case P3DERR_EDGES_MISCOUNT: return "P3D: edges miscount";
    case P3DERR_BAD_HEADER: return "P3D: bad header";
    case P3DERR_V7_EXCESS: return "P3D: excess bytes in V7modelinfo";
    case P3DERR_V7_TRUNCATED: return "P3D: truncated bytes in V7modelinfo";
    case P3DERR_NO_LOD: return "no lod found";
    case P3DERR_TRAILING_SPACES: return "trailing spaces in named selection(s) and/or properties";
    case P3DERR_NO_CHANGES: return "no change(s)";
    case P3DERR_UNKNOWN_ODOL: return "P3D: unknown odol format";
    default: return GenericError::ErrorString(code);
  }
}

void Morvane::Close() {
  _io.io_Close();
  _open = false;
  _trailing = false;
  _kind = KIND_MLOD;
  _bare = false;
  _mlod_version = 257;
  _tail = nullptr;
  _tail_size = 0;
  _lods.clear();
  _odol.reset();
  _texts.clear();
  _blocks.clear();
  _texture_table.clear();
}

// ===== opening ===============================================================

int Morvane::p3d_Open(char const* file, unsigned int flags, BisCallback callback) {
  return _guarded([&] {
    Close();
    if (callback) _io.io_SetStdioCallBack(callback);
    if (!file || !*file) throw "no filename";
    if (!_io.io_OpenFile(file)) _io.io_throw(GE_EOF, "Cannot open %s\r\n", file);
    if (_io.io_IsHuge()) throw GE_NO_MEMORY;  // models are read in place: they must fit in memory
    return _open_worker(file, flags);
  });
}

int Morvane::p3d_Open(unsigned char const* buffer, unsigned int size, unsigned int flags, BisCallback callback) {
  return _guarded([&] {
    Close();
    if (callback) _io.io_SetStdioCallBack(callback);
    _io.io_OpenPseudoFile(buffer, buffer ? size : 0);
    return _open_worker("buffer", flags);
  });
}

int Morvane::_open_worker(char const* name, unsigned flags) {
  _io.io_set_trailing_spaces(0);
  uint8_t const* data = _io.io_GetRawData();
  P3dCursor c(data, data + _io.io_GetFileSize());
  int r = 0;
  try {
    uint8_t const* magic = c.take(4);
    if (p3d_magic_is(magic, "MLOD") || p3d_magic_is(magic, "SP3X") || p3d_magic_is(magic, "SP3D")) {
      c.seek(0);
      _read_mlod_file(c);
    } else if (p3d_magic_is(magic, "ODOL")) {
      _odol = std::make_unique<OdolModel>(_io);
      _odol->read(c);
      _kind = static_cast<int>(_odol->version());
      _trailing = _odol->trailing_spaces();
    } else {
      throw P3DERR_UNDECODABLE;
    }
  } catch (...) {
    Close();
    throw;
  }
  _open = true;
  if (_trailing) {
    if ((flags & OPEN_WARNINGS_ARE_ERRORS) || _io.io_get_warnings_are_errors()) {
      Close();
      return static_cast<int>(P3DERR_TRAILING_SPACES);
    }
    _io.io_callback("%s trailing spaces detected\n", name);
  }
  return r;
}

// ===== the model =============================================================

void Morvane::p3d_KindText(int kind, GenString* text) {
  if (!text) return;
  switch (kind) {
    case KIND_MLOD: *text = "MLOD"; return;
    case KIND_MLOD_SP3X: *text = "MLOD SP3X (ofp)"; return;
    case KIND_MLOD_P3DM: *text = "MLOD P3DM (arma)"; return;
    case KIND_DEMO_SP3X: *text = "OFP DEMO SP3X\r\n"; return;
    case KIND_DEMO_SP3D: *text = "OFP DEMO SP3D\r\n"; return;
    case KIND_ODOL7: *text = "ODOL 7 (ofp):"; return;
    default: break;
  }
  text->Format("ODOL %d ", kind);
  text->str_cat(kind <= 46 ? "(Arma1 lzss)" : kind <= 49 ? "(Arma2 lzo)" : kind <= 55 ? "(Arrowhead)" : "(Arma3)");
}

void Morvane::p3d_GetTypeStr(GenString* text) const {
  if (!text) return;
  GenString kind;
  p3d_GetKindText(&kind);
  text->Format("%s : nLods=%d\r\n", kind.c_str(), p3d_GetLodCount());
}

int Morvane::p3d_GetLodCount() const {
  if (_odol) return static_cast<int>(_odol->lod_count());
  return static_cast<int>(_lods.size());
}

void const* Morvane::p3d_get_lod(int lod) const {
  if (lod < 0 || lod >= p3d_GetLodCount()) return nullptr;
  if (_odol) return _odol->lod(static_cast<uint32_t>(lod));
  return &_lods[static_cast<size_t>(lod)];
}

float Morvane::p3d_get_resolution(int lod) const {
  if (lod < 0 || lod >= p3d_GetLodCount()) return 0.0f;
  if (_odol) return _odol->resolution(static_cast<uint32_t>(lod));
  return _lods[static_cast<size_t>(lod)].resolution;
}

char const* Morvane::p3d_get_lodtype_str(int lod, bool integers_allowed) {
  if (lod < 0 || lod >= p3d_GetLodCount()) return nullptr;
  lod_resolution_text(p3d_get_resolution(lod), integers_allowed, _text);
  return _text.c_str();
}

MlodLod* Morvane::_mlod(void const* handle) const {
  if (!handle || _odol) return nullptr;
  for (MlodLod const& l : _lods)
    if (&l == handle) return const_cast<MlodLod*>(&l);
  return nullptr;
}

MlodLod* Morvane::_mlod_by_resolution(float resolution) {
  for (MlodLod& l : _lods)
    if (std::memcmp(&l.resolution, &resolution, 4) == 0) return &l;
  return nullptr;
}

// ===== LOD accessors =========================================================

int Morvane::p3d_get_mlod_type(void const* lod) const {
  MlodLod const* l = _mlod(lod);
  return l ? l->kind : -1;
}

uint32_t Morvane::p3d_get_flagbits(void const* lod) const {
  MlodLod const* l = _mlod(lod);
  return l ? l->flags : 0;
}

unsigned long Morvane::p3d_get_taggs(void const* lod, MlodTagg const** first) const {
  MlodLod const* l = _mlod(lod);
  if (first) *first = l && !l->taggs.empty() ? l->taggs.data() : nullptr;
  return l ? l->taggs.size() : 0;
}

namespace {
template <class T>
T const* table(std::vector<T> const& v, unsigned long* count) {
  if (count) *count = v.size();
  return v.empty() ? nullptr : v.data();
}
uint8_t const* raw(uint8_t const* p, unsigned long n, unsigned long* count) {
  if (count) *count = p ? n : 0;
  return p;
}
}  // namespace

MlodProperty const* Morvane::p3d_get_property_table(void const* lod, unsigned long* count) const {
  MlodLod const* l = _mlod(lod);
  if (!l) return raw(nullptr, 0, count), nullptr;
  return table(l->properties, count);
}

MlodFace const* Morvane::p3d_get_face_table(void const* lod, unsigned long* count) const {
  MlodLod const* l = _mlod(lod);
  if (!l) return raw(nullptr, 0, count), nullptr;
  return table(l->faces, count);
}

LodNamedSelection const* Morvane::p3d_get_named_selection_table(void const* lod, unsigned long* count) const {
  MlodLod const* l = _mlod(lod);
  if (!l) return raw(nullptr, 0, count), nullptr;
  return table(l->selections, count);
}

uint8_t const* Morvane::p3d_get_normals_table(void const* lod, unsigned long* count) const {
  MlodLod const* l = _mlod(lod);
  return l ? raw(l->normals, l->nNormals, count) : raw(nullptr, 0, count);
}

uint8_t const* Morvane::p3d_get_points_table(void const* lod, unsigned long* count) const {
  MlodLod const* l = _mlod(lod);
  return l ? raw(l->points, l->nPoints, count) : raw(nullptr, 0, count);
}

uint8_t const* Morvane::p3d_get_point_and_flags_table(void const* lod, unsigned long* count) const {
  MlodLod const* l = _mlod(lod);
  return l && l->kind != MLOD_SP3D ? raw(l->points, l->nPoints, count) : raw(nullptr, 0, count);
}

uint8_t const* Morvane::p3d_get_pointflags_table(void const* lod, unsigned long* count) const {
  MlodLod const* l = _mlod(lod);
  return l && l->kind != MLOD_SP3D && l->points ? raw(l->points + 12, l->nPoints, count) : raw(nullptr, 0, count);
}

uint8_t const* Morvane::p3d_get_demo_points_table(void const* lod, unsigned long* count) const {
  MlodLod const* l = _mlod(lod);
  return l && l->kind == MLOD_SP3D ? raw(l->points, l->nPoints, count) : raw(nullptr, 0, count);
}

uint8_t const* Morvane::p3d_get_uvset_table(void const* lod, unsigned int set, unsigned long* count) const {
  MlodLod const* l = _mlod(lod);
  if (l)
    for (MlodTagg const& t : l->taggs)
      if (t.type == MlodTagg::UVSET && p3d_le32(t.data) == set) return raw(t.data + 4, (t.data_size - 4) / 8, count);
  return raw(nullptr, 0, count);
}

uint8_t const* Morvane::p3d_get_edges_table(void const* lod, unsigned long* count) const {
  MlodLod const* l = _mlod(lod);
  return l ? raw(l->edges, l->nEdges, count) : raw(nullptr, 0, count);
}

std::string_view const* Morvane::p3d_get_texture_table(void const* lod, unsigned long* count) {
  _texture_table.clear();
  if (MlodLod const* l = _mlod(lod)) {
    std::unordered_set<std::string_view> seen;
    for (MlodFace const& f : l->faces)
      if (seen.insert(f.texture).second) _texture_table.push_back(f.texture);
  }
  return table(_texture_table, count);
}

std::string_view Morvane::p3d_get_texture_name(void const* lod, unsigned long face) const {
  MlodLod const* l = _mlod(lod);
  return l && face < l->faces.size() ? l->faces[face].texture : std::string_view();
}

std::string_view Morvane::p3d_get_material(void const* lod, unsigned long face) const {
  MlodLod const* l = _mlod(lod);
  return l && face < l->faces.size() ? l->faces[face].material : std::string_view();
}

unsigned long Morvane::p3d_get_nPoints(void const* lod) const {
  if (_odol) return _odol->lod_points(lod);
  MlodLod const* l = _mlod(lod);
  return l ? l->nPoints : 0;
}

unsigned long Morvane::p3d_get_nFaces(void const* lod) const {
  if (_odol) return _odol->lod_faces(lod);
  MlodLod const* l = _mlod(lod);
  return l ? l->nFaces : 0;
}

unsigned long Morvane::p3d_get_nTriangles(void const* lod) const {
  MlodLod const* l = _mlod(lod);
  return l ? l->nTriangles : 0;
}

unsigned long Morvane::p3d_get_nQuads(void const* lod) const {
  MlodLod const* l = _mlod(lod);
  return l ? l->nQuads : 0;
}

unsigned long Morvane::p3d_get_nNamedSelections(void const* lod) const {
  if (_odol) return _odol->lod_selections(lod);
  MlodLod const* l = _mlod(lod);
  return l ? l->selections.size() : 0;
}

unsigned long Morvane::p3d_get_nProperties(void const* lod) const {
  if (_odol) return _odol->lod_properties(lod);
  MlodLod const* l = _mlod(lod);
  return l ? l->properties.size() : 0;
}

// ===== calculated values =====================================================

double Morvane::p3d_get_calculated_total_mass(void const* lod) const {
  MlodLod const* l = _mlod(lod);
  double total = 0;
  if (l && l->mass)
    for (uint32_t i = 0; i < l->nPoints; ++i) total += l->point_mass(i);
  return total;
}

namespace {
void bounds(MlodLod const* l, XYZTriplet& lo, XYZTriplet& hi) {
  lo = hi = XYZTriplet{};
  if (!l || !l->nPoints) return;
  lo = hi = l->point(0);
  for (uint32_t i = 1; i < l->nPoints; ++i) {
    XYZTriplet p = l->point(i);
    lo.x = std::min(lo.x, p.x), lo.y = std::min(lo.y, p.y), lo.z = std::min(lo.z, p.z);
    hi.x = std::max(hi.x, p.x), hi.y = std::max(hi.y, p.y), hi.z = std::max(hi.z, p.z);
  }
}
}  // namespace

XYZTriplet Morvane::p3d_get_calculated_bounds_min(void const* lod) const {
  XYZTriplet lo, hi;
  bounds(_mlod(lod), lo, hi);
  return lo;
}

XYZTriplet Morvane::p3d_get_calculated_bounds_max(void const* lod) const {
  XYZTriplet lo, hi;
  bounds(_mlod(lod), lo, hi);
  return hi;
}

XYZTriplet Morvane::p3d_get_calculated_cog(void const* lod) const {
  MlodLod const* l = _mlod(lod);
  XYZTriplet cog;
  if (!l || !l->nPoints) return cog;
  double sx = 0, sy = 0, sz = 0, total = 0;
  for (uint32_t i = 0; i < l->nPoints; ++i) {
    XYZTriplet p = l->point(i);
    double m = l->mass ? l->point_mass(i) : 1.0;
    sx += m * p.x, sy += m * p.y, sz += m * p.z, total += m;
  }
  if (total == 0) return cog;
  cog.x = static_cast<float>(sx / total), cog.y = static_cast<float>(sy / total), cog.z = static_cast<float>(sz / total);
  return cog;
}

XYZTriplet Morvane::p3d_get_calculated_offset(void const* lod) const {
  XYZTriplet lo, hi;
  bounds(_mlod(lod), lo, hi);
  return XYZTriplet{-(lo.x + hi.x) / 2, -(lo.y + hi.y) / 2, -(lo.z + hi.z) / 2};
}

fMinMax Morvane::p3d_get_boundsX(void const* lod) const {
  XYZTriplet lo, hi;
  bounds(_mlod(lod), lo, hi);
  return fMinMax{lo.x, hi.x};
}

fMinMax Morvane::p3d_get_boundsY(void const* lod) const {
  XYZTriplet lo, hi;
  bounds(_mlod(lod), lo, hi);
  return fMinMax{lo.y, hi.y};
}

// ===== properties ============================================================

char const* Morvane::p3d_GetLodProperty(char const* name) {
  if (!name) return nullptr;
  if (_odol) return _odol->geometry_property(name, _text);
  MlodLod* geo = _mlod_by_resolution(lod_res::kGeometry);
  if (!geo) return nullptr;
  for (MlodProperty const& p : geo->properties)
    if (p.name.size() == std::strlen(name) && strncasecmp(p.name.data(), name, p.name.size()) == 0) {
      _text.str_MemDup(p.value.data(), p.value.size());
      return _text.c_str();
    }
  return nullptr;
}

int Morvane::p3d_get_properties(TokenPairs* out, int lod) {
  return _guarded([&] {
    if (!out) throw GE_CODE_BUG;
    if (lod < 0 || lod >= p3d_GetLodCount()) throw P3DERR_NO_LOD;
    if (_odol) return _odol->lod_properties(static_cast<uint32_t>(lod), *out);
    for (MlodProperty const& p : _lods[static_cast<size_t>(lod)].properties)
      out->tkn_add(std::string(p.name).c_str(), std::string(p.value).c_str());
    return 0;
  });
}

std::string_view Morvane::_own(std::string_view text) {
  _texts.emplace_back(text);
  return _texts.back();
}

int Morvane::p3d_set_property(char const* name, char const* value, float resolution) {
  return _guarded([&] {
    if (!name || !*name || !value) throw GE_CODE_BUG;
    if (!p3d_IsMlod()) throw P3DERR_UNDECODABLE;
    MlodLod* l = _mlod_by_resolution(resolution);
    if (!l) throw P3DERR_NO_LOD;
    // The fixed fields hold 63 characters and their terminator.
    std::string_view n(name, strnlen(name, 63)), v(value, strnlen(value, 63));
    // "damage" supersedes the old misspelt "dammage": keeping both would leave the engine a choice.
    if (strcasecmp(name, "damage") == 0)
      l->taggs.erase(std::remove_if(l->taggs.begin(), l->taggs.end(),
                                    [](MlodTagg const& t) {
                                      return t.type == MlodTagg::PROPERTY && t.prop_name.size() == 7 &&
                                             strncasecmp(t.prop_name.data(), "dammage", 7) == 0;
                                    }),
                     l->taggs.end());
    MlodTagg* found = nullptr;
    for (MlodTagg& t : l->taggs)
      if (t.type == MlodTagg::PROPERTY && t.prop_name.size() == n.size() &&
          strncasecmp(t.prop_name.data(), n.data(), n.size()) == 0)
        found = &t;
    if (!found) {
      MlodTagg t;
      t.type = MlodTagg::PROPERTY;
      t.name = "#Property#";
      t.stored_length = t.data_size = 128;
      l->taggs.push_back(t);
      found = &l->taggs.back();
      found->prop_name = _own(n);
      l->has_taggs = true;
    }
    found->data = nullptr;  // written from its texts from now on
    found->prop_value = _own(v);
    l->index_taggs();
    return 0;
  });
}


int Morvane::p3d_set_property(wchar_t const* name, wchar_t const* value, float resolution) {
  std::string n = FileStringA::fs_convert_to_utf8(name), v = FileStringA::fs_convert_to_utf8(value);
  return p3d_set_property(name ? n.c_str() : nullptr, value ? v.c_str() : nullptr, resolution);
}

char const* Morvane::p3d_needs_land_class() {
  static char const* const kLandClasses[] = {"house", "tower", "streetlamp", "housesimulated", "church", "vehicle"};
  char const* cls = p3d_GetLodProperty("class");
  if (!cls) return nullptr;
  for (char const* c : kLandClasses)
    if (strcasecmp(cls, c) == 0) return c;
  return nullptr;
}

// Point flags the engine of the P3DM generation no longer reads: the old user value and the decal
// modes. SP3X models come from the generation that still uses them and are left alone. Face flags
// have no obsolete bit.
int Morvane::p3d_remove_obsolete_flags() {
  constexpr uint32_t kObsoletePointBits = 0x00FF0000u | 0x00000300u;
  int changed = 0;
  for (MlodLod& l : _lods) {
    if (l.kind != MLOD_P3DM || !l.nPoints) continue;
    bool any = false;
    for (uint32_t i = 0; i < l.nPoints && !any; ++i) any = l.point_flags(i) & kObsoletePointBits;
    if (!any) continue;
    _blocks.emplace_back(l.points, l.points + size_t{l.nPoints} * 16);
    uint8_t* pts = _blocks.back().data();
    for (uint32_t i = 0; i < l.nPoints; ++i) {
      uint32_t f = p3d_le32(pts + size_t{i} * 16 + 12);
      if (f & kObsoletePointBits) {
        f &= ~kObsoletePointBits;
        std::memcpy(pts + size_t{i} * 16 + 12, &f, 4);
        ++changed;
      }
    }
    l.points = pts;
  }
  return changed;
}
