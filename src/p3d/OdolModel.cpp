#include "p3d/OdolModel.h"

#include <strings.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "io/BisFileIO.h"
#include "p3d/P3dCursor.h"
#include "p3d/P3dErrors.h"
#include "text/GenString.h"
#include "text/TokenPairs.h"

namespace {
constexpr uint32_t kNone = 0xFFFFFFFFu;

std::string_view trim_blanks(std::string_view s) {
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}

// A path without one leading backslash and without its extension.
std::string_view proxy_stem(std::string_view s) {
  if (!s.empty() && s.front() == '\\') s.remove_prefix(1);
  size_t dot = s.rfind('.');
  size_t slash = s.rfind('\\');
  if (dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash)) s = s.substr(0, dot);
  return s;
}
}  // namespace

OdolModel::OdolModel(BisFileIO& io) : _io(io) {}

OdolModel::~OdolModel() = default;

CompressType OdolModel::_mode(bool fill) const {
  CompressType t = _version < 44 ? CT_LZSS : _version < 64 ? CT_LZO : (CT_LZO | CT_FLAG_BYTE);
  return fill ? (t | CT_FILL_BYTE) : t;
}

OdolBytes OdolModel::_keep(uint64_t n) { return {_io.io_GetAddressAndUpdate(n), n}; }

OdolBytes OdolModel::_since(uint8_t const* mark) const {
  return {mark, static_cast<uint64_t>(_io.io_GetAddress() - mark)};
}

void OdolModel::_array(CompressedStruct& a, uint32_t element_size, bool fill) {
  a.cs_SetElementSize(element_size);
  a.ReadCompressed(_io, _mode(fill));
}

// The arrays a LOD keeps only to write back lose their expanded form once the LOD is read.
void OdolModel::_drop_expanded(OdolLod& lod) {
  for (CompressedStruct* a : {&lod.point_to_vertex, &lod.vertex_to_point, &lod.clip, &lod.vertex_clip,
                              &lod.uv1, &lod.st, &lod.bones, &lod.neighbours})
    a->cs_DropExpanded();
  for (CompressedStruct& a : lod.selection_words) a.cs_DropExpanded();
}

// ===== file level ============================================================

void OdolModel::read(P3dCursor& c) {
  _data = c.here() - c.offset();
  _size = c.offset() + c.remaining();
  _io.io_MoveTo(4);
  _version = _io.io_ReadUlong();
  if (_version != 7 && _version <= 39) {
    _io.io_callback("Type %d ", static_cast<int>(_version));
    throw P3DERR_UNKNOWN_ODOL;
  }
  if (has_app_id()) {
    _app_id = _io.io_ReadUlong();
    _io.io_callback("Header AppID: %d\r\n", static_cast<int>(_app_id));
  }
  if (has_prefix()) {
    _prefix = _io.io_ReadAsciiz();
    _io.io_callback("Header Prefix: %.*s\r\n", static_cast<int>(_prefix.size()), _prefix.data());
  }
  uint32_t count = _io.io_ReadUlong();
  if (count == 0) throw P3DERR_NO_LOD;
  // Every LOD takes at least its resolution and two offsets.
  if (count > _io.io_RemainingBytes() / 12) throw GE_EOF;
  _lods.resize(count);
  for (uint32_t i = 0; i < count; ++i) _lods[i].index = i;

  if (_version == 7) {
    // OFP stores the LODs first, then their resolutions and the model information.
    _lods_begin = _io.io_GetCurrentOffset();
    for (OdolLod& lod : _lods) {
      _read_lod_v7(lod);
      _read_order.push_back(lod.index);
    }
    _resolutions.resize(count);
    for (float& r : _resolutions) _io.io_read(&r, "lod Resolution");
    uint8_t const* info = _io.io_GetAddress();
    _model_info_v7();
    _info = _since(info);
    return;
  }

  _resolutions.resize(count);
  for (float& r : _resolutions) _io.io_read(&r, "lod Resolution");
  uint8_t const* info = _io.io_GetAddress();
  _model_info();
  _info = _since(info);
  _animations_flag = static_cast<uint8_t>(_io.io_ReadByte());
  if (_animations_flag) _animations();
  _starts.resize(count);
  _ends.resize(count);
  for (uint32_t& s : _starts) s = _io.io_ReadUlong();
  for (uint32_t& e : _ends) e = _io.io_ReadUlong();
  uint8_t const* defaults = _io.io_GetAddress();
  _lod_defaults();
  _defaults = _since(defaults);

  // The LODs may be stored in another order than their table: each is placed by its offset.
  _lods_begin = _io.io_GetCurrentOffset();
  std::vector<OdolLod> read(count);
  std::vector<bool> seen(count, false);
  for (uint32_t n = 0; n < count; ++n) {
    uint64_t here = _io.io_GetCurrentOffset();
    uint32_t index = n;
    if (_starts[n] != here) {
      index = kNone;
      for (uint32_t j = 0; j < count; ++j)
        if (_starts[j] == here && !seen[j]) index = j;
      if (index == kNone) _io.io_throw(GE_CODE_BUG, "%s", "\r\nlod offset addresses are scrambled\r\n");
    }
    if (seen[index]) _io.io_throw(GE_CODE_BUG, "%s", "\r\nlod offset addresses are scrambled\r\n");
    seen[index] = true;
    _read_order.push_back(index);
    OdolLod& lod = read[index];
    lod.index = index;
    lod.start = here;
    _read_lod(lod);
    lod.end = _io.io_GetCurrentOffset();
    lod.end_slack = int64_t{_ends[index]} - static_cast<int64_t>(lod.end);
  }
  _lods = std::move(read);
  _tail_size = _io.io_RemainingBytes();
  if (_tail_size && _version < 56) throw GE_RESIDUAL_BYTES;
}

