// Binarised terrains (OPRW): every version from the first retail one to the latest.
#include <algorithm>
#include <cstring>
#include <exception>

#include "terrain/Tessak.h"
#include "terrain/TessakSection.h"
#include "terrain/WRP_QuadTree.h"

namespace {
bool known_version(uint32_t v) {
  for (uint32_t k : {2u, 3u, 17u, 18u, 20u, 23u, 24u, 25u, 32u, 33u})
    if (v == k) return true;
  return false;
}
bool is_v32(uint32_t v) { return v == 32 || v == 33; }

// The newest versions open with a block of lengths that later sections are skipped by, then
// fixed spans not interpreted here.
constexpr uint64_t kV32Reference = 128, kV32Skipped = 136, kV32Packed = 2 * 4 + 1;
uint32_t v32_word(std::vector<uint8_t> const& head, int i) {
  uint32_t w = 0;
  if (head.size() >= kV32Reference) std::memcpy(&w, head.data() + 4 * i, 4);
  return w;
}

// Bytes of a map-info record by its type; 0 for a type without a known size.
uint32_t map_info_size(uint32_t type, uint32_t version) {
  switch (type) {
    case 0: case 1: case 2: case 10: case 11: case 12: case 13: case 14: case 15: case 16: case 17:
    case 22: case 23: case 26: case 27: case 30:
      return 16;
    case 3: case 4: case 8: case 9: case 18: case 19: case 20: case 21: case 28: case 29:
    case 36: case 37: case 38: case 39:
      return 44;
    case 7: return 8;
    case 24: case 31: case 32: return 40;
    case 25: return is_v32(version) ? 32 : 28;
    case 33: return 28;
    case 34: return 24;
    case 35: return 33;  // the fixed part; versions 23, 32 and 33 carry more (see below)
    default: return 0;
  }
}
}  // namespace

CompressType Tessak::_array_type() const {
  if (_version == 8 || _version == 9) return CT_TERRAIN;
  if (_version == 23 && _lzoIn23) return CT_TERRAIN | CT_LZO;
  return _version < 24 ? (CT_TERRAIN | CT_LZSS) : (CT_TERRAIN | CT_LZO);
}

void Tessak::_read_oprw() {
  _version = _io.io_ReadUlong();
  if (!known_version(_version)) throw WRP_BAD_VERSION;
  _io.io_callback("OPRW Version %d (binarised)\r\n", int(_version));
  if (_version == 2) {
    _layerSize = _mapSize = {256, 256};
  } else if (_version == 3) {
    _layerSize = _io.io_ReadUlongPair();
    _mapSize = _io.io_ReadUlongPair();
  } else {
    if (_version == 25) _appId = _io.io_ReadUlong();
    _layerSize = _io.io_ReadUlongPair();
    _mapSize = _io.io_ReadUlongPair();
    _gridSize = _io.io_ReadFloat();
  }
  _check_grid_sizes(_array_type(), 4);
  // The texture grid is never finer than the terrain grid; a file that says otherwise would have
  // every packed grid allocated at a size nothing in it backs.
  if (_layerCells() > _mapCells()) throw WRP_COMPRESSION;
  if (_version <= 3)
    _read_oprw_legacy_body();
  else
    _read_oprw_body();
}

void Tessak::_read_array(CompressedStruct& cs, uint64_t cells, int code, char const* section) {
  wrp_section(_io, code, [&] {
    _progress(section);
    uLongPair const dimensions{uint32_t(cells), 1};
    uint64_t const at = _io.io_GetCurrentOffset();
    std::exception_ptr failure;
    try {
      cs.ReadCompressed(_io, _array_type(), dimensions);
    } catch (char const*) {
      failure = std::current_exception();
    } catch (Generic_Errors e) {
      if (e != GE_EOF) throw;
      failure = std::current_exception();
    }
    if (failure) {
      // Version 23 terrains were written with either coding: the first array too large to be
      // stored raw tells which, and the rest of the file follows it.
      if (_version != 23 || _lzoIn23) std::rethrow_exception(failure);
      _lzoIn23 = true;
      cs.cs_Release();
      _io.io_MoveTo(at);
      cs.ReadCompressed(_io, _array_type(), dimensions);
    }
    if (cs.cs_ElementSize() > 1) _align(cs);
  });
}

