// Writing a binarised model from its values, in the order the engine reads it. What the model does
// not interpret (its information block, bone tables, materials, frames and such) goes back as it
// was stored; every name, count and text comes from the model, and the words that describe where
// things lie (the LOD offset tables, face data sizes, vertex table sizes) are worked out afresh.
#include <cstring>

#include "io/BisFileIO.h"
#include "p3d/OdolModel.h"
#include "p3d/P3dErrors.h"

namespace {
constexpr uint32_t kNone = 0xFFFFFFFFu;

void put_bytes(BisFileIO& out, OdolBytes const& b) {
  if (b.size) out.io_WriteBlock(b.data, b.size);
}

// A zero-terminated text, with the blanks the reader stripped from its end put back.
void put_text(BisFileIO& out, std::string_view text, uint32_t blanks = 0) {
  if (!text.empty()) out.io_WriteBlock(text.data(), text.size());
  for (uint32_t i = 0; i < blanks; ++i) out.io_WriteByte(' ');
  out.io_WriteByte(0);
}

void put_count(BisFileIO& out, size_t n) { out.io_WriteUlong(static_cast<uint32_t>(n)); }

// A proxy's block with its selection index (at byte 52) taken from the proxy.
void put_proxy(BisFileIO& out, OdolProxy const& p) {
  put_text(out, p.model);
  out.io_WriteBlock(p.block.data, 52);
  out.io_WriteUlong(p.selection);
  out.io_WriteBlock(p.block.data + 56, p.block.size - 56);
}

void put_properties(BisFileIO& out, OdolLod const& lod) {
  put_count(out, lod.properties.size());
  for (auto const& [name, value] : lod.properties) {
    put_text(out, name);
    put_text(out, value);
  }
}

// Where the output stands, relative to where the model began.
uint32_t here(BisFileIO& out, uint64_t base) { return static_cast<uint32_t>(out.io_GetCurrentOffset(1) - base); }

// Writes `value` at `at` (absolute) and comes back to where writing stood.
void patch(BisFileIO& out, uint64_t at, void const* value, uint64_t size) {
  uint64_t now = out.io_GetCurrentOffset(1);
  out.io_MoveTo(at, 1);
  out.io_WriteBlock(value, size);
  out.io_MoveTo(now, 1);
}
}  // namespace

void OdolModel::set_prefix(std::string_view prefix) { _prefix = _own_texts.emplace_back(prefix); }

bool OdolModel::set_texture(uint32_t lod, uint32_t texture, std::string_view path) {
  if (lod >= _lods.size() || texture >= _lods[lod].textures.size()) return false;
  _lods[lod].textures[texture] = _own_texts.emplace_back(path);
  return true;
}

// An array with its count; one that was not changed goes back in its stored form.
void OdolModel::_put(BisFileIO& out, CompressedStruct const& a, bool fill) const {
  a.WriteCompressed(out, _mode(fill) | CT_WRITE_COUNT, a.cs_Count());
}

// The engine sizes its face store as if a face's corner count took as much room as an index:
// version 7 words are kept as stored, since real files do not follow one rule there.
uint32_t OdolModel::_face_size_word(OdolLod const& lod) const {
  if (_version == 7) return lod.face_size_word;
  uint32_t index = _version >= 69 ? 4 : 2;
  return static_cast<uint32_t>(lod.face_bytes + uint64_t{lod.nFaces} * (index - 1));
}

void OdolModel::write(BisFileIO& out) const {
  uint64_t const base = out.io_GetCurrentOffset(1);
  // The signature as it was stored: the reader takes it in any letter case.
  out.io_WriteBlock(_data, 4);
  out.io_WriteUlong(_version);
  if (has_app_id()) out.io_WriteUlong(_app_id);
  if (has_prefix()) put_text(out, _prefix);
  put_count(out, _lods.size());

  if (_version == 7) {
    for (uint32_t i : _read_order) _write_lod_v7(out, _lods[i]);
    for (float r : _resolutions) out.io_WriteFloat(r);
    put_bytes(out, _info);
    return;
  }

  for (float r : _resolutions) out.io_WriteFloat(r);
  put_bytes(out, _info);
  out.io_WriteByte(_animations_flag);
  if (_animations_flag) _write_animations(out);
  // The offset tables are filled in once the LODs are where they will stay.
  uint64_t const table = out.io_GetCurrentOffset(1);
  std::vector<uint32_t> offsets(2 * _lods.size(), 0);
  out.io_WriteBlock(offsets.data(), offsets.size() * 4);
  put_bytes(out, _defaults);
  for (uint32_t i : _read_order) {
    offsets[i] = here(out, base);
    _write_lod(out, _lods[i]);
    offsets[_lods.size() + i] = static_cast<uint32_t>(here(out, base) + _lods[i].end_slack);
  }
  out.io_WriteBlock(_data + _size - _tail_size, _tail_size);
  patch(out, table, offsets.data(), offsets.size() * 4);
}

void OdolModel::_write_animations(BisFileIO& out) const {
  put_count(out, _anims.size());
  for (OdolAnimation const& a : _anims) {
    out.io_WriteUlong(a.type);
    put_text(out, a.name);
    put_text(out, a.source);
    out.io_WriteBlock(a.block, a.block_size);
  }
  put_bytes(out, _bone_tables);
  for (size_t l = 0; l < _lods.size(); ++l)
    for (OdolAnimation const& a : _anims) {
      uint32_t bone = l < a.lod_bones.size() ? a.lod_bones[l] : kNone;
      out.io_WriteUlong(bone);
      if (bone != kNone && a.type < 8) {
        if (l >= a.axes.size() || !a.axes[l]) throw GE_CODE_BUG;
        out.io_WriteBlock(a.axes[l], 24);
      }
    }
}