// Every generation stores the model's centres, inertia and occlusion switches alike.
void OdolModel::_centres_and_occlusion() {
  XYZTriplet t;
  Matrix3P m;
  bool b;
  _io.io_read(&t, "ModelInfo.boundingCenter");
  _io.io_read(&t, "ModelInfo.geometryCenter");
  _io.io_read(&t, "ModelInfo.centerOfMass");
  _io.io_read(&m, "ModelInfo.invInertia");
  _io.io_read(&b, "ModelInfo.AutoCenter");
  _io.io_read(&b, "ModelInfo.lockAutoCenter");
  _io.io_read(&b, "ModelInfo.canOcclude");
  _io.io_read(&b, "ModelInfo.canBeOccluded");
}

// The model information opens alike in every generation: spheres, hints, colours, density, box.
void OdolModel::_info_opening() {
  float f;
  XYZTriplet t;
  trpMinMax box;
  _io.io_ReadUlong();
  _io.io_read(&f, "ModelInfo.MemSphere");
  _io.io_read(&f, "ModelInfo.geo_sphere");
  _io.io_AddOffset(12);  // remark, and/or hints
  _io.io_read(&t, "ModelInfo.MemSphere");
  _io.io_AddOffset(8);  // map colours
  _io.io_read(&f, "ModelInfo.view_density");
  _io.io_read(&box, "ModelInfo.bounding_box");
}

void OdolModel::_model_info() {
  float f;
  trpMinMax box;
  _info_opening();
  if (_version >= 70) _io.io_read(&f, "ModelInfo.v70_lodDensityCoef");
  if (_version >= 71) _io.io_read(&f, "ModelInfo.v71_drawImportance");
  if (_version >= 52) _io.io_read(&box, "ModelInfo.visual_bounds");
  bool b;
  _centres_and_occlusion();
  if (_version >= 73) _io.io_read(&b, "ModelInfo.disableCover");
  if (_version >= 41) {
    fMinMax ht;
    _io.io_read(&ht, "ModelInfo.htMinMax");
    _io.io_read(&f, "ModelInfo.afMin");
    _io.io_read(&f, "ModelInfo.mfMax");
    _io.io_read(&f, "ModelInfo.mFact");
    _io.io_read(&f, "ModelInfo.tBody");
  }
  _io.io_read(&b, "ModelInfo.forceNotAlphaModel");
  uint32_t sb = _io.io_ReadUlong();
  if (sb > 4) {
    std::fprintf(stderr, "value is %u\n", sb);
    throw "sbsource out of range";
  }
  _io.io_read(&b, "ModelInfo.prefershadowvolume");
  if (_version >= 48) _io.io_read(&f, "ModelInfo.shadowOffset");
  _io.io_read(&b, "ModelInfo.allowAnimation");
  _skeleton();
  if (_io.io_ReadByte() >= 40) throw "maptype_max unknown";
  CompressedStruct masses(4);
  _array(masses, 4);
  if (masses.cs_Count()) throw "obsolete ofp mass array used";
  _io.io_read(&_mass, "ModelInfo.Mass");
  _io.io_read(&f, "ModelInfo.invMass");
  _io.io_read(&f, "ModelInfo.Armor");
  _io.io_read(&f, "ModelInfo.invArmor");
  if (_version >= 72) _io.io_read(&f, "ModelInfo.explosionshielding");
  _io.io_AddOffset(_version >= 56 ? 14 : 12);  // special LOD indices
  _io.io_ReadUlong();
  _io.io_read(&b, "ModelInfo.canBlend");
  _io.io_ReadAsciiz();  // class
  _io.io_ReadAsciiz();  // damage
  _io.io_read(&b, "ModelInfo.frequent");
  if (_io.io_ReadUlong() != 0) _io.io_throw(P3DERR_UNDECODABLE, "%s", "\r\nnon zero in modelinfo\r\n");
  if (_version >= 58) {
    _io.io_Require(uint64_t{12} * _lods.size());
    _io.io_AddOffset(static_cast<int64_t>(12 * _lods.size()));
  }
}

