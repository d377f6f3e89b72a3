#include "terrain/Tessak.h"

#include <cstdint>
#include <cstring>
#include <new>

#include "core/BisDLL.h"
#include "core/BisMessage.h"
#include "core/GenericError.h"
#include "core/GuardedCall.h"
#include "terrain/TessakSection.h"

Tessak* BisDLL::dll_GetTessak() { return dll_slot<Tessak>(SLOT_TESSAK); }

Tessak::Tessak(BisDLL* dll) : _dll(dll), _io(dll) {}

Tessak::~Tessak() = default;

char const* Tessak::ErrorString(int code) {
  switch (code) {
    case WRP_NOT_WRP: return "Wrp: Not a WRP file";
    case WRP_BAD_VERSION: return "Wrp: Invalid version for OPWR wrp file";
    case WRP_CHECKSUM: return "Wrp: Extract checksum";
    case WRP_BAD_MODEL_INDEX: return "Wrp: Invalid object index in models";
    case WRP_REGRESSIVE_ID: return "Wrp: Model id is regressive";
    case WRP_BAD_MAPINFO: return "Wrp: bad arma mapinfo";
    case WRP_BAD_OBJECT_SIZE: return "Wrp: bad object size";
    case WRP_LAND_CLASS: return "land class is not same as model.p3d";
    case WRP_TEMPLATE_COUNT: return "nchains != nmodels from file";
    case WRP_PACKED_GRID: return "Wrp packed grid unknown byte";
    case WRP_COMPRESSION: return "Wrp: compression error";
    case WRP_CANNOT_CONVERT: return "Wrp: cannot convert wrp";
    case WRP_NO_TEMPLATE: return "wrp: no template exists for an object";
    case WRP_FIRST_TEXTURE: return "unexpected texture on first entry";
    case WRP_TOO_MANY_PAX: return "Too many pax files for 4wvr";
    case WRP_PAX_NAME_LENGTH: return "pax file name exceeds 31 bytes for 4wvr";
    case WRP_EMPTY_TEXTURE: return "unexpected zero length on a texture";
    case WRP_CATENATED_RVMATS: return "rvmat filenames are catenated";
    case WRP_ILLEGAL_LAYER_INDEX: return "illegal index used in layers";
    case WRP_UNUSED_TEXTURE: return "Error: unused texture index";
    case WRP_MULTI_LAYERS: return "Unsupported vbs2 multi layers";
    case WRP_NO_RVMATS: return "no rvmats in layer to convert";
    case WRP_ROAD_SIZES: return "wrong road sizes detected";
    default: return GenericError::ErrorString(code);
  }
}

char const* Tessak::MapInfoName(uint32_t type) {
  static char const* const names[] = {
      "TREE",        "SMALL TREE", "BUSH",     "BUILDING",   "HOUSE",       "FOREST BORDER", "FOREST TRIANGLE",
      "FOREST SQUARE", "CHURCH",   "CHAPEL",   "CROSS",      "ROCK",        "BUNKER",        "FORTRESS",
      "FOUNTAIN",    "VIEW-TOWER", "LIGHTHOUSE", "QUAY",     "FUELSTATION", "HOSPITAL",      "FENCE",
      "WALL",        "HIDE",       "BUSSTOP",  "ROAD",       "FOREST",      "TRANSMITTER",   "STACK",
      "RUIN",        "TOURISM",    "WATERTOWER", "TRACK",    "MAIN ROAD",   "ROCKS",         "POWER LINES",
      "RAILWAY",     "POWERSOLAR", "POWERWAVE", "POWERWIND", "SHIPWRECK"};
  return type < sizeof names / sizeof names[0] ? names[type] : "unknown";
}

namespace {
struct KindSignature {
  char const* signature;
  int kind;
};
constexpr KindSignature kSignatures[] = {{"9WBV", Tessak::KIND_9WBV},
                                         {"OPRW", Tessak::KIND_OPRW},
                                         {"1WVR", Tessak::KIND_1WVR},
                                         {"4WVR", Tessak::KIND_4WVR},
                                         {"8WVR", Tessak::KIND_8WVR}};
}  // namespace

