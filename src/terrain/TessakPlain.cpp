// The editable kinds: 8WVR (and 9WBV, laid out alike), 4WVR and 1WVR.
#include <cmath>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "anim/BisTransform.h"
#include "terrain/Tessak.h"
#include "terrain/TessakSection.h"

namespace {
// The transform of the record that closes an editable object list: every float a quiet NaN with
// the pattern the exporters write.
constexpr uint8_t kEndMarkerFloat[4] = {0x88, 0x7f, 0xc8, 0x7f};

std::string_view fixed_name(uint8_t const* p, size_t width) {
  auto const* c = reinterpret_cast<char const*>(p);
  return std::string_view(c, strnlen(c, width));
}

void write_fixed_name(BisFileIO& out, std::string const& name, size_t width) {
  char buffer[128] = {};
  std::memcpy(buffer, name.data(), name.size() < width ? name.size() : width - 1);
  out.io_WriteBlock(buffer, width);
}

int16_t height_to_steps(float h) {
  double v = std::floor(double(h) / Tessak::kHeightStep + 0.5);
  if (!(v >= -32768)) return v != v ? 0 : -32768;
  return v > 32767 ? 32767 : int16_t(v);
}
}  // namespace

// Names of editable object lists become template positions, each new name appended. The names
// are views into the file buffer, which outlives the read.
uint32_t Tessak::_template_of(TemplateIndex& known, std::string_view name) {
  auto [it, added] = known.try_emplace(name, uint32_t(_templates.size()));
  if (added) _templates.emplace_back(name);
  return it->second;
}

void Tessak::_read_8wvr() {
  _version = _kind == KIND_9WBV ? 9 : 8;
  _io.io_callback("%s (plain jane pew export)\r\n", SignatureOfKind(_kind));
  _layerSize = _io.io_ReadUlongPair();
  _mapSize = _io.io_ReadUlongPair();
  _gridSize = _io.io_ReadFloat();
  _check_grid_sizes(CT_TERRAIN, 4);

  _progress("Elevations");
  _elevations.ReadCompressed(_io, CT_TERRAIN, _mapSize);
  _align(_elevations);
  _progress("Textures indices");
  _layers.cs.ReadCompressed(_io, CT_TERRAIN, _layerSize);
  _align(_layers.cs);

  _progress("Textures");
  uint32_t count = _io.io_ReadUlong();
  _io.io_Require(uint64_t(count) * 4);  // every entry ends with a zero length at least
  _textures.resize(count);
  for (auto& t : _textures) {
    for (uint32_t len; (len = _io.io_ReadUlong()) != 0;) {
      auto const* p = reinterpret_cast<char const*>(_io.io_GetAddressAndUpdate(len));
      t.names.emplace_back(p, len);
    }
  }

  _progress("Objects");
  TemplateIndex known;
  while (_io.io_RemainingBytes()) {
    if (_io.io_RemainingBytes() < sizeof(XYZTransform) + 8) throw WRP_BAD_OBJECT_SIZE;
    WRP_Object o;
    std::memcpy(&o.transform, _io.io_GetAddressAndUpdate(sizeof o.transform), sizeof o.transform);
    o.id = _io.io_ReadUlong();
    uint32_t len = _io.io_ReadUlong();
    if (len > _io.io_RemainingBytes()) throw WRP_BAD_OBJECT_SIZE;
    std::string_view name(reinterpret_cast<char const*>(_io.io_GetAddressAndUpdate(len)), len);
    if (name.empty() && !_io.io_RemainingBytes()) {
      _endMarkerId = o.id;  // the closing record carries no object
      break;
    }
    o.model = _template_of(known, name);
    _objects.push_back(o);
  }
  _io.io_callback("%d p3ds\r\n", int(_templates.size()));
}