void OdolModel::_skeleton() {
  _skeleton_name = _io.io_ReadAsciiz();
  if (_skeleton_name.empty()) return;
  _io.io_read(&_discrete, "Skeleton.discrete");
  uint32_t bones = _io.io_ReadUlong();
  if (bones > _io.io_RemainingBytes() / 2) throw GE_EOF;
  _bones.resize(bones);
  for (auto& [bone, parent] : _bones) {
    bone = _io.io_ReadAsciiz();
    parent = _io.io_ReadAsciiz();
  }
  if (_version >= 43 && _io.io_ReadByte() != 0) throw "Skeleton 'always zero' is not";
}

void OdolModel::_animations() {
  uint32_t classes = _io.io_ReadUlong();
  if (classes > _io.io_RemainingBytes() / 6) throw GE_EOF;
  _anims.resize(classes);
  for (OdolAnimation& a : _anims) {
    a.type = _io.io_ReadUlong();
    a.name = _io.io_ReadAsciiz();
    a.source = _io.io_ReadAsciiz();
    a.block_size = _version >= 56 ? 36 : a.type == 8 ? 52 : a.type == 9 ? 24 : 28;
    a.block = _io.io_GetAddressAndUpdate(a.block_size);
  }
  uint8_t const* tables = _io.io_GetAddress();
  uint32_t lods = _io.io_ReadUlong();
  if (lods > _io.io_RemainingBytes() / 4) throw GE_EOF;
  for (uint32_t l = 0; l < lods; ++l) {
    uint32_t bones = _io.io_ReadUlong();
    if (bones > _io.io_RemainingBytes() / 4) throw GE_EOF;
    for (uint32_t b = 0; b < bones; ++b) {
      uint32_t n = _io.io_ReadUlong();
      _io.io_GetAddressAndUpdate(uint64_t{n} * 4);
    }
  }
  _bone_tables = _since(tables);
  for (OdolAnimation& a : _anims) {
    a.axes.assign(_lods.size(), nullptr);
    a.lod_bones.assign(_lods.size(), kNone);
  }
  for (size_t l = 0; l < _lods.size(); ++l)
    for (OdolAnimation& a : _anims) {
      uint32_t bone = _io.io_ReadUlong();
      a.lod_bones[l] = bone;
      if (l == 0) a.bone = bone;
      if (bone != kNone && a.type < 8) a.axes[l] = _io.io_GetAddressAndUpdate(24);
    }
}

void OdolModel::_lod_defaults() {
  std::vector<uint8_t> use(_lods.size());
  for (uint8_t& u : use) u = static_cast<uint8_t>(_io.io_ReadByte());
  for (uint8_t u : use)
    if (u == 0) _io.io_GetAddressAndUpdate(4 + (_version >= 52 ? 21 : 13));
}

// ===== one LOD ===============================================================