void Tessak::_read_quad_tree(Grid& grid, uint32_t element_size, int code, char const* section) {
  wrp_section(_io, code, [&] {
    _progress(section);
    grid.cs.cs_Release();
    grid.cs.cs_SetElementSize(element_size);
    grid.stored = _io.io_GetAddress();
    WRP_QuadTree tree(_layerSize.x, _layerSize.y, element_size);
    if (!tree.qt_Decode(_io, grid.cs.cs_Allocate(_layerCells()))) throw WRP_PACKED_GRID;
    grid.storedLength = _io.io_GetCurrentOffset() - _io.io_BytesUsed(grid.stored);
  });
}

void Tessak::_read_peaks() {
  _progress("Peaks");
  uint32_t count = _io.io_ReadUlong();
  uint64_t bytes = uint64_t(count) * sizeof(XYZTriplet);
  _io.io_Require(bytes);
  _peaks.resize(count);
  if (count) std::memcpy(_peaks.data(), _io.io_GetAddressAndUpdate(bytes), bytes);
}

void Tessak::_read_layers() {
  _progress("Textures");
  uint32_t count = _io.io_ReadUlong();
  _io.io_Require(uint64_t(count) * 2);  // an empty name and its marker at least
  _textures.resize(count);
  for (auto& t : _textures) {
    char const* name = _io.io_ReadAsciiz();
    if (*name) t.names.emplace_back(name);
    t.marker = uint8_t(_io.io_ReadByte());
  }
}

void Tessak::_read_templates() {
  wrp_section(_io, WRP_TEMPLATE_COUNT, [&] {
    _progress("Models");
    uint32_t count = _io.io_ReadUlong();
    _io.io_Require(count);
    _templates.reserve(count);
    for (uint32_t i = 0; i < count; ++i) _templates.emplace_back(_io.io_ReadAsciiz());
  });
  _io.io_callback("%d p3ds\r\n", int(_templates.size()));
}

void Tessak::_read_objects(uint64_t area, uint32_t record) {
  _progress("Objects");
  if (area % record || area > _io.io_RemainingBytes()) throw WRP_BAD_OBJECT_SIZE;
  uint8_t const* p = _io.io_GetAddressAndUpdate(area);
  uint64_t const count = area / record;
  _objects.clear();
  _objects.reserve(count);  // filled once, without zeroing millions of records first
  for (uint64_t i = 0; i < count; ++i, p += record) {
    WRP_Object& o = _objects.emplace_back();
    std::memcpy(&o.id, p, 4);
    std::memcpy(&o.model, p + 4, 4);
    std::memcpy(&o.transform, p + 8, sizeof o.transform);
    if (record > 56) std::memcpy(&o.shape, p + 56, 4);
  }
}

void Tessak::_read_oprw_legacy_body() {
  _cellFlags.cs.cs_SetElementSize(4);
  _read_array(_cellFlags.cs, _layerCells(), WRP_COMPRESSION, "Cell flags");
  _read_array(_sounds.cs, _layerCells(), WRP_COMPRESSION, "Sounds");
  _read_peaks();
  _read_array(_layers.cs, _layerCells(), WRP_COMPRESSION, "Textures indices");
  _clutter.cs_SetElementSize(4);
  _read_array(_clutter, _layerCells(), WRP_COMPRESSION, "Random clutter");
  _read_array(_elevations, _mapCells(), WRP_COMPRESSION, "Elevations");
  _read_layers();
  _read_templates();
  if (_io.io_RemainingBytes() < 4) throw WRP_BAD_OBJECT_SIZE;
  _read_objects(_io.io_RemainingBytes() - 4, 56);
  _finalWord = _io.io_ReadLong();
}

