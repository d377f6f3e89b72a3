#pragma once
// The terrain tool: reads every kind of WRP terrain into one model (elevations on the map grid,
// layer indices on the layer grid, the layer table, object templates, objects and, for binarised
// terrains, the engine's own sections), writes the model back as any kind, and converts a loaded
// terrain to the editable kinds. Converting to a binarised kind keeps the ground, layers and
// objects and leaves the engine's sections (cell flags, packed grids, roads, map display) empty.
//
//   BisDLL dll;
//   Tessak* t = dll.dll_GetTessak();
//   int r = t->wrp_Open("world.wrp");          // 0 or a code of ErrorString
//   r = t->wrp_Create("out.wrp", "8WVR");     // converts when the loaded kind differs
//
// Binarised grids are expanded once into owned memory; uncompressed ones point into the file
// buffer, which stays with the tool until Close or the next open.
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "io/BisFileIO.h"
#include "io/CompressType.h"
#include "io/CompressedStruct.h"
#include "io/CompressionEngine.h"
#include "terrain/WRP_Types.h"
#include "terrain/WrpErrors.h"

class BisDLL;
class Grindel;

class Tessak {
 public:
  enum Kind : int { KIND_NONE = -1, KIND_9WBV = 0, KIND_OPRW = 1, KIND_1WVR = 2, KIND_4WVR = 3, KIND_8WVR = 4 };
  // 4WVR and 1WVR keep their layer tables in fixed slots of fixed width.
  static constexpr uint32_t k4wvrTextures = 512;
  static constexpr uint32_t kTextureNameBytes = 32;
  static constexpr uint32_t k1wvrTextures = 256;
  // Editable kinds store heights as whole multiples of this many metres.
  static constexpr float kHeightStep = 0.05f;
  static constexpr float kDefaultGridSize = 50.0f;
  // No terrain has more cells on a grid than this (16384 x 16384); larger sizes are lies.
  static constexpr uint64_t kMaxGridCells = uint64_t(1) << 28;

  explicit Tessak(BisDLL* dll);
  ~Tessak();
  Tessak(Tessak const&) = delete;
  Tessak& operator=(Tessak const&) = delete;

  int wrp_Open(char const* file);
  // Reads a caller's buffer, which must outlive the loaded terrain.
  int wrp_Open(void const* data, uint64_t size);
  // Writes the loaded terrain as the kind its signature names ("8WVR", "4WVR", "1WVR", "9WBV",
  // "OPRW"), converting first when the kinds differ. `version` chooses the OPRW version (0: the
  // loaded one, else 25).
  int wrp_Create(char const* file, char const* signature, uint32_t version = 0);
  // Converts the loaded terrain in memory to the kind named by `signature`: 8WVR or 9WBV from any
  // kind; 4WVR and 1WVR when the map grid is a whole multiple of the layer grid (the layers are
  // spread over it) and the layer table fits their slots; OPRW in any version. A refused
  // conversion leaves the terrain as it was.
  int wrp_Convert(char const* signature, uint32_t version = 0);
  // Builds the terrain in memory from a loaded project: its elevations, its first layer as the
  // layer grid and table, its templates and objects; then converts to `kind` (a Kind code) when
  // that is not 8WVR. Write it with wrp_Create.
  int wrp_CreateFromPew(unsigned int kind, Grindel* pew, bool (*cb)(char const*, ...));
  int Close();
  static char const* ErrorString(int code);
  static char const* MapInfoName(uint32_t type);
  // The kind of a file by its first bytes, KIND_NONE when it is no terrain.
  static int KindOfSignature(void const* head, uint64_t n);
  static char const* SignatureOfKind(int kind);

  // ---- the loaded terrain ---------------------------------------------------
  BisFileIO* wrp_GetIO() { return &_io; }
  int wrp_Kind() const { return _kind; }
  // The internal version: the OPRW version, or 1, 4, 8, 9 for the other kinds.
  uint32_t wrp_Version() const { return _version; }
  uint32_t wrp_AppId() const { return _appId; }
  uLongPair wrp_LayerSize() const { return _layerSize; }
  uLongPair wrp_MapSize() const { return _mapSize; }
  float wrp_GridSize() const { return _gridSize; }
  // Heights in metres on the map grid, row by row (y outer).
  float const* wrp_Elevations() const { return _elevations.cs_As<float const>(); }
  // Positions in the layer table on the layer grid, row by row.
  uint16_t const* wrp_LayerIndex() const { return _layers.cs.cs_As<uint16_t const>(); }
  std::vector<WRP_Texture> const& wrp_Textures() const { return _textures; }
  std::vector<std::string> const& wrp_Templates() const { return _templates; }
  std::vector<WRP_Object> const& wrp_Objects() const { return _objects; }
  // The model name of an object, null when its index lies outside the template list.
  std::string const* wrp_TemplateOf(WRP_Object const& o) const {
    return o.model < _templates.size() ? &_templates[o.model] : nullptr;
  }
  std::vector<WRP_LandModel> const& wrp_LandModels() const { return _landModels; }
  std::vector<WRP_RoadLink> const& wrp_Roads() const { return _roads; }
  std::vector<WRP_MapInfo> const& wrp_MapInfos() const { return _mapInfos; }
  std::vector<XYZTriplet> const& wrp_Peaks() const { return _peaks; }
  // Warnings raised by the last read (map-info size, unknown map-info type, layer indices).
  uint32_t wrp_Warnings() const { return _warnings; }
  // The object id that terminates an 8WVR/9WBV object list.
  uint32_t wrp_EndMarkerId() const { return _endMarkerId; }