void OdolModel::_read_lod(OdolLod& lod) {
  uint32_t proxies = _io.io_ReadUlong();
  if (proxies > _io.io_RemainingBytes() / 65) throw GE_EOF;
  lod.proxies.resize(proxies);
  for (OdolProxy& p : lod.proxies) {
    p.model = _io.io_ReadAsciiz();
    p.block = _keep(64);
    std::memcpy(&p.selection, p.block.data + 52, 4);
  }
  // The skeleton bones this LOD uses are plain words in every version: no flag byte before them even
  // where the other arrays of the LOD carry one, and never compressed.
  uint8_t const* items_start = _io.io_GetAddress();
  uint32_t items = _io.io_ReadUlong();
  if (items > _io.io_RemainingBytes() / 4) throw GE_EOF;
  _io.io_GetAddressAndUpdate(uint64_t{items} * 4);
  lod.items = _since(items_start);
  uint8_t const* links_start = _io.io_GetAddress();
  uint32_t links = _io.io_ReadUlong();
  if (links > _io.io_RemainingBytes() / 4) throw GE_EOF;
  for (uint32_t i = 0; i < links; ++i) _io.io_GetAddressAndUpdate(uint64_t{_io.io_ReadUlong()} * 4);
  lod.links = _since(links_start);

  if (_version == 50) {
    lod.nVertices = _io.io_ReadUlong();
  } else if (_version < 52) {
    _array(lod.clip, 4, true);
    lod.nVertices = static_cast<uint32_t>(lod.clip.cs_Count());
  } else {
    lod.nVertices = _io.io_ReadUlong();
    lod.vertex_word = _keep(4);
  }
  _hints(lod);
  uint32_t textures = _io.io_ReadUlong();
  if (textures > _io.io_RemainingBytes()) throw GE_EOF;
  lod.textures.resize(textures);
  for (std::string_view& t : lod.textures) t = _io.io_ReadAsciiz();
  _materials(lod);

  bool wide = _version >= 69;
  _array(lod.point_to_vertex, wide ? 4 : 2);
  _array(lod.vertex_to_point, wide ? 4 : 2);
  _faces(lod, wide);
  _sections(lod);
  _selections(lod);
  _check_proxies(lod);
  _properties(lod);
  _frames(lod);
  lod.colours = _keep(12);  // icon colour, selected colour, special flags
  lod.one_bone = static_cast<uint8_t>(_io.io_ReadByte());
  _vertex_tables(lod);
  uint8_t const* end = _io.io_GetAddress();
  if (_version >= 67 && _io.io_ReadUlong() != 0) throw "v67/8 endlod not zero";
  if (_version >= 68) {
    int b = _io.io_ReadByte();
    if (b > 1) throw "v68 endlod not bool";
  }
  lod.lod_end = _since(end);
  _drop_expanded(lod);
}

// Hints, vertex bounds, auto centre and sphere: kept as stored.
void OdolModel::_hints(OdolLod& lod) {
  uint8_t const* mark = _io.io_GetAddress();
  trpMinMax bounds;
  XYZTriplet centre;
  float sphere;
  _io.io_GetAddressAndUpdate(8);  // or and and hints
  _io.io_read(&bounds, "vertex bounds");
  _io.io_read(&centre, "auto centre pos");
  _io.io_read(&sphere, "odol sphere");
  lod.hints = _since(mark);
}

void OdolModel::_materials(OdolLod& lod) {
  uint32_t count = _io.io_ReadUlong();
  if (count > _io.io_RemainingBytes() / 100) throw P3DERR_UNDECODABLE;
  lod.materials.resize(count);
  lod.material_data.resize(count);
  lod.material_sizes.resize(count);
  for (uint32_t i = 0; i < count; ++i) {
    lod.materials[i] = _io.io_ReadAsciiz();
    lod.material_data[i] = _io.io_GetAddress();
    _material();
    lod.material_sizes[i] = _since(lod.material_data[i]).size;
  }
}

// An embedded material: colours, shaders and texture stages. Only its extent matters here.
void OdolModel::_material() {
  uint32_t mv = _io.io_ReadUlong();
  if (mv > 64) throw P3DERR_UNDECODABLE;
  _io.io_GetAddressAndUpdate(6 * 16 + 4 + 4 * 4);  // colours, specular power, shaders, light, fog
  if (mv == 3) _io.io_ReadByte();
  if (mv >= 6) _io.io_ReadAsciiz();  // surface
  if (mv >= 4) _io.io_GetAddressAndUpdate(8);
  uint32_t stages = mv > 6 ? _io.io_ReadUlong() : 0;
  uint32_t transforms = mv > 8 ? _io.io_ReadUlong() : stages;
  if (stages > _io.io_RemainingBytes() || transforms > _io.io_RemainingBytes() / 52) throw P3DERR_UNDECODABLE;
  auto stage_texture = [&] {
    if (mv >= 5) _io.io_ReadUlong();
    _io.io_ReadAsciiz();
    if (mv >= 8) _io.io_ReadUlong();
    if (mv >= 11) _io.io_ReadByte();
  };
  if (mv < 8) {
    for (uint32_t s = 0; s < stages; ++s) {
      _io.io_GetAddressAndUpdate(52);
      stage_texture();
    }
  } else {
    for (uint32_t s = 0; s < stages; ++s) stage_texture();
    _io.io_GetAddressAndUpdate(uint64_t{transforms} * 52);
  }
  if (mv >= 10) stage_texture();
}

