#include "terrain/Grindel.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <unordered_set>

#include "core/BisDLL.h"
#include "core/GenericError.h"
#include "core/GuardedCall.h"
#include "terrain/PewIO.h"

Grindel* BisDLL::dll_GetGrindel() { return dll_slot<Grindel>(SLOT_GRINDEL); }

Grindel::Grindel(BisDLL* dll) : _dll(dll), _io(dll) {}

Grindel::~Grindel() = default;

char const* Grindel::ErrorString(unsigned char code) {
  switch (code) {
    case PEW_CANNOT_DECODE: return "Pew: cannot decode";
    case PEW_FILESIZE: return "Pew: filsize corrupt";
    case PEW_UNKNOWN_HEADER: return "Pew: unknown header";
    case PEW_DUPLICATE_TEMPLATE: return "Pew: model name or id is duplicated in template";
    case PEW_NO_MODEL: return "Pew: an object has no corresponding model id";
    case PEW_BAD_INSTANCE_ID: return "Pew: instance id is not sequential or unique";
    case PEW_DUPLICATE_LAYER: return "Pew: duplicated rvmat layer detected";
    case PEW_MATERIAL_INDEX: return "Pew Materials index exceeds nRvmats";
    case PEW_BAD_CONFIG: return "Pew: Bad Config file";
    case PEW_NON_LINEAR_MODEL: return "pew: unexpected (non linear) model index";
    case PEW_DUAL_INSTANCE: return "Pew: dual instance of same objectID";
    default: return GenericError::ErrorString(code);
  }
}

void Grindel::_reset() {
  _io.io_Close();
  _version = 0;
  _gridSize = kDefaultGridSize;
  _segmentSize = kDefaultSegmentSize;
  _rvmatPath.clear();
  _className.clear();
  _p3dPath.clear();
  _warnings = 0;
  ofpTextures.clear();
  templates.clear();
  noOfpTerrains = noOfpForests = 1;
  ofpTerrains.clear();
  ofpForests.clear();
  roadNets.clear();
  elevations = {};
  oldElevations = {};
  objects.clear();
  activeLayer.clear();
  layers.clear();
  namedZones.clear();
  roadBlocks.clear();
  altNamedZones.clear();
  keyPoints.clear();
  backGrounds.clear();
  selections.clear();
}

void Grindel::pew_New(int version, float grid_size) {
  _reset();
  _version = version;
  _gridSize = grid_size;
  _segmentSize = kDefaultSegmentSize;
}

int Grindel::Close() {
  bool was_open = _version != 0;
  if (was_open) _io.io_callback("closing pew...");
  _reset();
  if (was_open) _io.io_callback("done\r\n");
  return 0;
}

void Grindel::_warn(char const* format, ...) {
  ++_warnings;
  va_list ap;
  va_start(ap, format);
  _io.io_vcallback(true, format, ap);
  va_end(ap);
}

void Grindel::_section(char const* text) { _io.io_callback("%s", text); }

int Grindel::pew_Open(char const* file, Callback cb) {
  return bis_guarded_call<PewErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _reset();
    if (!file || !*file) throw "no filename";
    if (cb) _io.io_SetStdioCallBack(cb);
    if (!_io.io_OpenFile(file)) _io.io_throw(GE_EOF, "Cannot open %s\r\n", file);
    return _open_worker(cb);
  });
}

int Grindel::pew_Open(unsigned char const* data, unsigned int size, Callback cb) {
  return bis_guarded_call<PewErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _reset();
    if (cb) _io.io_SetStdioCallBack(cb);
    _io.io_OpenPseudoFile(data, size);
    return _open_worker(cb);
  });
}

void Grindel::_read_header() {
  static constexpr int kVersions[] = {28, 58, 59, 60};
  uint64_t size = _io.io_GetFileSize();
  if (size < 7) throw PEW_UNKNOWN_HEADER;
  char const* sig = reinterpret_cast<char const*>(_io.io_GetAddressAndUpdate(7));
  for (int v : kVersions)
    if (std::memcmp(sig, "POSEW", 5) == 0 && sig[5] == '0' + v / 10 && sig[6] == '0' + v % 10) _version = v;
  if (!_version) throw PEW_UNKNOWN_HEADER;
  if (_version != 28) {
    if (_io.io_RemainingBytes() < 8 || _io.io_ReadUlong() != size) throw PEW_FILESIZE;
    if (_io.io_ReadUlong() != 0) throw "ulUnknown in header is non zero\r\n";
  }
  auto text = [&](std::string& s) { s = pew_io::read_string(_io); };
  text(_rvmatPath);
  text(_className);
  if (_version != 28) {
    _gridSize = _io.io_ReadFloat();
    _segmentSize = _io.io_ReadFloat();
    text(_p3dPath);
  }
}

