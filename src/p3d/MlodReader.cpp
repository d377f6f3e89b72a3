// Reading editable models: the file header, the LODs in their three layouts, the taggs and the
// rules that tie them together (mass, trailing blanks).
#include <cstring>

#include "p3d/Morvane.h"
#include "p3d/P3dCursor.h"

namespace {
constexpr uint32_t kMlodVersion = 257;
constexpr uint32_t kMlodVersionFloat = 0x3F8CCCCD;  // 1.1f, written by some old tools
constexpr uint32_t kP3dmVersion = 256;
constexpr uint32_t kSp3xVersion = 153;
constexpr uint32_t kLodHeaderSize = 28;
// The smallest stored face of each layout: P3DM has two empty names after its 72 fixed bytes.
constexpr uint64_t kMinFaceBytes[] = {72 + 2, 32 + 4 + 64 + 4, 32 + 4 + 64};

bool same_bits(float a, float b) { return std::memcmp(&a, &b, 4) == 0; }

std::string_view trim_blanks(std::string_view s) {
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}
}  // namespace

void Morvane::_read_mlod_file(P3dCursor& c) {
  uint8_t const* magic = c.take(4);
  if (p3d_magic_is(magic, "SP3X") || p3d_magic_is(magic, "SP3D")) {
    // An old single-LOD file: the LOD's own magic is the file's.
    _bare = true;
    _kind = p3d_magic_is(magic, "SP3X") ? KIND_DEMO_SP3X : KIND_DEMO_SP3D;
    c.seek(0);
    _lods.emplace_back();
    _read_mlod_lod(c, _lods.back(), 0);
  } else {
    _mlod_version = c.u32();
    if (_mlod_version != kMlodVersion && _mlod_version != kMlodVersionFloat) throw P3DERR_BAD_HEADER;
    uint32_t count = c.u32();
    if (count == 0) throw P3DERR_NO_LOD;
    // Every LOD takes at least its 28-byte header: a count beyond that cannot be honest.
    c.require_records(count, kLodHeaderSize);
    _lods.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
      _lods.emplace_back();
      _read_mlod_lod(c, _lods.back(), static_cast<int>(i));
    }
    _kind = _lods.front().kind == MLOD_P3DM ? KIND_MLOD_P3DM : KIND_MLOD_SP3X;
  }
  _tail = c.here();
  _tail_size = c.remaining();
}

void Morvane::_read_mlod_lod(P3dCursor& c, MlodLod& lod, int index) {
  uint8_t const* magic = c.take(4);
  if (p3d_magic_is(magic, "P3DM"))
    lod.kind = MLOD_P3DM;
  else if (p3d_magic_is(magic, "SP3X"))
    lod.kind = MLOD_SP3X;
  else if (p3d_magic_is(magic, "SP3D"))
    lod.kind = MLOD_SP3D;
  else
    throw P3DERR_UNDECODABLE;

  if (lod.kind != MLOD_SP3D) {
    uint32_t header_size = c.u32();
    lod.version = c.u32();
    uint32_t want = lod.kind == MLOD_P3DM ? kP3dmVersion : kSp3xVersion;
    if (header_size != kLodHeaderSize || lod.version != want) throw P3DERR_WRONG_HDR_TYPE;
  }
  lod.nPoints = c.u32();
  lod.nNormals = c.u32();
  lod.nFaces = c.u32();
  lod.flags = lod.kind == MLOD_SP3D ? 0 : c.u32();

  lod.points = c.take(uint64_t{lod.nPoints} * lod.point_stride());
  lod.normals = c.take(uint64_t{lod.nNormals} * 12);
  _read_faces(c, lod);

  lod.resolution = 1.0f;
  if (c.at_end()) return;
  uint8_t const* next = c.take(4);
  if (std::memcmp(next, "SS3D", 4) == 0) {
    // A demo block repeats the LOD's counts; the data it carries is not used.
    uint8_t const* block = next;
    uint32_t points = c.u32(), faces = c.u32(), normals = c.u32(), length = c.u32();
    if (length % 4) throw P3DERR_UNDECODABLE;
    if (points != lod.nPoints || faces != lod.nFaces || normals != lod.nNormals) throw P3DERR_UNDECODABLE;
    c.skip(uint64_t{points} + faces + normals + length);
    lod.demo = block;
    lod.demo_size = static_cast<uint32_t>(c.here() - block);
  } else if (std::memcmp(next, "TAGG", 4) == 0) {
    lod.has_taggs = true;
    _read_taggs(c, lod, index);
    lod.resolution = c.f32();
  } else {
    throw P3DERR_UNDECODABLE;
  }
  lod.index_taggs();
  _check_mass(lod);
}

void Morvane::_read_faces(P3dCursor& c, MlodLod& lod) {
  c.require_records(lod.nFaces, kMinFaceBytes[lod.kind]);
  lod.faces.resize(lod.nFaces);
  uint32_t uv_index = 0;
  for (MlodFace& f : lod.faces) {
    if (lod.kind != MLOD_P3DM) {
      f.texture_field = c.here();
      f.texture = c.fixed(32);
    }
    f.nCorners = c.u32();
    if (f.nCorners != 3 && f.nCorners != 4)
      _io.io_throw(GE_DEBUG_TRAP, "bad facetype (%d). Needs to be 3, or 4\r\n", static_cast<int>(f.nCorners));
    f.corners = c.take(4 * MlodFace::kCornerBytes);
    if (lod.kind != MLOD_SP3D) f.flags = c.u32();
    if (lod.kind == MLOD_P3DM) {
      f.texture = c.asciiz();
      f.material = c.asciiz();
    }
    f.uv_index = uv_index;
    uv_index += f.nCorners;
    if (f.nCorners == 3)
      ++lod.nTriangles;
    else
      ++lod.nQuads;
  }
}