void OdolModel::_faces(OdolLod& lod, bool wide) {
  lod.nFaces = _io.io_ReadUlong();
  lod.face_size_word = _io.io_ReadUlong();
  if (_io.io_ReadUshort() != 0) throw GE_DEBUG_TRAP;
  uint32_t index = wide ? 4 : 2;
  if (lod.nFaces > _io.io_RemainingBytes() / (1 + 3 * index)) throw GE_EOF;
  lod.faces = _io.io_GetAddress();
  P3dCursor c(lod.faces, lod.faces + _io.io_RemainingBytes());
  for (uint32_t f = 0; f < lod.nFaces; ++f) {
    uint32_t n = c.u8();
    if (n != 3 && n != 4) _io.io_throw(GE_DEBUG_TRAP, "bad facetype (%d). Needs to be 3, or 4\r\n", static_cast<int>(n));
    uint8_t const* corners = c.take(n * index);
    for (uint32_t k = 0; k < n; ++k) {
      uint32_t v = 0;
      std::memcpy(&v, corners + k * index, index);
      if (v >= lod.nVertices) throw P3DERR_VERTEX_MISCOUNT;
    }
  }
  uint64_t used = c.offset();
  _io.io_GetAddressAndUpdate(used);
  lod.face_bytes = static_cast<uint32_t>(used);
  lod.face_size_slack = int64_t{lod.face_size_word} - int64_t{_face_size_word(lod)};
}

void OdolModel::_sections(OdolLod& lod) {
  uint32_t count = _io.io_ReadUlong();
  if (count > _io.io_RemainingBytes() / 38) throw GE_EOF;
  lod.sections.resize(count);
  for (OdolSection& s : lod.sections) {
    s.face_start = _io.io_ReadUlong();
    s.face_end = _io.io_ReadUlong();
    s.bones = _io.io_GetAddressAndUpdate(12);  // bones, common point user value
    s.texture = _io.io_ReadShort();
    s.flags = _io.io_ReadUlong();  // common face flags
    s.material = _io.io_ReadLong();
    if (s.material == -1) s.material_path = _io.io_ReadAsciiz();
    s.areas = _io.io_ReadUlong();
    s.area_words = _io.io_GetAddressAndUpdate(uint64_t{s.areas} * 4);
    if (_version >= 67) {
      uint8_t const* mark = _io.io_GetAddress();
      uint32_t extra = _io.io_ReadUlong();
      if (extra > 1) throw "v68 section error";
      if (extra) _io.io_GetAddressAndUpdate(44);
      s.extra = _since(mark);
    }
  }
}

void OdolModel::_selections(OdolLod& lod) {
  uint32_t count = _io.io_ReadUlong();
  if (count > _io.io_RemainingBytes() / 20) throw GE_EOF;
  lod.selections.resize(count);
  uint32_t index = _version >= 69 ? 4 : 2;
  for (OdolSelection& s : lod.selections) {
    s.name = _io.io_ReadAsciiz();
    _selection_name(s);
    _array(s.faces, index);
    s.word = _io.io_ReadUlong();
    _sectional(s);
    _array(s.sections, 4);
    _array(s.vertices, index);
    _array(s.weights, 1);
  }
}

void OdolModel::_selection_name(OdolSelection& s) {
  std::string_view trimmed = trim_blanks(s.name);
  if (trimmed.size() != s.name.size()) {
    _io.io_callback("WARNING****:Named selection '%.*s' has trailing space(s)\r\n", static_cast<int>(s.name.size()),
                    s.name.data());
    _trailing = true;
    s.trailing_blanks = static_cast<uint32_t>(s.name.size() - trimmed.size());
    s.name = trimmed;
  }
}