int Tessak::KindOfSignature(void const* head, uint64_t n) {
  if (!head || n < 4) return KIND_NONE;
  for (auto const& s : kSignatures)
    if (std::memcmp(head, s.signature, 4) == 0) return s.kind;
  return KIND_NONE;
}

char const* Tessak::SignatureOfKind(int kind) {
  for (auto const& s : kSignatures)
    if (s.kind == kind) return s.signature;
  return nullptr;
}

void Tessak::_reset() {
  _io.io_Close();
  _kind = KIND_NONE;
  _version = 0;
  _appId = 0;
  _layerSize = _mapSize = {};
  _gridSize = kDefaultGridSize;
  _warnings = 0;
  _endMarkerId = 0x7FFFFFFF;
  _lzoIn23 = false;
  _elevations.cs_Release();
  for (Grid* g : {&_layers, &_cellFlags, &_sounds, &_objectGrid, &_mapGrid}) {
    g->cs.cs_Release();
    g->stored = nullptr;
    g->storedLength = 0;
  }
  for (CompressedStruct* c : {&_clutter, &_bytes1, &_bytes2, &_bytes3}) c->cs_Release();
  _textures.clear();
  _templates.clear();
  _objects.clear();
  _landModels.clear();
  _roads.clear();
  _roadCellCounts.clear();
  _mapInfos.clear();
  _peaks.clear();
  _maxObjectId = 0;
  _mapInfoSize = 0;
  _v32Head.clear();
  _v32Mid.clear();
  _v32Tail.clear();
  _netsTail.clear();
  _finalWord = -1;
}

int Tessak::Close() {
  bool was_open = _kind != KIND_NONE;
  if (was_open) _io.io_callback("closing wrp...");
  _reset();
  if (was_open) _io.io_callback("done\r\n");
  return 0;
}

int Tessak::wrp_Open(char const* file) {
  return bis_guarded_call<WrpErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _reset();
    if (!file || !*file) throw "no filename";
    if (!_io.io_OpenFile(file)) _io.io_throw(GE_EOF, "Cannot open %s\r\n", file);
    return _open_worker();
  });
}

int Tessak::wrp_Open(void const* data, uint64_t size) {
  return bis_guarded_call<WrpErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _reset();
    _io.io_OpenPseudoFile(data, size);
    return _open_worker();
  });
}

int Tessak::_open_worker() {
  try {
    if (_io.io_GetFileSize() < 4) throw WRP_NOT_WRP;
    _kind = KindOfSignature(_io.io_GetAddressAndUpdate(4), 4);
    switch (_kind) {
      case KIND_OPRW: _read_oprw(); break;
      case KIND_8WVR:
      case KIND_9WBV: _read_8wvr(); break;
      case KIND_4WVR: _read_4wvr(); break;
      case KIND_1WVR: _read_1wvr(); break;
      default: throw WRP_NOT_WRP;
    }
  } catch (...) {
    _kind = KIND_NONE;  // a terrain that failed to read cannot be written or converted
    throw;
  }
  _warn_layer_indices();
  return 0;
}

void Tessak::_progress(char const* section) {
  _io.io_callback("Reading %s @%04X...\r\n", section, static_cast<unsigned>(_io.io_GetCurrentOffset()));
}

// Every grid must be one the file could hold: the elevations alone are a map grid of floats, so a
// map grid that even the best compression could not fit in the rest of the file is a lie, and so
// is a layer grid larger than the whole file could expand to. Both end the read before anything
// is allocated.
void Tessak::_check_grid_sizes(CompressType type, uint64_t bytes_per_map_cell) {
  _io.io_callback("LayerSize = %d x %d\r\n", int(_layerSize.x), int(_layerSize.y));
  _io.io_callback("MapSize = %d x %d\r\n", int(_mapSize.x), int(_mapSize.y));
  GenString g;
  g.str_FloatToStr(_gridSize);
  _io.io_callback("Gridsize %s\r\n", g.c_str());
  // Plain kinds store grids as they are, so a grid they cannot hold is a premature end of file.
  auto lie = [&] {
    _io.io_callbackerr("Grids of %u x %u and %u x %u cells are more than the file can hold\r\n",
                       unsigned(_layerSize.x), unsigned(_layerSize.y), unsigned(_mapSize.x), unsigned(_mapSize.y));
    if (!(type & CT_METHOD_MASK)) throw GE_EOF;
    throw WRP_COMPRESSION;
  };
  uint64_t layer = _layerCells(), map = _mapCells();
  if (!layer || !map || layer > kMaxGridCells || map > kMaxGridCells) lie();
  uint64_t limit = cmp_ExpandLimit(_io.io_RemainingBytes(), type);
  if (map * bytes_per_map_cell > limit || layer > limit) lie();
}