void Tessak::_read_oprw_body() {
  if (is_v32(_version)) {
    uint8_t const* head = _io.io_GetAddressAndUpdate(kV32Reference + kV32Skipped + kV32Packed);
    _v32Head.assign(head, head + kV32Reference + kV32Skipped + kV32Packed);
  }
  _read_quad_tree(_cellFlags, 2, WRP_COMPRESSION, "Cell flags");
  _read_quad_tree(_sounds, 1, WRP_COMPRESSION, "Sounds");
  _read_peaks();
  _read_quad_tree(_layers, 2, WRP_COMPRESSION, "Rvmat indices");
  // Random clutter: a word per layer cell until the grass map took its place.
  if (_version < 21) {
    _clutter.cs_SetElementSize(2);
    _read_array(_clutter, _layerCells(), WRP_COMPRESSION, "Random clutter");
  } else {
    _clutter.cs_SetElementSize(1);
    _read_array(_clutter, _mapCells(), WRP_COMPRESSION, "Random clutter");
  }
  if (is_v32(_version)) {
    wrp_section(_io, WRP_COMPRESSION, [&] {
      _progress("Elevations");
      int64_t count = _io.io_ReadLongLong();
      if (count < 0 || uint64_t(count) != _mapCells()) throw WRP_COMPRESSION;
      _elevations.ReadCompressed(_io, _array_type(), uLongPair{uint32_t(count), 1});
      _align(_elevations);
      uint32_t skip = v32_word(_v32Head, 0);
      uint8_t const* mid = _io.io_GetAddressAndUpdate(skip);
      _v32Mid.assign(mid, mid + skip);
    });
  } else {
    if (_version != 17) _read_array(_bytes1, _mapCells(), WRP_COMPRESSION, "compressed bytes1");
    _read_array(_elevations, _mapCells(), WRP_COMPRESSION, "Elevations");
  }
  _read_layers();
  _read_templates();

  wrp_section(_io, WRP_LAND_CLASS, [&] {
    _progress("Land classes");
    uint32_t count = _io.io_ReadUlong();
    _io.io_Require(uint64_t(count) * 18);  // two empty names, a position and an id
    _landModels.resize(count);
    for (auto& m : _landModels) {
      m.class_name = _io.io_ReadAsciiz();
      m.model = _io.io_ReadAsciiz();
      std::memcpy(&m.position, _io.io_GetAddressAndUpdate(sizeof m.position), sizeof m.position);
      m.id = _io.io_ReadUlong();
    }
  });
  _io.io_callback("%d land classes\r\n", int(_landModels.size()));

  _read_quad_tree(_objectGrid, 4, WRP_PACKED_GRID, "packed grid 4");
  uint32_t objectArea = _io.io_ReadUlong();
  _read_quad_tree(_mapGrid, 4, WRP_PACKED_GRID, "packed grid 5");
  _mapInfoSize = _io.io_ReadUlong();
  if (is_v32(_version)) {
    uint32_t skip = v32_word(_v32Head, 1);
    uint8_t const* tail = _io.io_GetAddressAndUpdate(skip);
    _v32Tail.assign(tail, tail + skip);
  } else {
    _read_array(_bytes2, _layerCells(), WRP_COMPRESSION, "Compressed Bytes2");
    _read_array(_bytes3, _mapCells(), WRP_COMPRESSION, "Compressed Bytes3");
  }
  _maxObjectId = _io.io_ReadLong();
  wrp_section(_io, WRP_ROAD_SIZES, [&] { _read_roads(); });
  _read_objects(objectArea, 60);
  _read_map_infos();
}

void Tessak::_read_roads() {
  _progress("Roads");
  uint32_t size = _io.io_ReadUlong();
  uint64_t const start = _io.io_GetCurrentOffset();
  uint64_t cells = _layerCells();
  _io.io_Require(cells * 4);  // a link count per layer cell
  _roadCellCounts.resize(cells);
  for (auto& count : _roadCellCounts) {
    count = _io.io_ReadUlong();
    _io.io_Require(uint64_t(count) * 2);
    for (uint32_t i = 0; i < count; ++i) {
      WRP_RoadLink link;
      uint16_t points = _io.io_ReadUshort();
      link.points.resize(points);
      if (points)
        std::memcpy(link.points.data(), _io.io_GetAddressAndUpdate(points * sizeof(XYZTriplet)),
                    points * sizeof(XYZTriplet));
      if (_version >= 24) {
        uint8_t const* types = _io.io_GetAddressAndUpdate(points);
        link.types.assign(types, types + points);
      }
      link.object_id = _io.io_ReadUlong();
      link.model = _io.io_ReadAsciiz();
      std::memcpy(&link.transform, _io.io_GetAddressAndUpdate(sizeof link.transform), sizeof link.transform);
      _roads.push_back(std::move(link));
    }
  }
  if (_io.io_GetCurrentOffset() - start != size) throw WRP_ROAD_SIZES;
}