void OdolModel::_sectional(OdolSelection& s) {
  uint8_t b = static_cast<uint8_t>(_io.io_ReadByte());
  s.sectional = b != 0;
  if (b) s.true_byte = b;
}

void OdolModel::_check_proxies(OdolLod const& lod) {
  for (OdolProxy const& p : lod.proxies) {
    if (p.selection >= lod.selections.size()) throw P3DERR_PROXYNAME_MISMATCH;
    std::string sel(lod.selections[p.selection].name);
    if (sel.size() < 6 || strncasecmp(sel.c_str(), "proxy:", 6) != 0) {
      _io.io_callbackerr("missing 'proxy:' in named selection %s\r\n", sel.c_str());
      throw P3DERR_PROXYNAME_MISMATCH;
    }
    std::string_view name = std::string_view(sel).substr(6);
    if (!name.empty() && name.front() == '\\') name.remove_prefix(1);
    std::string_view model = proxy_stem(p.model);
    // A selection names its proxy without the extension, but may carry a ".NNN" instance suffix.
    bool same = name.size() >= model.size() && strncasecmp(name.data(), model.data(), model.size()) == 0 &&
                (name.size() == model.size() || name[model.size()] == '.');
    if (!same) {
      std::string m(p.model);
      _io.io_callbackerr("proxy mismatch.\r\nnamed selection=%s\r\nproxy=%s\r\n", sel.c_str(), m.c_str());
      throw P3DERR_PROXYNAME_MISMATCH;
    }
  }
}

void OdolModel::_properties(OdolLod& lod) {
  uint32_t count = _io.io_ReadUlong();
  if (count > _io.io_RemainingBytes() / 2) throw GE_EOF;
  lod.properties.resize(count);
  for (auto& [name, value] : lod.properties) {
    name = _io.io_ReadAsciiz();
    value = _io.io_ReadAsciiz();
    if (!value.empty() && value.back() == ' ')
      _io.io_callback("WARNING***:lod %d: trailing space(s) detected in property '%.*s' = '%.*s'\r\n",
                      static_cast<int>(lod.index), static_cast<int>(name.size()), name.data(),
                      static_cast<int>(value.size()), value.data());
  }
}

void OdolModel::_frames(OdolLod& lod) {
  uint8_t const* mark = _io.io_GetAddress();
  uint32_t count = _io.io_ReadUlong();
  if (count > _io.io_RemainingBytes() / 8) throw GE_EOF;
  for (uint32_t i = 0; i < count; ++i) {
    float time;
    _io.io_read(&time, "frame time");
    uint32_t n = _io.io_ReadUlong();
    if (n != lod.nVertices) throw P3DERR_BAD_FRAME_COUNT;
    _io.io_GetAddressAndUpdate(uint64_t{n} * 12);
  }
  lod.frames = _since(mark);
}

void OdolModel::_uv_set(OdolLod& lod, CompressedStruct& a, float* bounds) {
  if (_version >= 44) {
    for (int i = 0; i < 4; ++i) _io.io_read(&bounds[i], "uv bounds");
    _array(a, 4, true);
  } else {
    _array(a, 8, true);
  }
  if (a.cs_Count() != lod.nVertices) throw P3DERR_VERTEX_MISCOUNT;
}

void OdolModel::_vertex_tables(OdolLod& lod) {
  // The size counts its own four bytes.
  uint64_t start = _io.io_GetCurrentOffset();
  uint32_t size = _io.io_ReadUlong();
  if (size < 4 || size - 4 > _io.io_RemainingBytes()) throw GE_EOF;
  auto counted = [&](CompressedStruct& a, uint32_t element, bool fill, bool may_be_empty) {
    _array(a, element, fill);
    if (a.cs_Count() != lod.nVertices && !(may_be_empty && a.cs_Count() == 0)) throw P3DERR_VERTEX_MISCOUNT;
  };
  if (_version >= 50) {
    _array(lod.vertex_clip, 4, true);
    if (lod.vertex_clip.cs_Count() != lod.nVertices) throw P3DERR_EDGES_MISCOUNT;
  }
  _uv_set(lod, lod.uv0, lod.uv_bounds);
  lod.uv_sets = _io.io_ReadUlong();
  if (lod.uv_sets == 2)
    _uv_set(lod, lod.uv1, lod.uv1_bounds);
  else if (lod.uv_sets > 2)
    throw P3DERR_VERTEX_MISCOUNT;
  bool lzo = _version >= 44;
  counted(lod.positions, 12, false, false);
  counted(lod.normals, lzo ? 4 : 12, true, false);
  counted(lod.st, lzo ? 8 : 24, false, true);
  counted(lod.bones, 12, false, true);
  counted(lod.neighbours, 32, false, true);
  if (_io.io_GetCurrentOffset() != start + size) _io.io_throw(GE_CODE_BUG, "%s", "\r\nDebug: lod size mismatch\r\n");
}