  // Editing: the caller replaces whole parts of the model (used by conversions and tests).
  void wrp_SetGrids(uLongPair layer_size, uLongPair map_size, float grid_size);
  void wrp_SetElevations(float const* heights);  // map grid cells
  void wrp_SetLayerIndex(uint16_t const* index);  // layer grid cells
  std::vector<WRP_Texture>& wrp_EditTextures() { return _textures; }
  std::vector<std::string>& wrp_EditTemplates() { return _templates; }
  std::vector<WRP_Object>& wrp_EditObjects() { return _objects; }

  // The code a thrown message text turns into.
  static constexpr int kDetectedError = 3;

 private:
  // A grid that binarised terrains store as a packed quad tree (or, in the oldest versions, as a
  // compressed array), expanded once.
  struct Grid {
    explicit Grid(uint32_t element_size) : cs(element_size) {}
    CompressedStruct cs;
    uint8_t const* stored = nullptr;  // the packed form as read, written back while unchanged
    uint64_t storedLength = 0;
  };

  BisDLL* _dll;
  BisFileIO _io;
  CompressionEngine _engine;
  int _kind = KIND_NONE;
  uint32_t _version = 0;
  uint32_t _appId = 0;
  uLongPair _layerSize, _mapSize;
  float _gridSize = kDefaultGridSize;
  uint32_t _warnings = 0;
  uint32_t _endMarkerId = 0x7FFFFFFF;
  bool _lzoIn23 = false;  // a version 23 terrain whose arrays turned out to be LZO-coded

  CompressedStruct _elevations{4, &_engine};
  Grid _layers{2};
  std::vector<WRP_Texture> _textures;
  std::vector<std::string> _templates;
  std::vector<WRP_Object> _objects;
  std::vector<WRP_LandModel> _landModels;
  std::vector<WRP_RoadLink> _roads;        // every link, cell by cell
  std::vector<uint32_t> _roadCellCounts;   // links per layer cell
  std::vector<WRP_MapInfo> _mapInfos;
  std::vector<XYZTriplet> _peaks;

  // Binarised sections.
  Grid _cellFlags{2}, _sounds{1}, _objectGrid{4}, _mapGrid{4};
  CompressedStruct _clutter{2, &_engine}, _bytes1{1, &_engine}, _bytes2{1, &_engine}, _bytes3{1, &_engine};
  int32_t _maxObjectId = 0;
  uint32_t _mapInfoSize = 0;
  // Versions 32 and 33: the reference block and the spans read without interpretation.
  std::vector<uint8_t> _v32Head, _v32Mid, _v32Tail;
  // 1WVR: the road nets after the objects, kept as read.
  std::vector<uint8_t> _netsTail;
  int32_t _finalWord = -1;  // the word after the objects of versions 2 and 3

  void _reset();
  int _open_worker();
  void _progress(char const* section);
  void _check_grid_sizes(CompressType type, uint64_t bytes_per_map_cell);
  uint64_t _layerCells() const { return uint64_t(_layerSize.x) * _layerSize.y; }
  uint64_t _mapCells() const { return uint64_t(_mapSize.x) * _mapSize.y; }
  void _align(CompressedStruct& cs);
  void _warn_layer_indices();

  // Editable kinds (TessakPlain.cpp).
  void _read_8wvr();
  void _read_single_grid_start(int version, char const* signature);
  void _read_4wvr();
  void _read_1wvr();
  void _write_8wvr(BisFileIO& out) const;
  void _write_4wvr(BisFileIO& out) const;
  void _write_1wvr(BisFileIO& out) const;
  using TemplateIndex = std::unordered_map<std::string_view, uint32_t>;
  uint32_t _template_of(TemplateIndex& known, std::string_view name);

  // Binarised kind (TessakOprw.cpp).
  CompressType _array_type() const;
  void _read_oprw();
  void _read_oprw_legacy_body();
  void _read_oprw_body();
  void _read_array(CompressedStruct& cs, uint64_t cells, int code, char const* section);
  void _read_quad_tree(Grid& grid, uint32_t element_size, int code, char const* section);
  void _read_peaks();
  void _read_layers();
  void _read_templates();
  void _read_roads();
  void _read_objects(uint64_t area, uint32_t record);
  void _read_map_infos();
  void _write_oprw(BisFileIO& out) const;
  void _write_array(BisFileIO& out, CompressedStruct const& cs, uint64_t cells) const;
  void _write_quad_tree(BisFileIO& out, Grid const& grid, uint32_t element_size) const;
  void _write_roads(BisFileIO& out) const;

  // Conversions (TessakConvert.cpp).
  void _convert(int kind, uint32_t version);
  void _to_editable(int kind);
  void _to_oprw(uint32_t version);
  void _check_one_grid(int kind, bool sizes) const;
};
