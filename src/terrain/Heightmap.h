#pragma once
// A terrain's elevations as GIS tools and terrain editors exchange them: a grid of heights in metres
// with one cell size, read from and written to an ESRI ASCII grid, XYZ points or a 16-bit grey PNG,
// taken from a loaded terrain or made into an editable one.
//
//   BisDLL dll;
//   Heightmap hm(&dll);
//   int r = hm.hm_FromTerrain(*dll.dll_GetTessak());    // after wrp_Open
//   r = hm.hm_Write("island.asc", Heightmap::FORM_ASC);
//   r = hm.hm_Read("edited.asc");                        // ESRI grid or XYZ, told by the content
//   r = hm.hm_ToTerrain(*dll.dll_GetTessak());           // then wrp_Create(..., "8WVR")
//
// Rows run as the terrain stores them: row 0 is the southern edge (z = 0 in the world), columns run
// west to east, and the height at column c, row r stands at x = c * cell, z = r * cell. The files
// put the northernmost row first, as GIS tools expect.
#include <cstdint>
#include <string>
#include <vector>

#include "io/BisFileIO.h"
#include "terrain/GridErrors.h"

class BisDLL;
class Tessak;

class Heightmap {
 public:
  enum Form : int { FORM_NONE = -1, FORM_ASC = 0, FORM_XYZ = 1, FORM_PNG = 2 };
  // No terrain has more heights than this (16384 x 16384), nor more than this many along one side.
  static constexpr uint64_t kMaxCells = uint64_t(1) << 28;
  static constexpr uint32_t kMaxSide = 65536;
  // Cell sizes a terrain can sensibly have, in metres, and the widest world they may make.
  static constexpr double kMinCell = 0.01;
  static constexpr double kMaxCell = 10000;
  static constexpr double kMaxWorld = 1e7;
  // Elevations beyond this many metres either side of sea level are no real ground.
  static constexpr double kMaxElevation = 100000;
  // The one layer a terrain made from a grid starts with.
  static constexpr char const* kDefaultTexture = "data\\default.rvmat";

  explicit Heightmap(BisDLL* dll = nullptr);
  Heightmap(Heightmap const&) = delete;
  Heightmap& operator=(Heightmap const&) = delete;

  BisFileIO* hm_GetIO() { return &_io; }

  // The elevations of a loaded terrain and the size of its map cells.
  int hm_FromTerrain(Tessak const& terrain);
  // Reads an ESRI ASCII grid or XYZ points, told apart by their first word. Nothing is kept from a
  // file that fails.
  int hm_Read(char const* file);
  int hm_Read(void const* text, uint64_t size);
  // Writes the grid in one form; a file that fails is left partial for the caller to discard.
  int hm_Write(char const* file, int form) const;
  // Replaces the loaded terrain with an editable (8WVR) one of this grid: one map and layer cell
  // per height, `cell` metres wide (0: the grid's own), one default texture and no objects.
  int hm_ToTerrain(Tessak& terrain, double cell = 0) const;
  // The form an output name asks for by its extension (case ignored), FORM_NONE for others.
  static int FormOfName(char const* name);
  static char const* ErrorString(int code);

  // ---- the grid -------------------------------------------------------------
  uint32_t hm_Columns() const { return _cols; }
  uint32_t hm_Rows() const { return _rows; }
  double hm_CellSize() const { return _cell; }
  // Heights in metres, row by row from the south (row 0) to the north.
  std::vector<float> const& hm_Heights() const { return _heights; }
  float hm_Min() const { return _min; }
  float hm_Max() const { return _max; }
  // The text chunk keywords under which a PNG keeps its elevation range and cell size.
  static constexpr char const* kPngMinKey = "MinElevation";
  static constexpr char const* kPngMaxKey = "MaxElevation";
  static constexpr char const* kPngCellKey = "CellSize";

 private:
  BisFileIO mutable _io;
  uint32_t _cols = 0, _rows = 0;
  double _cell = 0;
  std::vector<float> _heights;
  float _min = 0, _max = 0;

  void _clear();
  double _check_cell(double cell, uint64_t across, char const* what) const;
  void _check_size(uint64_t cols, uint64_t rows, uint64_t bytes_left) const;
  void _check_heights();
  void _read_text(char const* text, char const* end);
  void _read_asc(char const* text, char const* end);
  void _read_xyz(char const* text, char const* end);
  void _write_asc(BisFileIO& out) const;
  void _write_xyz(BisFileIO& out) const;
  void _write_png(BisFileIO& out) const;
};