void Tessak::_read_map_infos() {
  _progress("Map info");
  uint64_t left = _io.io_RemainingBytes();
  if (left != _mapInfoSize) {
    ++_warnings;
    _io.io_callbackerr("***Warning*** MapInfoSize is incorrect\r\nIs %d, should be %d \r\n", int(left),
                       int(_mapInfoSize));
  }
  while (_io.io_RemainingBytes()) {
    uint8_t const* start = _io.io_GetAddress();
    if (_io.io_RemainingBytes() < 4) throw WRP_BAD_MAPINFO;
    uint32_t type = _io.io_ReadUlong();
    uint64_t size = map_info_size(type, _version);
    if (!size) {
      ++_warnings;
      _io.io_callbackerr(
          "***Warning*** unknown mapinfotype %d\r\nThe remainder of the file has not been read\r\n", int(type));
      _io.io_GetAddressAndUpdate(_io.io_RemainingBytes());
      break;
    }
    wrp_section(_io, WRP_BAD_MAPINFO, [&] {
      if (type == 35 && (_version == 23 || is_v32(_version))) {
        _io.io_GetAddressAndUpdate(44 - 4);
        _io.io_ReadLong();
        int32_t n = _io.io_ReadLong();
        if (n < 0) throw WRP_BAD_MAPINFO;
        _io.io_GetAddressAndUpdate(uint64_t(n) * 8);
        int32_t m = _io.io_ReadLong();
        if (m < -1) throw WRP_BAD_MAPINFO;
        _io.io_GetAddressAndUpdate((uint64_t(m) + 1) * 8);
      } else {
        _io.io_GetAddressAndUpdate(size - 4);
      }
    });
    _mapInfos.push_back({type, uint32_t(_io.io_GetCurrentOffset() - _io.io_BytesUsed(start)), start});
  }
}

// ===== writing ==============================================================

void Tessak::_write_array(BisFileIO& out, CompressedStruct const& cs, uint64_t cells) const {
  // The stored form is reused when the array is unchanged; the cast only lets the compressor use
  // the array's engine.
  cs.WriteCompressed(out, _array_type(), cells);
}

void Tessak::_write_quad_tree(BisFileIO& out, Grid const& grid, uint32_t element_size) const {
  if (grid.stored && !grid.cs.cs_IsModified()) {
    out.io_WriteBlock(grid.stored, grid.storedLength);
    return;
  }
  WRP_QuadTree(_layerSize.x, _layerSize.y, element_size).qt_Encode(out, grid.cs.cs_Array());
}

void Tessak::_write_roads(BisFileIO& out) const {
  uint64_t size = 0;
  for (auto const& link : _roads)
    size += 2 + link.points.size() * (sizeof(XYZTriplet) + (_version >= 24 ? 1 : 0)) + 4 + link.model.size() + 1 +
            sizeof(XYZTransform);
  size += _roadCellCounts.size() * 4;
  out.io_WriteUlong(uint32_t(size));
  size_t next = 0;
  for (uint32_t count : _roadCellCounts) {
    out.io_WriteUlong(count);
    for (uint32_t i = 0; i < count; ++i) {
      WRP_RoadLink const& link = _roads[next++];
      out.io_WriteUshort(uint16_t(link.points.size()));
      out.io_WriteBlock(link.points.data(), link.points.size() * sizeof(XYZTriplet));
      if (_version >= 24) {
        std::vector<uint8_t> types(link.points.size(), 0);
        std::memcpy(types.data(), link.types.data(), std::min(types.size(), link.types.size()));
        out.io_WriteBlock(types.data(), types.size());
      }
      out.io_WriteUlong(link.object_id);
      out.io_WriteAsciiz(link.model.c_str());
      out.io_WriteXYZTransform(link.transform);
    }
  }
}