void OdolModel::_write_lod(BisFileIO& out, OdolLod const& lod) const {
  put_count(out, lod.proxies.size());
  for (OdolProxy const& p : lod.proxies) put_proxy(out, p);
  put_bytes(out, lod.items);
  put_bytes(out, lod.links);
  if (_version == 50) {
    out.io_WriteUlong(lod.nVertices);
  } else if (_version < 52) {
    _put(out, lod.clip, true);
  } else {
    out.io_WriteUlong(lod.nVertices);
    put_bytes(out, lod.vertex_word);
  }
  put_bytes(out, lod.hints);
  put_count(out, lod.textures.size());
  for (std::string_view t : lod.textures) put_text(out, t);
  put_count(out, lod.materials.size());
  for (size_t i = 0; i < lod.materials.size(); ++i) {
    put_text(out, lod.materials[i]);
    out.io_WriteBlock(lod.material_data[i], lod.material_sizes[i]);
  }
  _write_faces_to_colours(out, lod);
  out.io_WriteByte(lod.one_bone);
  _write_vertex_tables(out, lod);
  put_bytes(out, lod.lod_end);
}

// Both generations store a LOD's middle alike: the point and vertex maps, the faces, sections,
// selections, properties, frames and colours; only the later one marks its faces with a zero word.
void OdolModel::_write_faces_to_colours(BisFileIO& out, OdolLod const& lod) const {
  _put(out, lod.point_to_vertex);
  _put(out, lod.vertex_to_point);
  out.io_WriteUlong(lod.nFaces);
  out.io_WriteUlong(static_cast<uint32_t>(_face_size_word(lod) + lod.face_size_slack));
  if (_version != 7) out.io_WriteUshort(0);
  if (lod.face_bytes) out.io_WriteBlock(lod.faces, lod.face_bytes);
  _write_sections(out, lod);
  _write_selections(out, lod);
  put_properties(out, lod);
  put_bytes(out, lod.frames);
  put_bytes(out, lod.colours);
}

void OdolModel::_write_sections(BisFileIO& out, OdolLod const& lod) const {
  put_count(out, lod.sections.size());
  for (OdolSection const& s : lod.sections) {
    out.io_WriteUlong(s.face_start);
    out.io_WriteUlong(s.face_end);
    out.io_WriteBlock(s.bones, _version == 7 ? 4 : 12);
    out.io_WriteShort(s.texture);
    out.io_WriteUlong(s.flags);
    if (_version == 7) continue;
    out.io_WriteLong(s.material);
    if (s.material == -1) put_text(out, s.material_path);
    out.io_WriteUlong(s.areas);
    if (s.areas) out.io_WriteBlock(s.area_words, uint64_t{s.areas} * 4);
    put_bytes(out, s.extra);
  }
}

void OdolModel::_write_selections(BisFileIO& out, OdolLod const& lod) const {
  put_count(out, lod.selections.size());
  for (size_t i = 0; i < lod.selections.size(); ++i) {
    OdolSelection const& s = lod.selections[i];
    put_text(out, s.name, s.trailing_blanks);
    _put(out, s.faces);
    out.io_WriteUlong(s.word);
    if (_version == 7) _put(out, lod.selection_words.at(i));
    out.io_WriteByte(s.sectional ? s.true_byte : 0);
    _put(out, s.sections);
    _put(out, s.vertices);
    _put(out, s.weights);
  }
}

void OdolModel::_write_vertex_tables(BisFileIO& out, OdolLod const& lod) const {
  // The size word counts its own four bytes.
  uint64_t const start = out.io_GetCurrentOffset(1);
  out.io_WriteUlong(0);
  if (_version >= 50) _put(out, lod.vertex_clip, true);
  auto uv_set = [&](CompressedStruct const& a, float const* bounds) {
    if (_version >= 44)
      for (int i = 0; i < 4; ++i) out.io_WriteFloat(bounds[i]);
    _put(out, a, true);
  };
  uv_set(lod.uv0, lod.uv_bounds);
  out.io_WriteUlong(lod.uv_sets);
  if (lod.uv_sets == 2) uv_set(lod.uv1, lod.uv1_bounds);
  _put(out, lod.positions);
  _put(out, lod.normals, true);
  _put(out, lod.st);
  _put(out, lod.bones);
  _put(out, lod.neighbours);
  uint32_t size = static_cast<uint32_t>(out.io_GetCurrentOffset(1) - start);
  patch(out, start, &size, 4);
}

void OdolModel::_write_lod_v7(BisFileIO& out, OdolLod const& lod) const {
  _put(out, lod.clip);
  _put(out, lod.uv0);
  // Positions and normals are always stored as they are.
  for (CompressedStruct const* a : {&lod.positions, &lod.normals})
    a->WriteCompressed(out, CT_WRITE_COUNT, a->cs_Count());
  put_bytes(out, lod.hints);
  put_count(out, lod.textures.size());
  for (std::string_view t : lod.textures) put_text(out, t);
  _write_faces_to_colours(out, lod);
  put_count(out, lod.proxies.size());
  for (OdolProxy const& p : lod.proxies) put_proxy(out, p);
}
