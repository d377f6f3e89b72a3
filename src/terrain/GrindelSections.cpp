// The sections of a project, read from the tool's buffer and written back in the same layout.
// Every count is checked against the bytes left before anything is allocated for it: a record
// takes at least `min` bytes, so a count that cannot fit is a corrupt file, not a reason to
// reserve memory.
#include <algorithm>
#include <cstring>

#include "terrain/Grindel.h"
#include "terrain/PewIO.h"

namespace {
using namespace pew_io;

void read_transform(BisFileIO& io, XYZTransform& t) { io.io_ReadBlock(&t, sizeof t); }

void write_blocks(BisFileIO& out, std::vector<PewBlock> const& list) {
  out.io_WriteUlong(uint32_t(list.size()));
  for (PewBlock const& b : list) {
    write_string(out, b.name);
    write_blob(out, b.body);
  }
}

// Behind the heights: one float per 16 cells of each row, then a word; the editor's own.
uint64_t elevation_tail(uint32_t size_x) { return uint64_t(size_x / 16) * size_x * 4 + 4; }

void write_elevations(BisFileIO& out, PewElevations const& e) {
  out.io_WriteUlong(e.sizeX);
  out.io_WriteUlong(e.sizeY);
  out.io_WriteBlock(e.heights.data(), e.heights.size() * sizeof(float));
  if (e.extra.size() == elevation_tail(e.sizeX)) {
    out.io_WriteBlock(e.extra.data(), e.extra.size());
    return;
  }
  std::vector<uint8_t> zero(elevation_tail(e.sizeX));
  out.io_WriteBlock(zero.data(), zero.size());
}

void write_zones(BisFileIO& out, PewNamedZones const& list, bool alt) {
  out.io_WriteUlong(uint32_t(list.size()));
  for (PewNamedZone const& z : list) {
    out.io_WriteUshort(z.present);
    out.io_WriteUshort(z.moveable);
    write_string(out, z.name);
    out.io_WriteUlong(z.areaColour);
    out.io_WriteUlong(z.outlineColour);
    out.io_WriteUlong(z.style);
    out.io_WriteUlong(uint32_t(z.points.size()));
    out.io_WriteBlock(z.points.data(), z.points.size() * sizeof(float));
    out.io_WriteUlong(z.id);
    if (alt)
      out.io_WriteUlong(z.visible);
    else
      write_string(out, z.secondName);
  }
}

}  // namespace

void Grindel::_read_blocks(std::vector<PewBlock>& list) {
  uint32_t n = read_count(_io, 8);
  list.resize(n);
  for (PewBlock& b : list) {
    b.name = read_string(_io);
    b.body = read_blob(_io);
  }
}

void Grindel::_read_templates() {
  uint32_t n = read_count(_io, 24);
  templates.resize(n);
  for (PewObjectTemplate& t : templates) {
    t.model = read_string(_io);
    t.modelId = _io.io_ReadUlong();
    t.kind = _io.io_ReadUlong();
    t.outline = _io.io_ReadUlong();
    t.colour = _io.io_ReadUlong();
    t.extra = read_blob(_io);
  }
}

void Grindel::_read_elevations(PewElevations& e) {
  e.sizeX = _io.io_ReadUlong();
  e.sizeY = _io.io_ReadUlong();
  uint64_t cells = uint64_t(e.sizeX) * e.sizeY;
  uint64_t left = _io.io_RemainingBytes();
  if (cells > left / 4 || cells * 4 + elevation_tail(e.sizeX) > left) throw PEW_CANNOT_DECODE;
  e.heights.resize(cells);
  _io.io_ReadBlock(e.heights.data(), cells * 4);
  uint8_t const* p = _io.io_GetAddressAndUpdate(elevation_tail(e.sizeX));
  e.extra.assign(p, p + elevation_tail(e.sizeX));
}

void Grindel::_read_objects() {
  constexpr uint64_t kRecord = 2 + 4 + 4 + sizeof(XYZTransform);
  uint32_t n = read_count(_io, kRecord);
  objects.resize(n);
  for (PewObject& o : objects) {
    o.present = _io.io_ReadUshort();
    o.objectId = _io.io_ReadUlong();
    o.modelId = _io.io_ReadUlong();
    read_transform(_io, o.transform);
  }
}

void Grindel::_read_layers() {
  uint32_t n = read_count(_io, 16);
  activeLayer = read_string(_io);
  layers.resize(n);
  for (PewLayer& l : layers) {
    l.name = read_string(_io);
    l.sizeX = _io.io_ReadUlong();
    l.sizeY = _io.io_ReadUlong();
    l.materials.resize(read_count(_io, 9));
    for (PewTerrainMaterial& m : l.materials) {
      m.type = _io.io_ReadUlong();
      m.marker = uint8_t(_io.io_ReadByte());
      if (m.type > PewTerrainMaterial::TEXTURES) _warn("Terrain material unknown type\r\n");
      m.names.resize(read_count(_io, 4));
      for (std::string& s : m.names) s = read_string(_io);
    }
    uint64_t cells = uint64_t(l.sizeX) * l.sizeY;
    if (cells > _io.io_RemainingBytes() / 2) throw PEW_CANNOT_DECODE;
    l.cells.resize(cells);
    _io.io_ReadBlock(l.cells.data(), cells * 2);
  }
}