// Raw arrays may sit at any byte offset of the file; copied once they can be read as floats.
void Tessak::_align(CompressedStruct& cs) {
  if (!cs.cs_Array() || reinterpret_cast<uintptr_t>(cs.cs_Array()) % 4 == 0) return;
  std::vector<uint8_t> copy(cs.cs_Array(), cs.cs_Array() + cs.cs_Count() * cs.cs_ElementSize());
  bool modified = cs.cs_IsModified();
  cs.cs_CopyIn(copy.data(), cs.cs_Count());
  cs.cs_SetModified(modified);
}

void Tessak::_warn_layer_indices() {
  uint16_t const* index = wrp_LayerIndex();
  if (!index) return;
  uint64_t n = _layerCells(), bad = 0;
  for (uint64_t i = 0; i < n; ++i) bad += index[i] >= _textures.size();
  if (bad) {
    ++_warnings;
    _io.io_callbackerr("***Warning*** %llu layer cells name a texture beyond the %u of the table\r\n",
                       static_cast<unsigned long long>(bad), static_cast<unsigned>(_textures.size()));
  }
}

void Tessak::wrp_SetGrids(uLongPair layer_size, uLongPair map_size, float grid_size) {
  _layerSize = layer_size;
  _mapSize = map_size;
  _gridSize = grid_size;
  _elevations.cs_Release();
  _elevations.cs_Allocate(_mapCells());
  _elevations.cs_SetModified(true);
  _layers.cs.cs_Release();
  _layers.cs.cs_Allocate(_layerCells());
  _layers.cs.cs_SetModified(true);
  _layers.stored = nullptr;
  if (_kind == KIND_NONE) _kind = KIND_8WVR, _version = 8;
}

void Tessak::wrp_SetElevations(float const* heights) { _elevations.cs_CopyIn(heights, _mapCells()); }

void Tessak::wrp_SetLayerIndex(uint16_t const* index) {
  _layers.cs.cs_CopyIn(index, _layerCells());
  _layers.stored = nullptr;
}

int Tessak::wrp_Convert(char const* signature, uint32_t version) {
  return bis_guarded_call<WrpErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    int kind = KindOfSignature(signature, signature ? std::strlen(signature) : 0);
    if (kind == KIND_NONE) throw WRP_NOT_WRP;
    if (_kind == KIND_NONE) throw WRP_CANNOT_CONVERT;
    _convert(kind, version);
    return 0;
  });
}

int Tessak::wrp_Create(char const* file, char const* signature, uint32_t version) {
  return bis_guarded_call<WrpErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    int kind = KindOfSignature(signature, signature ? std::strlen(signature) : 0);
    if (kind == KIND_NONE) throw WRP_NOT_WRP;
    if (_kind == KIND_NONE) throw WRP_CANNOT_CONVERT;
    if (!file || !*file) throw "no filename";
    _convert(kind, version);
    BisFileIO out(_dll);
    out.io_SetStdioCallBack(_io.io_GetStdioCallBack());
    if (!out.io_CreateFile(file)) throw GE_CANNOT_WRITE;
    switch (kind) {
      case KIND_OPRW: _write_oprw(out); break;
      case KIND_8WVR:
      case KIND_9WBV: _write_8wvr(out); break;
      case KIND_4WVR: _write_4wvr(out); break;
      case KIND_1WVR: _write_1wvr(out); break;
    }
    out.io_CloseOutput();
    return 0;
  });
}
