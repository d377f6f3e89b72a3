// A binarised model written back as an editable one: per LOD its resolution, one point and one
// normal a vertex, the faces with their textures, materials and UVs, the named selections with
// their weights, the properties and, for the Geometry LOD, the mass spread over its points.
#include <cstring>
#include <string>
#include <vector>

#include "io/BisFileIO.h"
#include "p3d/MlodLod.h"
#include "p3d/OdolModel.h"

namespace {
void put_text(BisFileIO& out, std::string_view text, size_t field) {
  size_t n = text.size() < field ? text.size() : field - 1;
  out.io_WriteBlock(text.data(), n);
  for (size_t i = n; i < field; ++i) out.io_WriteByte(0);
}

void put_tagg_head(BisFileIO& out, std::string_view name, uint32_t length) {
  out.io_WriteByte(1);
  out.io_WriteBlock(name.data(), name.size());
  out.io_WriteByte(0);
  out.io_WriteUlong(length);
}

// A normal packed into three signed 10-bit fields.
XYZTriplet unpack_normal(uint32_t packed) {
  auto field = [&](int shift) {
    int v = static_cast<int>((packed >> shift) & 0x3FF);
    if (v > 511) v -= 1024;
    return static_cast<float>(v) * (-1.0f / 511.0f);
  };
  return XYZTriplet{field(0), field(10), field(20)};
}

struct Face {
  uint32_t n = 0;
  uint32_t v[4] = {};
  std::string_view texture, material;
};
}  // namespace

// The faces of a LOD with their textures and materials: from the face's own texture index in OFP
// models, from the section whose face range holds it in the later ones.
static std::vector<Face> faces_of(OdolLod const& lod, uint32_t version) {
  std::vector<Face> faces(lod.nFaces);
  uint8_t const* p = lod.faces;
  uint32_t const index = version >= 69 ? 4 : 2;
  uint32_t offset = 0;  // where the face lies in the engine's layout, which sections count in
  for (Face& f : faces) {
    int texture = -1;
    OdolSection const* section = nullptr;
    if (version == 7) {
      int16_t t;
      std::memcpy(&t, p + 4, 2);
      texture = t;
      p += 6;
    } else {
      for (OdolSection const& s : lod.sections)
        if (offset >= s.face_start && offset < s.face_end) section = &s;
      if (section) texture = section->texture;
    }
    f.n = *p++;
    for (uint32_t k = 0; k < f.n; ++k) {
      std::memcpy(&f.v[k], p, index);
      p += index;
    }
    offset += index + f.n * index;
    if (texture >= 0 && static_cast<size_t>(texture) < lod.textures.size()) f.texture = lod.textures[texture];
    if (section && section->material >= 0 && static_cast<size_t>(section->material) < lod.materials.size())
      f.material = lod.materials[section->material];
    else if (section)
      f.material = section->material_path;
  }
  return faces;
}

void OdolModel::write_mlod(BisFileIO& out) const {
  out.io_WriteBlock("MLOD", 4);
  out.io_WriteUlong(257);
  out.io_WriteUlong(lod_count());
  for (uint32_t i = 0; i < lod_count(); ++i) {
    OdolLod const& lod = _lods[i];
    uint32_t const nv = lod.nVertices;
    std::vector<Face> faces = faces_of(lod, _version);
    out.io_WriteBlock("P3DM", 4);
    out.io_WriteUlong(28);
    out.io_WriteUlong(256);
    out.io_WriteUlong(nv);
    out.io_WriteUlong(nv);
    out.io_WriteUlong(static_cast<uint32_t>(faces.size()));
    out.io_WriteUlong(0);
    for (uint32_t v = 0; v < nv; ++v) {
      out.io_WriteBlock(lod.positions.cs_Array() + size_t{v} * 12, 12);
      out.io_WriteUlong(0);
    }
    for (uint32_t v = 0; v < nv; ++v) {
      XYZTriplet n;
      if (lod.normals.cs_ElementSize() == 4) {
        uint32_t packed;
        std::memcpy(&packed, lod.normals.cs_Array() + size_t{v} * 4, 4);
        n = unpack_normal(packed);
      } else if (lod.normals.cs_Count() == nv) {
        std::memcpy(&n, lod.normals.cs_Array() + size_t{v} * 12, 12);
      }
      out.io_WriteXYZTriplet(&n);
    }
    for (Face const& f : faces) {
      out.io_WriteUlong(f.n);
      for (uint32_t k = 0; k < 4; ++k) {
        uint32_t vertex = k < f.n ? f.v[k] : 0;
        float u = 0, w = 0;
        if (k < f.n) vertex_uv(lod, vertex, u, w);
        out.io_WriteUlong(vertex);
        out.io_WriteUlong(vertex);
        out.io_WriteFloat(u);
        out.io_WriteFloat(w);
      }
      out.io_WriteUlong(0);
      out.io_WriteBlock(f.texture.data(), f.texture.size());
      out.io_WriteByte(0);
      out.io_WriteBlock(f.material.data(), f.material.size());
      out.io_WriteByte(0);
    }

    out.io_WriteBlock("TAGG", 4);
    std::vector<uint8_t> weights(size_t{nv} + faces.size());
    for (OdolSelection const& s : lod.selections) {
      // A name beginning with '#' would read back as a tagg of its own.
      if (!s.name.empty() && s.name.front() == '#') continue;
      std::fill(weights.begin(), weights.end(), 0);
      uint32_t const index = static_cast<uint32_t>(s.vertices.cs_ElementSize());
      for (uint64_t k = 0; k < s.vertices.cs_Count(); ++k) {
        uint32_t v = 0;
        std::memcpy(&v, s.vertices.cs_Array() + k * index, index);
        if (v >= nv) continue;
        // Full weight is written as 1, as the modelling tools store a plain selection.
        uint8_t w = k < s.weights.cs_Count() ? s.weights.cs_Array()[k] : 255;
        weights[v] = w == 255 || w == 0 ? 1 : w;
      }
      uint32_t const findex = static_cast<uint32_t>(s.faces.cs_ElementSize());
      for (uint64_t k = 0; k < s.faces.cs_Count(); ++k) {
        uint32_t f = 0;
        std::memcpy(&f, s.faces.cs_Array() + k * findex, findex);
        if (f < faces.size()) weights[nv + f] = 1;
      }
      put_tagg_head(out, s.name, static_cast<uint32_t>(weights.size()));
      out.io_WriteBlock(weights.data(), weights.size());
    }
    for (auto const& [name, value] : lod.properties) {
      put_tagg_head(out, "#Property#", 128);
      put_text(out, name, 64);
      put_text(out, value, 64);
    }
    float res = resolution(i);
    if (std::memcmp(&res, &lod_res::kGeometry, 4) == 0) {
      put_tagg_head(out, "#Mass#", 4 * nv);
      float each = nv ? _mass / static_cast<float>(nv) : 0.0f;
      for (uint32_t v = 0; v < nv; ++v) out.io_WriteFloat(each);
    }
    put_tagg_head(out, "#EndOfFile#", 0);
    out.io_WriteFloat(res);
  }
}