void Tessak::_write_8wvr(BisFileIO& out) const {
  out.io_WriteBlock(SignatureOfKind(_kind == KIND_9WBV ? KIND_9WBV : KIND_8WVR), 4);
  out.io_WriteUlongPair(_layerSize);
  out.io_WriteUlongPair(_mapSize);
  out.io_WriteFloat(_gridSize);
  out.io_WriteBlock(_elevations.cs_Array(), _mapCells() * 4);
  out.io_WriteBlock(_layers.cs.cs_Array(), _layerCells() * 2);
  out.io_WriteUlong(uint32_t(_textures.size()));
  for (auto const& t : _textures) {
    for (auto const& n : t.names) {
      out.io_WriteUlong(uint32_t(n.size()));
      out.io_WriteBlock(n.data(), n.size());
    }
    out.io_WriteUlong(0);
  }
  for (auto const& o : _objects) {
    std::string const* name = wrp_TemplateOf(o);
    if (!name) throw WRP_NO_TEMPLATE;
    out.io_WriteXYZTransform(o.transform);
    out.io_WriteUlong(o.id);
    out.io_WriteUlong(uint32_t(name->size()));
    out.io_WriteBlock(name->data(), name->size());
  }
  for (int i = 0; i < 12; ++i) out.io_WriteBlock(kEndMarkerFloat, 4);
  out.io_WriteUlong(_endMarkerId);
  out.io_WriteUlong(0);
}

// The single-grid kinds open alike: one grid size, heights as signed steps, then the layer cells.
void Tessak::_read_single_grid_start(int version, char const* signature) {
  _version = version;
  _io.io_callback("%s (plain jane pew export)\r\n", signature);
  _layerSize = _mapSize = _io.io_ReadUlongPair();
  _check_grid_sizes(CT_TERRAIN, 2);

  _progress("Elevations");
  uint64_t cells = _mapCells();
  uint8_t const* steps = _io.io_GetAddressAndUpdate(cells * 2);
  float* heights = reinterpret_cast<float*>(_elevations.cs_Allocate(cells));
  for (uint64_t i = 0; i < cells; ++i) {
    int16_t s;
    std::memcpy(&s, steps + 2 * i, 2);
    heights[i] = s * kHeightStep;
  }
  _progress("Textures indices");
  _layers.cs.ReadCompressed(_io, CT_TERRAIN, _layerSize);
  _align(_layers.cs);
  _progress("Textures");
}

void Tessak::_read_4wvr() {
  _read_single_grid_start(4, "4WVR");
  uint8_t const* names = _io.io_GetAddressAndUpdate(uint64_t(k4wvrTextures) * kTextureNameBytes);
  uint32_t used = 0;
  for (uint32_t i = 0; i < k4wvrTextures; ++i)
    if (names[i * kTextureNameBytes]) used = i + 1;
  _textures.resize(used);
  for (uint32_t i = 0; i < used; ++i) {
    auto name = fixed_name(names + i * kTextureNameBytes, kTextureNameBytes);
    if (!name.empty()) _textures[i].names.emplace_back(name);
  }

  _progress("Objects");
  constexpr uint64_t kRecord = 128;
  if (_io.io_RemainingBytes() % kRecord) throw WRP_BAD_OBJECT_SIZE;
  _objects.resize(_io.io_RemainingBytes() / kRecord);
  TemplateIndex known;
  for (auto& o : _objects) {
    uint8_t const* r = _io.io_GetAddressAndUpdate(kRecord);
    std::memcpy(&o.transform, r, 48);
    std::memcpy(&o.id, r + 48, 4);
    auto name = fixed_name(r + 52, kRecord - 52);
    o.model = _template_of(known, name);
  }
  _io.io_callback("%d p3ds\r\n", int(_templates.size()));
}

// What the single-grid kinds can hold: one grid size (checked once the layer grid has been spread
// over the map grid), at most 512 (1WVR: 256) single names of at most 31 bytes, indices within the
// table, and model names of at most 75 (1WVR: 47) bytes.
void Tessak::_check_one_grid(int kind, bool sizes) const {
  if (sizes && (_layerSize.x != _mapSize.x || _layerSize.y != _mapSize.y)) throw WRP_CANNOT_CONVERT;
  if (_textures.size() > (kind == KIND_1WVR ? k1wvrTextures : k4wvrTextures)) throw WRP_TOO_MANY_PAX;
  for (auto const& t : _textures) {
    if (t.names.size() > 1) throw WRP_MULTI_LAYERS;
    if (t.first().size() >= kTextureNameBytes) throw WRP_PAX_NAME_LENGTH;
  }
  uint16_t const* index = wrp_LayerIndex();
  for (uint64_t i = 0, n = _layerCells(); i < n; ++i) {
    if (index[i] >= _textures.size()) throw WRP_ILLEGAL_LAYER_INDEX;
    if (index[i] && _textures[index[i]].first().empty()) throw WRP_EMPTY_TEXTURE;
  }
  for (auto const& o : _objects) {
    std::string const* name = wrp_TemplateOf(o);
    if (!name) throw WRP_NO_TEMPLATE;
    if (name->size() >= (kind == KIND_1WVR ? 48u : 76u) || (kind == KIND_1WVR && name->empty()))
      throw WRP_CANNOT_CONVERT;
  }
}