// ===== answers ===============================================================

OdolLod const* OdolModel::_lod_of(void const* handle) const {
  for (OdolLod const& l : _lods)
    if (&l == handle) return &l;
  return nullptr;
}

unsigned long OdolModel::lod_points(void const* h) const {
  OdolLod const* l = _lod_of(h);
  return l ? l->nVertices : 0;
}

unsigned long OdolModel::lod_faces(void const* h) const {
  OdolLod const* l = _lod_of(h);
  return l ? l->nFaces : 0;
}

unsigned long OdolModel::lod_selections(void const* h) const {
  OdolLod const* l = _lod_of(h);
  return l ? l->selections.size() : 0;
}

unsigned long OdolModel::lod_properties(void const* h) const {
  OdolLod const* l = _lod_of(h);
  return l ? l->properties.size() : 0;
}

int OdolModel::lod_properties(uint32_t lod, TokenPairs& out) const {
  if (lod >= _lods.size()) return P3DERR_NO_LOD;
  for (auto const& [name, value] : _lods[lod].properties) out.tkn_add(std::string(name).c_str(), std::string(value).c_str());
  return 0;
}

char const* OdolModel::geometry_property(char const* name, GenString& out) const {
  for (size_t i = 0; i < _lods.size(); ++i) {
    if (_resolutions[i] != 1e13f) continue;
    for (auto const& [n, v] : _lods[i].properties)
      if (n.size() == std::strlen(name) && strncasecmp(n.data(), name, n.size()) == 0) {
        out.str_MemDup(v.data(), v.size());
        return out.c_str();
      }
  }
  return nullptr;
}

void OdolModel::vertex_uv(OdolLod const& lod, uint32_t vertex, float& u, float& v) const {
  u = v = 0;
  if (vertex >= lod.uv0.cs_Count()) return;
  uint8_t const* p = lod.uv0.cs_Array() + size_t{vertex} * lod.uv0.cs_ElementSize();
  if (_version < 44) {
    std::memcpy(&u, p, 4);
    std::memcpy(&v, p + 4, 4);
    return;
  }
  int16_t su, sv;
  std::memcpy(&su, p, 2);
  std::memcpy(&sv, p + 2, 2);
  u = odol_expand_uv(su, lod.uv_bounds[0], lod.uv_bounds[2]);
  v = odol_expand_uv(sv, lod.uv_bounds[1], lod.uv_bounds[3]);
}

// ===== OFP (version 7) ========================================================