int Grindel::_open_worker(Callback) {
  try {
    _read_header();
    if (_version == 28) {
      _section("Reading Elevations...");
      _read_elevations(oldElevations);
      _section("ok\r\n");
    }
    _section("Reading Ofp texture Templates(if any)...");
    _read_blocks(ofpTextures);
    _section("ok\r\nReading Object templates...");
    _read_templates();
    _check_templates();
    _section("ok\r\nReading Ofp Terrain Templates...");
    noOfpTerrains = _io.io_ReadUshort();
    if (!noOfpTerrains && ofpTerrains.empty()) _read_blocks(ofpTerrains);
    _section("ok\r\nReading Ofp Forest Templates...");
    noOfpForests = _io.io_ReadUshort();
    if (!noOfpForests && ofpForests.empty()) _read_blocks(ofpForests);
    _section("ok\r\nReading RoadNet Templates...");
    _read_blocks(roadNets);
    _section("ok\r\nReading Elevations...");
    _read_elevations(elevations);
    _section("ok\r\nReading Objects (p3d's)...");
    _read_objects();
    _check_objects();
    _section("ok\r\nReading Layers (rvmats)...");
    _read_layers();
    _check_layers();
    _section("ok\r\nReading NamedZones...");
    _read_zones(namedZones, false);
    _section("ok\r\nReading Roadnet blocks...");
    _read_road_blocks();
    _section("ok\r\nReading AltNamedZones...");
    _read_zones(altNamedZones, true);
    _section("ok\r\nReading Keypoints...");
    _read_blocks(keyPoints);
    _section("ok\r\nReading Backgrounds...");
    _read_blocks(backGrounds);
    _section("ok\r\nReading Selections...");
    _read_blocks(selections);
    _section("ok\r\n");
    if (_io.io_RemainingBytes()) throw GE_RESIDUAL_BYTES;
  } catch (Generic_Errors e) {
    _version = 0;
    // A record running past the end of the project is a project that cannot be decoded.
    if (e == GE_EOF) throw PEW_CANNOT_DECODE;
    throw;
  } catch (...) {
    _version = 0;
    throw;
  }
  pew_show_tail();
  return 0;
}

// Model ids rise from template to template; a name or id seen twice is ambiguous.
void Grindel::_check_templates() const {
  std::unordered_set<std::string_view> names;
  names.reserve(templates.size());
  for (size_t i = 0; i < templates.size(); ++i) {
    if (i && templates[i].modelId == templates[i - 1].modelId) throw PEW_DUPLICATE_TEMPLATE;
    if (i && templates[i].modelId < templates[i - 1].modelId) throw PEW_NON_LINEAR_MODEL;
    if (!names.insert(templates[i].model).second) throw PEW_DUPLICATE_TEMPLATE;
  }
}

PewObjectTemplate const* Grindel::pew_TemplateOf(uint32_t model_id) const {
  auto it = std::lower_bound(templates.begin(), templates.end(), model_id,
                             [](PewObjectTemplate const& t, uint32_t id) { return t.modelId < id; });
  return it != templates.end() && it->modelId == model_id ? &*it : nullptr;
}

void Grindel::_check_objects() const {
  std::vector<uint32_t> ids;
  ids.reserve(objects.size());
  for (PewObject const& o : objects) {
    if (o.objectId > kMaxObjectId) throw PEW_BAD_INSTANCE_ID;
    if (!pew_TemplateOf(o.modelId)) throw PEW_NO_MODEL;
    ids.push_back(o.objectId);
  }
  std::sort(ids.begin(), ids.end());
  if (std::adjacent_find(ids.begin(), ids.end()) != ids.end()) throw PEW_DUAL_INSTANCE;
}

void Grindel::_check_layers() const {
  std::unordered_set<std::string_view> names;
  for (PewLayer const& l : layers) {
    if (!names.insert(l.name).second) throw PEW_DUPLICATE_LAYER;
    size_t n = l.materials.size();
    for (uint16_t c : l.cells)
      if (c >= n) throw PEW_MATERIAL_INDEX;
  }
}

void Grindel::pew_show_header() {
  _io.io_callback("Pewtype %d\r\n", _version);
  _io.io_callback("GridSize %.2f\r\n", double(_gridSize));
  _io.io_callback("SegmentSize %.2f\r\n", double(_segmentSize));
  _io.io_callback("RvmatPath=%s\r\n", _rvmatPath.c_str());
  _io.io_callback("classname=%s\r\n", _className.c_str());
  _io.io_callback("P3dPath=%s\r\n", _p3dPath.c_str());
}

void Grindel::pew_show_tail() {
  _io.io_callback("Terrain Elevation Size %u x %u\r\n", elevations.sizeX, elevations.sizeY);
  _io.io_callback("nLayers %u\r\n", unsigned(layers.size()));
  for (size_t i = 0; i < layers.size(); ++i)
    _io.io_callback("Texture layer %u   Size %u x %u\r\n", unsigned(i), layers[i].sizeX, layers[i].sizeY);
}

void Grindel::_write_header(BisFileIO& out) const {
  char sig[16];
  std::snprintf(sig, sizeof sig, "POSEW%02d", _version % 100);
  out.io_WriteBlock(sig, 7);
  auto text = [&](std::string const& s) { pew_io::write_string(out, s); };
  if (_version != 28) {
    out.io_WriteUlong(0);  // the file size, filled in once known
    out.io_WriteUlong(0);
  }
  text(_rvmatPath);
  text(_className);
  if (_version != 28) {
    out.io_WriteFloat(_gridSize);
    out.io_WriteFloat(_segmentSize);
    text(_p3dPath);
  }
}

int Grindel::pew_Write(char const* file) {
  return bis_guarded_call<PewErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!_version) throw PEW_UNKNOWN_HEADER;
    if (!file || !*file) throw "no filename";
    BisFileIO out(_dll);
    out.io_SetStdioCallBack(_io.io_GetStdioCallBack());
    if (!out.io_CreateFile(file)) throw GE_CANNOT_WRITE;
    _write_header(out);
    _write_body(out);
    uint64_t size = out.io_GetOutSize();
    if (size > UINT32_MAX) throw GE_CANNOT_WRITE;
    if (_version != 28) {
      out.io_MoveTo(7, 1);
      out.io_WriteUlong(uint32_t(size));
      out.io_MoveTo(size, 1);
    }
    out.io_CloseOutput();
    return 0;
  });
}