void Tessak::_write_4wvr(BisFileIO& out) const {
  _check_one_grid(KIND_4WVR, true);
  out.io_WriteBlock("4WVR", 4);
  out.io_WriteUlongPair(_mapSize);
  float const* heights = wrp_Elevations();
  for (uint64_t i = 0, n = _mapCells(); i < n; ++i) out.io_WriteShort(height_to_steps(heights[i]));
  out.io_WriteBlock(_layers.cs.cs_Array(), _layerCells() * 2);
  for (uint32_t i = 0; i < k4wvrTextures; ++i)
    write_fixed_name(out, i < _textures.size() ? _textures[i].first() : std::string(), kTextureNameBytes);
  for (auto const& o : _objects) {
    out.io_WriteXYZTransform(o.transform);
    out.io_WriteUlong(o.id);
    write_fixed_name(out, *wrp_TemplateOf(o), 76);
  }
}

void Tessak::_read_1wvr() {
  _read_single_grid_start(1, "1WVR");
  uint8_t const* names = _io.io_GetAddressAndUpdate(uint64_t(k1wvrTextures) * kTextureNameBytes);
  _textures.resize(k1wvrTextures);
  for (uint32_t i = 0; i < k1wvrTextures; ++i) {
    auto name = fixed_name(names + i * kTextureNameBytes, kTextureNameBytes);
    if (!name.empty()) _textures[i].names.emplace_back(name);
  }

  _progress("Objects");
  constexpr uint64_t kRecord = 64;
  TemplateIndex known;
  for (uint32_t number = 0;; ++number) {
    if (_io.io_RemainingBytes() < kRecord) throw WRP_BAD_OBJECT_SIZE;
    uint8_t const* r = _io.io_GetAddressAndUpdate(kRecord);
    auto name = fixed_name(r + 16, 48);
    if (name.empty()) break;
    float v[4];
    std::memcpy(v, r, sizeof v);
    WRP_Object o;
    o.id = number;
    o.model = _template_of(known, name);
    o.transform.up.y = 1;
    BisTransform t;
    t.SetTransformArray(&o.transform, false);
    t.SetDirectionInDegrees(-double(v[3]), 1.0f);
    t.SetXYZ(v[0] * kDefaultGridSize, v[1] * kDefaultGridSize, v[2] * kDefaultGridSize);
    _objects.push_back(o);
  }
  // The road nets that follow are kept as they are.
  uint64_t rest = _io.io_RemainingBytes();
  uint8_t const* tail = _io.io_GetAddressAndUpdate(rest);
  _netsTail.assign(tail, tail + rest);
  _io.io_callback("%d p3ds\r\n", int(_templates.size()));
}

void Tessak::_write_1wvr(BisFileIO& out) const {
  _check_one_grid(KIND_1WVR, true);
  out.io_WriteBlock("1WVR", 4);
  out.io_WriteUlongPair(_mapSize);
  float const* heights = wrp_Elevations();
  for (uint64_t i = 0, n = _mapCells(); i < n; ++i) out.io_WriteShort(height_to_steps(heights[i]));
  out.io_WriteBlock(_layers.cs.cs_Array(), _layerCells() * 2);
  for (uint32_t i = 0; i < k1wvrTextures; ++i)
    write_fixed_name(out, i < _textures.size() ? _textures[i].first() : std::string(), kTextureNameBytes);
  for (auto const& o : _objects) {
    std::string const* name = wrp_TemplateOf(o);
    XYZTransform copy = o.transform;
    BisTransform t;
    t.SetTransformArray(&copy, false);
    float v[4] = {t.GetX() / kDefaultGridSize, t.GetY() / kDefaultGridSize, t.GetZ() / kDefaultGridSize,
                  float(-t.GetDirectionInDegrees())};
    out.io_WriteBlock(v, sizeof v);
    write_fixed_name(out, *name, 48);
  }
  uint8_t empty[64] = {};
  out.io_WriteBlock(empty, sizeof empty);
  if (!_netsTail.empty()) {
    out.io_WriteBlock(_netsTail.data(), _netsTail.size());
  } else {
    uint8_t end[64] = {};
    std::memcpy(end, "EndOfNets", 9);
    out.io_WriteBlock(end, sizeof end);
  }
}