void OdolModel::_read_lod_v7(OdolLod& lod) {
  lod.start = _io.io_GetCurrentOffset();
  _array(lod.clip, 4);
  _array(lod.uv0, 8);
  // Positions and normals are always stored as they are.
  lod.positions.cs_SetElementSize(12);
  lod.positions.ReadCompressed(_io, 0);
  lod.normals.cs_SetElementSize(12);
  lod.normals.ReadCompressed(_io, 0);
  lod.nVertices = static_cast<uint32_t>(lod.positions.cs_Count());
  if (lod.clip.cs_Count() != lod.nVertices || lod.uv0.cs_Count() != lod.nVertices ||
      lod.normals.cs_Count() != lod.nVertices)
    throw P3DERR_VERTEX_MISCOUNT;
  _hints(lod);
  uint32_t textures = _io.io_ReadUlong();
  if (textures > _io.io_RemainingBytes()) throw GE_EOF;
  lod.textures.resize(textures);
  for (std::string_view& t : lod.textures) t = _io.io_ReadAsciiz();
  _array(lod.point_to_vertex, 2);
  _array(lod.vertex_to_point, 2);

  // Faces: flags, texture, corner count and 16-bit vertex indices.
  lod.nFaces = _io.io_ReadUlong();
  lod.face_size_word = _io.io_ReadUlong();  // the size the engine allocates for them
  if (lod.nFaces > _io.io_RemainingBytes() / 13) throw GE_EOF;
  lod.faces = _io.io_GetAddress();
  P3dCursor c(lod.faces, lod.faces + _io.io_RemainingBytes());
  for (uint32_t f = 0; f < lod.nFaces; ++f) {
    c.skip(6);
    uint32_t n = c.u8();
    if (n != 3 && n != 4) _io.io_throw(GE_DEBUG_TRAP, "bad facetype (%d). Needs to be 3, or 4\r\n", static_cast<int>(n));
    for (uint32_t k = 0; k < n; ++k)
      if (c.u16() >= lod.nVertices) throw P3DERR_VERTEX_MISCOUNT;
  }
  lod.face_bytes = static_cast<uint32_t>(c.offset());
  _io.io_GetAddressAndUpdate(c.offset());

  uint32_t sections = _io.io_ReadUlong();
  if (sections > _io.io_RemainingBytes() / 18) throw GE_EOF;
  lod.sections.resize(sections);
  for (OdolSection& s : lod.sections) {
    s.face_start = _io.io_ReadUlong();
    s.face_end = _io.io_ReadUlong();
    s.bones = _io.io_GetAddressAndUpdate(4);
    s.texture = _io.io_ReadShort();
    s.flags = _io.io_ReadUlong();
  }
  uint32_t selections = _io.io_ReadUlong();
  if (selections > _io.io_RemainingBytes() / 30) throw GE_EOF;
  lod.selections.resize(selections);
  lod.selection_words.resize(selections);
  for (OdolSelection& s : lod.selections) {
    s.name = _io.io_ReadAsciiz();
    _selection_name(s);
    _array(s.faces, 2);
    s.word = _io.io_ReadUlong();
    _array(lod.selection_words[&s - lod.selections.data()], 4);
    _sectional(s);
    _array(s.sections, 4);
    _array(s.vertices, 2);
    _array(s.weights, 1);
  }
  _properties(lod);
  _frames(lod);
  lod.colours = _keep(12);  // icon colour, selected colour, special flags
  uint32_t proxies = _io.io_ReadUlong();
  if (proxies > _io.io_RemainingBytes() / 57) throw GE_EOF;
  lod.proxies.resize(proxies);
  for (OdolProxy& p : lod.proxies) {
    p.model = _io.io_ReadAsciiz();
    p.block = _keep(56);
    std::memcpy(&p.selection, p.block.data + 52, 4);
  }
  _check_proxies(lod);
  lod.end = _io.io_GetCurrentOffset();
  _drop_expanded(lod);
}

void OdolModel::_model_info_v7() {
  // The fixed part up to the mass array's count; the array and the rest follow.
  constexpr uint64_t kFixed = 72 + 76 + 1 + 1 + 4, kAfterMasses = 16 + 12;
  uint64_t have = _io.io_RemainingBytes();
  uint64_t need = kFixed + kAfterMasses;
  if (have >= kFixed) {
    uint32_t masses;
    std::memcpy(&masses, _io.io_GetAddress() + kFixed - 4, 4);
    need += uint64_t{masses} * 4 < 1024 ? uint64_t{masses} * 4 : 0;
  }
  if (have < need) {
    _io.io_callback("Warning: V7 truncated file by %d bytes\r\n", static_cast<int>(need - have));
    throw P3DERR_V7_TRUNCATED;
  }
  try {
    float f;
    bool b;
    _info_opening();
    _centres_and_occlusion();
    _io.io_read(&b, "ModelInfo.allowAnimation");
    if (_io.io_ReadByte() >= 40) throw "maptype_max unknown";
    CompressedStruct masses(4);
    _array(masses, 4);
    _io.io_read(&_mass, "ModelInfo.Mass");
    _io.io_read(&f, "ModelInfo.invMass");
    _io.io_read(&f, "ModelInfo.Armor");
    _io.io_read(&f, "ModelInfo.invArmor");
    _io.io_GetAddressAndUpdate(12);  // special LOD indices
  } catch (Generic_Errors e) {
    if (e != GE_EOF) throw;
    _io.io_callback("Warning: V7 truncated file by %d bytes\r\n", 1);
    throw P3DERR_V7_TRUNCATED;
  }
  if (uint64_t residue = _io.io_RemainingBytes()) {
    _io.io_callback("Warning: V7 residue of %d bytes\r\n", static_cast<int>(residue));
    throw P3DERR_V7_EXCESS;
  }
}