void Tessak::_write_oprw(BisFileIO& out) const {
  out.io_WriteBlock("OPRW", 4);
  out.io_WriteUlong(_version);
  if (_version == 3) {
    out.io_WriteUlongPair(_layerSize);
    out.io_WriteUlongPair(_mapSize);
  } else if (_version > 3) {
    if (_version == 25) out.io_WriteUlong(_appId);
    out.io_WriteUlongPair(_layerSize);
    out.io_WriteUlongPair(_mapSize);
    out.io_WriteFloat(_gridSize);
  }
  auto write_peaks = [&] {
    out.io_WriteUlong(uint32_t(_peaks.size()));
    out.io_WriteBlock(_peaks.data(), _peaks.size() * sizeof(XYZTriplet));
  };
  auto write_layers_and_templates = [&] {
    out.io_WriteUlong(uint32_t(_textures.size()));
    for (auto const& t : _textures) {
      out.io_WriteAsciiz(t.first().c_str());
      out.io_WriteByte(t.marker);
    }
    out.io_WriteUlong(uint32_t(_templates.size()));
    for (auto const& m : _templates) out.io_WriteAsciiz(m.c_str());
  };
  auto write_objects = [&](bool with_shape) {
    for (auto const& o : _objects) {
      out.io_WriteUlong(o.id);
      out.io_WriteUlong(o.model);
      out.io_WriteXYZTransform(o.transform);
      if (with_shape) out.io_WriteUlong(o.shape);
    }
  };
  if (_version <= 3) {
    _write_array(out, _cellFlags.cs, _layerCells());
    _write_array(out, _sounds.cs, _layerCells());
    write_peaks();
    _write_array(out, _layers.cs, _layerCells());
    _write_array(out, _clutter, _layerCells());
    _write_array(out, _elevations, _mapCells());
    write_layers_and_templates();
    write_objects(false);
    out.io_WriteLong(_finalWord);
    return;
  }
  if (is_v32(_version)) out.io_WriteBlock(_v32Head.data(), _v32Head.size());
  _write_quad_tree(out, _cellFlags, 2);
  _write_quad_tree(out, _sounds, 1);
  write_peaks();
  _write_quad_tree(out, _layers, 2);
  _write_array(out, _clutter, _version < 21 ? _layerCells() : _mapCells());
  if (is_v32(_version)) {
    out.io_WriteLongLong(int64_t(_mapCells()));
    _write_array(out, _elevations, _mapCells());
    out.io_WriteBlock(_v32Mid.data(), _v32Mid.size());
  } else {
    if (_version != 17) _write_array(out, _bytes1, _mapCells());
    _write_array(out, _elevations, _mapCells());
  }
  write_layers_and_templates();
  out.io_WriteUlong(uint32_t(_landModels.size()));
  for (auto const& m : _landModels) {
    out.io_WriteAsciiz(m.class_name.c_str());
    out.io_WriteAsciiz(m.model.c_str());
    out.io_WriteXYZTriplet(&m.position);
    out.io_WriteUlong(m.id);
  }
  _write_quad_tree(out, _objectGrid, 4);
  out.io_WriteUlong(uint32_t(_objects.size() * 60));
  _write_quad_tree(out, _mapGrid, 4);
  uint64_t mapInfoBytes = 0;
  for (auto const& m : _mapInfos) mapInfoBytes += m.size;
  out.io_WriteUlong(uint32_t(mapInfoBytes));
  if (is_v32(_version)) {
    out.io_WriteBlock(_v32Tail.data(), _v32Tail.size());
  } else {
    _write_array(out, _bytes2, _layerCells());
    _write_array(out, _bytes3, _mapCells());
  }
  out.io_WriteLong(_maxObjectId);
  _write_roads(out);
  write_objects(true);
  for (auto const& m : _mapInfos) out.io_WriteBlock(m.data, m.size);
}