void Grindel::_read_zones(PewNamedZones& list, bool alt) {
  uint32_t n = read_count(_io, 32);
  list.resize(n);
  for (PewNamedZone& z : list) {
    z.present = _io.io_ReadUshort();
    z.moveable = _io.io_ReadUshort();
    z.name = read_string(_io);
    z.areaColour = _io.io_ReadUlong();
    z.outlineColour = _io.io_ReadUlong();
    z.style = _io.io_ReadUlong();
    z.points.resize(read_count(_io, 4));
    _io.io_ReadBlock(z.points.data(), z.points.size() * sizeof(float));
    z.id = _io.io_ReadUlong();
    if (alt)
      z.visible = _io.io_ReadUlong();
    else
      z.secondName = read_string(_io);
  }
}

void Grindel::_read_road_blocks() {
  constexpr uint32_t kCurved = 1, kCurveKinds = 6;
  uint32_t n = read_count(_io, 20);
  roadBlocks.resize(n);
  for (PewRoadBlock& b : roadBlocks) {
    b.flag = _io.io_ReadUlong();
    b.flag2 = _io.io_ReadUlong();
    b.type = _io.io_ReadUlong();
    if (b.flag) _warn("PewRoadBlock has non-zero flag\r\n");
    if (b.flag2) _warn("PewRoadBlock has non-zero flag2\r\n");
    if (b.type > 3) _warn("PewRoadBlock has Type != 0..3\r\n");
    b.name = read_string(_io);
    b.lists.resize(read_count(_io, 8));
    for (PewRoadBlockModelList& l : b.lists) {
      l.flag = _io.io_ReadUlong();
      if (l.flag) _warn("PewRoadBlockModelList has non-zero flag\r\n");
      l.models.resize(read_count(_io, 4 + 4 + sizeof(XYZTransform)));
      for (PewRoadBlockModel& m : l.models) {
        m.type = _io.io_ReadUlong();
        if (m.type > 3) _warn("PewRoadBlockModel Type not 0..3\r\n");
        if (m.type == kCurved) {
          m.curve = _io.io_ReadUlong();
          if (m.curve >= kCurveKinds) _warn("curved road unknown type %d\r\n", int(m.curve));
        }
        m.model = read_string(_io);
        read_transform(_io, m.transform);
      }
    }
  }
}

void Grindel::_write_body(BisFileIO& out) const {
  if (_version == 28) write_elevations(out, oldElevations);
  write_blocks(out, ofpTextures);
  out.io_WriteUlong(uint32_t(templates.size()));
  for (PewObjectTemplate const& t : templates) {
    write_string(out, t.model);
    for (uint32_t v : {t.modelId, t.kind, t.outline, t.colour}) out.io_WriteUlong(v);
    write_blob(out, t.extra);
  }
  out.io_WriteUshort(noOfpTerrains);
  if (!noOfpTerrains) write_blocks(out, ofpTerrains);
  out.io_WriteUshort(noOfpForests);
  if (!noOfpForests) write_blocks(out, ofpForests);
  write_blocks(out, roadNets);
  write_elevations(out, elevations);
  out.io_WriteUlong(uint32_t(objects.size()));
  for (PewObject const& o : objects) {
    out.io_WriteUshort(o.present);
    out.io_WriteUlong(o.objectId);
    out.io_WriteUlong(o.modelId);
    out.io_WriteBlock(&o.transform, sizeof o.transform);
  }
  out.io_WriteUlong(uint32_t(layers.size()));
  write_string(out, activeLayer);
  for (PewLayer const& l : layers) {
    write_string(out, l.name);
    out.io_WriteUlong(l.sizeX);
    out.io_WriteUlong(l.sizeY);
    out.io_WriteUlong(uint32_t(l.materials.size()));
    for (PewTerrainMaterial const& m : l.materials) {
      out.io_WriteUlong(m.type);
      out.io_WriteByte(m.marker);
      out.io_WriteUlong(uint32_t(m.names.size()));
      for (std::string const& s : m.names) write_string(out, s);
    }
    out.io_WriteBlock(l.cells.data(), l.cells.size() * 2);
  }
  write_zones(out, namedZones, false);
  out.io_WriteUlong(uint32_t(roadBlocks.size()));
  for (PewRoadBlock const& b : roadBlocks) {
    for (uint32_t v : {b.flag, b.flag2, b.type}) out.io_WriteUlong(v);
    write_string(out, b.name);
    out.io_WriteUlong(uint32_t(b.lists.size()));
    for (PewRoadBlockModelList const& l : b.lists) {
      out.io_WriteUlong(l.flag);
      out.io_WriteUlong(uint32_t(l.models.size()));
      for (PewRoadBlockModel const& m : l.models) {
        out.io_WriteUlong(m.type);
        if (m.type == 1) out.io_WriteUlong(m.curve);
        write_string(out, m.model);
        out.io_WriteBlock(&m.transform, sizeof m.transform);
      }
    }
  }
  write_zones(out, altNamedZones, true);
  write_blocks(out, keyPoints);
  write_blocks(out, backGrounds);
  write_blocks(out, selections);
}