void Morvane::_read_taggs(P3dCursor& c, MlodLod& lod, int index) {
  bool p3dm = lod.kind == MLOD_P3DM;
  bool mass_seen = false, edges_seen = false;
  for (;;) {
    if (c.at_end()) throw P3DERR_NO_LOD;
    MlodTagg t;
    if (p3dm) {
      if (c.u8() != 1) throw P3DERR_UNKNOWN_TAGG;
      t.name = c.asciiz();
    } else {
      t.name_field = c.here();
      t.name = c.fixed(64);
    }
    t.type = MlodTagg::TypeOfName(t.name);
    if (t.type < 0) {
      std::string name(t.name);
      _io.io_throw(GE_DEBUG_TRAP, "unknown tagg name %s\r\n", name.c_str());
    }
    if (t.type == MlodTagg::SHARP_EDGES) {
      if (edges_seen) throw P3DERR_SHARP_EDGES_REPEATED;
      edges_seen = true;
    } else if (t.type == MlodTagg::MASS) {
      if (mass_seen) throw P3DERR_MASS_TWICE;
      mass_seen = true;
    }
    _read_tagg(c, lod, index, t);
    if (t.type == MlodTagg::END_OF_FILE) {
      if (!p3dm) lod.end_tagg_field = t.name_field;
      return;
    }
    lod.taggs.push_back(t);
  }
}

void Morvane::_read_tagg(P3dCursor& c, MlodLod& lod, int index, MlodTagg& t) {
  uint64_t const points = lod.nPoints, faces = lod.nFaces;
  uint64_t len = c.u32();
  t.stored_length = static_cast<uint32_t>(len);
  uint64_t data_size = len;
  bool ok = true;
  switch (t.type) {
    case MlodTagg::END_OF_FILE: ok = len == 0; break;
    case MlodTagg::PROPERTY: ok = len == 128; break;
    case MlodTagg::MATERIAL_INDEX: ok = len % 16 == 0; break;
    case MlodTagg::SHARP_EDGES: ok = len % 8 == 0; break;
    case MlodTagg::MASS:
      // Some writers counted one byte a point; the table is four bytes a point all the same.
      if (len == points && points) data_size = 4 * points;
      ok = data_size == 4 * points;
      break;
    case MlodTagg::UVSET: ok = len == 4 + 8 * (3 * uint64_t{lod.nTriangles} + 4 * uint64_t{lod.nQuads}); break;
    case MlodTagg::ANIMATION: ok = len == 4 + 12 * points; break;
    default: ok = len == points + faces; break;  // lock, selected, hide and named selections
  }
  if (!ok) {
    std::string name(t.name);
    _io.io_throw(GE_INVALID_FILE, "%s\r\nbad tagg count %d\r\n", name.c_str(), static_cast<int>(len));
  }
  t.data = c.take(data_size);
  t.data_size = static_cast<uint32_t>(data_size);

  if (t.type == MlodTagg::PROPERTY) {
    auto const* d = reinterpret_cast<char const*>(t.data);
    std::string_view name(d, strnlen(d, 64)), value(d + 64, strnlen(d + 64, 64));
    t.prop_name = trim_blanks(name);
    t.prop_value = trim_blanks(value);
    if (t.prop_name.size() != name.size() || t.prop_value.size() != value.size()) {
      _trailing = true;
      _io.io_set_trailing_spaces(1);
      _io.io_callback(
          "\r\nWARNING***:lod %d: tagg property '%.*s' = '%.*s' contains trailing space(s)\r\nUse morvane +fx to fix "
          "it\r\n",
          index, static_cast<int>(name.size()), name.data(), static_cast<int>(value.size()), value.data());
    }
  } else if (t.type == MlodTagg::NAMED_SELECTION) {
    std::string_view trimmed = trim_blanks(t.name);
    if (trimmed.size() != t.name.size()) {
      _trailing = true;
      _io.io_set_trailing_spaces(1);
      _io.io_callback(
          "\r\nWARNING***:lod %d: named selection '%.*s' contains trailing space(s)\r\nUse morvane +fx to fix it\r\n",
          index, static_cast<int>(t.name.size()), t.name.data());
      t.name = trimmed;
    }
  }
}

void Morvane::_check_mass(MlodLod const& lod) {
  bool geometry = same_bits(lod.resolution, lod_res::kGeometry);
  if (geometry && !lod.mass) _io.io_throw(P3DERR_MASS_MISSING, "Geolod has no mass\r\n");
  if (lod.mass && !geometry && !same_bits(lod.resolution, lod_res::kBuoyancy) &&
      !same_bits(lod.resolution, lod_res::kPhysxOld) && !same_bits(lod.resolution, lod_res::kPhysx))
    throw P3DERR_MASS_WRONG_LOD;
}
