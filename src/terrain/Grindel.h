#pragma once
// The project tool: reads terrain-editor projects (POSEW28, 58, 59, 60) into lists of records,
// writes them back, and makes a project from a loaded terrain.
//
//   BisDLL dll;
//   Grindel* g = dll.dll_GetGrindel();
//   int r = g->pew_Open("island.pew", nullptr);       // 0 or a code of ErrorString
//   r = g->MakePew("new.pew", 60, dll.dll_GetTessak(), nullptr, "colors.hpp");
//
// A section the library does not interpret record by record is kept as read and written back
// unchanged, so opening and writing a project never loses anything.
#include <cstdint>
#include <string>

#include "io/BisFileIO.h"
#include "terrain/PewLayers.h"
#include "terrain/PewObjects.h"
#include "terrain/PewZones.h"

class BisDLL;
class Tessak;

enum PewErrors : int {
  PEW_CANNOT_DECODE = 10,
  PEW_FILESIZE = 11,
  PEW_UNKNOWN_HEADER = 12,
  PEW_DUPLICATE_TEMPLATE = 13,
  PEW_NO_MODEL = 14,
  PEW_BAD_INSTANCE_ID = 15,
  PEW_DUPLICATE_LAYER = 16,
  PEW_MATERIAL_INDEX = 17,
  PEW_BAD_CONFIG = 18,
  PEW_NON_LINEAR_MODEL = 19,
  PEW_DUAL_INSTANCE = 20,
};

class Grindel {
 public:
  using Callback = bool (*)(char const*, ...);
  static constexpr float kDefaultGridSize = 50.0f;
  static constexpr float kDefaultSegmentSize = 480.0f;
  static constexpr int kDetectedError = 3;
  // Object ids are the engine's signed ids: larger ones cannot be placed.
  static constexpr uint32_t kMaxObjectId = 0x7FFFFFFEu;

  explicit Grindel(BisDLL* dll);
  ~Grindel();
  Grindel(Grindel const&) = delete;
  Grindel& operator=(Grindel const&) = delete;

  // Reads a project; a callback given here receives the progress (null keeps the current one).
  // The buffer form copies nothing: the buffer must outlive the call only.
  int pew_Open(char const* file, Callback cb);
  int pew_Open(unsigned char const* data, unsigned int size, Callback cb);
  // Writes the loaded project as its own version.
  int pew_Write(char const* file);
  // The header listing and the tail summary, to the message callback.
  void pew_show_header();
  void pew_show_tail();

  // Makes a project of `version` (58, 59 or 60) from a loaded terrain and writes it to `file`.
  // `config` (may be null) names a config, text or binarised, with class objects { colors[] = {...}; }: pairs of
  // a model name fragment and a colour 0xRRGGBB; the first fragment found in a model's path
  // (ignoring case) colours its template.
  int MakePew(char const* file, int version, Tessak* wrp, Callback cb, char const* config);
  int AddPewMaterials(Tessak* wrp);
  int AddPewElevations(Tessak* wrp);
  int AddPewModels(Tessak* wrp);
  int Close();
  static char const* ErrorString(unsigned char code);

  BisFileIO* pew_GetIO() { return &_io; }
  bool pew_IsLoaded() const { return _version != 0; }
  int pew_Version() const { return _version; }
  float pew_GridSize() const { return _gridSize; }
  float pew_SegmentSize() const { return _segmentSize; }
  std::string const& pew_RvmatPath() const { return _rvmatPath; }
  std::string const& pew_ClassName() const { return _className; }
  std::string const& pew_P3dPath() const { return _p3dPath; }
  uint32_t pew_Warnings() const { return _warnings; }

  // The project's lists, to read or to edit before pew_Write.
  PewOFPTextures ofpTextures;
  PewObjectTemplates templates;
  uint16_t noOfpTerrains = 1, noOfpForests = 1;  // non-zero: the list is absent
  PewOFPTerrains ofpTerrains;
  PewOFPForests ofpForests;
  PewRoadNetTemplates roadNets;
  PewElevations elevations;
  PewElevations oldElevations;  // the leading block of version 28
  PewObjects objects;
  std::string activeLayer;
  PewLayers layers;
  PewNamedZones namedZones;
  PewRoadBlocks roadBlocks;
  PewAltNamedZones altNamedZones;
  PewKeyPoints keyPoints;
  PewBackGrounds backGrounds;
  PewSelections selections;

  // A fresh project of `version` with the given grid size and nothing in it.
  void pew_New(int version, float grid_size);
  // The template of a model id, null when none has it.
  PewObjectTemplate const* pew_TemplateOf(uint32_t model_id) const;

 private:
  BisDLL* _dll;
  BisFileIO _io;
  int _version = 0;
  float _gridSize = kDefaultGridSize, _segmentSize = kDefaultSegmentSize;
  std::string _rvmatPath, _className, _p3dPath;
  uint32_t _warnings = 0;
  std::vector<std::pair<std::string, uint32_t>> _colours;

  void _reset();
  int _open_worker(Callback cb);
  void _read_header();
  void _write_header(BisFileIO& out) const;
  void _section(char const* text);
  void _warn(char const* format, ...) __attribute__((format(printf, 2, 3)));
  void _check_templates() const;
  void _check_objects() const;
  void _check_layers() const;
  void _read_colours(char const* config);
  uint32_t _colour_of(std::string const& model) const;

  // Sections (GrindelSections.cpp): read from _io, written to `out`.
  void _read_blocks(std::vector<PewBlock>& list);
  void _read_templates();
  void _read_elevations(PewElevations& e);
  void _read_objects();
  void _read_layers();
  void _read_zones(PewNamedZones& list, bool alt);
  void _read_road_blocks();
  void _write_body(BisFileIO& out) const;
};
