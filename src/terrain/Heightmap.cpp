#include "terrain/Heightmap.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

#include "core/BisDLL.h"
#include "core/GuardedCall.h"
#include "io/MappedFile.h"
#include "terrain/GridText.h"
#include "terrain/Tessak.h"
#include "texture/PngImage.h"

using namespace grid_text;
using namespace grid_tool;

namespace {
// Text goes out in blocks of about this size.
constexpr size_t kBlock = 1 << 20;

bool same_word(std::string_view a, char const* b) {
  size_t n = std::strlen(b);
  if (a.size() != n) return false;
  for (size_t i = 0; i < n; ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != b[i]) return false;
  return true;
}

bool starts_number(std::string_view word) {
  char c = word.empty() ? 0 : word[0];
  return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.';
}

bool starts_letter(std::string_view word) {
  char c = word.empty() ? 0 : word[0];
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

constexpr char const* kAscKeys[] = {"ncols", "nrows", "xllcorner", "xllcenter", "yllcorner", "yllcenter",
                                    "cellsize", "dx", "dy", "nodata_value"};
enum AscKey { NCOLS, NROWS, XLLCORNER, XLLCENTER, YLLCORNER, YLLCENTER, CELLSIZE, DX, DY, NODATA, KEY_COUNT };

int asc_key(std::string_view word) {
  for (int i = 0; i < KEY_COUNT; ++i)
    if (same_word(word, kAscKeys[i])) return i;
  return -1;
}

unsigned long long ull(uint64_t v) { return static_cast<unsigned long long>(v); }

// A coordinate in metres to ten significant digits: whole cells of any size print without the
// noise of binary fractions ("0.3", not "0.30000000000000004").
char* put_coordinate(char* out, double v) {
  return std::to_chars(out, out + 32, v, std::chars_format::general, 10).ptr;
}

// The cell size as the decimal a person typed, so that multiples of it print cleanly.
double decimal_cell(double cell) {
  std::string text = float_text(float(cell));
  double v = cell;
  std::from_chars(text.data(), text.data() + text.size(), v);
  return v;
}
}  // namespace

Heightmap::Heightmap(BisDLL* dll) : _io(dll) {}

char const* Heightmap::ErrorString(int code) {
  switch (code) {
    case GRID_UNKNOWN_FORM: return "Grid: neither an ESRI ASCII grid nor XYZ points";
    case GRID_BAD_HEADER: return "Grid: bad ESRI grid header";
    case GRID_ROW_LENGTH: return "Grid: rows of different lengths";
    case GRID_NOT_A_NUMBER: return "Grid: a value is not a number";
    case GRID_BAD_ELEVATION: return "Grid: elevation is not a number, no data or out of range";
    case GRID_BAD_SIZE: return "Grid: size out of range";
    case GRID_BAD_CELL: return "Grid: cell size out of range";
    case GRID_IRREGULAR: return "Grid: points do not form a regular grid";
    case GRID_NOT_SQUARE: return "Grid: cells are not square";
    case GRID_BAD_OBJECTS: return "Grid: bad object listing";
    case GRID_BAD_PICTURE: return "Map: picture size out of range";
    default: return Tessak::ErrorString(code);
  }
}

int Heightmap::FormOfName(char const* name) {
  if (!name) return FORM_NONE;
  std::string_view n(name);
  size_t dot = n.find_last_of('.');
  if (dot == std::string_view::npos || n.find_first_of("/\\", dot) != std::string_view::npos) return FORM_NONE;
  std::string_view ext = n.substr(dot + 1);
  if (same_word(ext, "asc")) return FORM_ASC;
  if (same_word(ext, "xyz")) return FORM_XYZ;
  if (same_word(ext, "png")) return FORM_PNG;
  return FORM_NONE;
}

void Heightmap::_clear() {
  _cols = _rows = 0;
  _cell = 0;
  _heights.clear();
  _heights.shrink_to_fit();
  _min = _max = 0;
}

// A terrain keeps its cell size as a float: the grid keeps it the same way, so that a size passes
// or fails alike whichever way it arrives. `across` cells of it may make no world wider than any.
double Heightmap::_check_cell(double cell, uint64_t across, char const* what) const {
  float stored = float(cell);
  if (!(stored >= float(kMinCell) && stored <= float(kMaxCell)))
    _io.io_throw(GRID_BAD_CELL, "%s %g m is out of range: cells are %g to %g m wide\r\n", what, cell, kMinCell,
                 kMaxCell);
  if (double(stored) * double(across) > kMaxWorld)
    _io.io_throw(GRID_BAD_CELL, "%llu cells of %g m make a terrain %g km across, more than any real one\r\n",
                 ull(across), cell, double(stored) * double(across) / 1000);
  return stored;
}

// Refused before anything is allocated: sizes no terrain has, and sizes the rest of the file could
// not hold even at one digit and one blank per height.
void Heightmap::_check_size(uint64_t cols, uint64_t rows, uint64_t bytes_left) const {
  if (!cols || !rows)
    _io.io_throw(GRID_BAD_SIZE, "a grid of %llu x %llu heights has none\r\n", ull(cols), ull(rows));
  if (cols > kMaxSide || rows > kMaxSide || cols * rows > kMaxCells)
    _io.io_throw(GRID_BAD_SIZE, "a grid of %llu x %llu heights is larger than any terrain (16384 x 16384)\r\n",
                 ull(cols), ull(rows));
  if (cols * rows > bytes_left / 2 + 1)
    _io.io_throw(GRID_BAD_SIZE, "%llu x %llu heights cannot fit in the %llu bytes that follow the header\r\n",
                 ull(cols), ull(rows), ull(bytes_left));
}

// Every height a number within reach of real ground; the range for the grey scale.
void Heightmap::_check_heights() {
  uint64_t bad = 0, first = 0;
  float lo = std::numeric_limits<float>::infinity(), hi = -lo;
  for (uint64_t i = 0; i < _heights.size(); ++i) {
    float h = _heights[i];
    if (!(std::fabs(h) <= kMaxElevation)) {
      if (!bad++) first = i;
      continue;
    }
    lo = std::min(lo, h);
    hi = std::max(hi, h);
  }
  if (bad) {
    float h = _heights[first];
    _io.io_throw(GRID_BAD_ELEVATION,
                 "%llu %s not a number or beyond %g km of sea level: the first, %s, at x %g m, "
                 "z %g m (column %llu, row %llu from the south)\r\n",
                 ull(bad), bad == 1 ? "elevation is" : "elevations are", kMaxElevation / 1000, float_text(h).c_str(),
                 double(first % _cols) * _cell, double(first / _cols) * _cell, ull(first % _cols), ull(first / _cols));
  }
  _min = lo;
  _max = hi;
}

// ===== terrains ==============================================================

int Heightmap::hm_FromTerrain(Tessak const& terrain) {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _clear();
    float const* heights = terrain.wrp_Elevations();
    uLongPair map = terrain.wrp_MapSize(), layer = terrain.wrp_LayerSize();
    if (terrain.wrp_Kind() == Tessak::KIND_NONE || !heights || !map.x || !map.y)
      _io.io_throw(GE_INVALID_FILE, "no terrain is loaded\r\n");
    // The header's grid size is the width of a layer cell; the map grid divides the same world.
    double grid = terrain.wrp_GridSize();
    double cx = grid * layer.x / map.x, cy = grid * layer.y / map.y;
    if (!(std::fabs(cx - cy) <= 1e-6 * std::max(std::fabs(cx), std::fabs(cy))))
      _io.io_throw(GRID_NOT_SQUARE, "the terrain's map cells are %g m by %g m; a grid holds square cells\r\n", cx, cy);
    double cell = _check_cell(cx, std::max(map.x, map.y), "the terrain's map cell");
    try {
      _cols = map.x;
      _rows = map.y;
      _cell = cell;
      _heights.assign(heights, heights + uint64_t(map.x) * map.y);
      _check_heights();
    } catch (...) {
      _clear();
      throw;
    }
    return 0;
  });
}

int Heightmap::hm_ToTerrain(Tessak& terrain, double cell) const {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!_cols || !_rows) _io.io_throw(GRID_BAD_SIZE, "no grid has been read\r\n");
    cell = _check_cell(cell == 0 ? _cell : cell, std::max(_cols, _rows), "the cell size");
    // The game pages its terrains in squares: sides other than a power of two need resampling there.
    auto power_of_two = [](uint32_t v) { return (v & (v - 1)) == 0; };
    if (!power_of_two(_cols) || !power_of_two(_rows))
      _io.io_callbackerr("***Warning*** a grid of %u x %u is not a power of two on each side, as the game's "
                         "terrains are (256, 512, 1024, ...)\r\n",
                         _cols, _rows);
    terrain.Close();
    // One layer cell per map cell: the editor retextures on any grid it likes from there.
    terrain.wrp_SetGrids({_cols, _rows}, {_cols, _rows}, float(cell));
    terrain.wrp_SetElevations(_heights.data());
    std::vector<uint16_t> layer(_heights.size(), 1);
    terrain.wrp_SetLayerIndex(layer.data());
    auto& textures = terrain.wrp_EditTextures();
    textures.assign(2, {});
    textures[1].names = {kDefaultTexture};
    return 0;
  });
}

// ===== reading ===============================================================

int Heightmap::hm_Read(char const* file) {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _clear();
    if (!file || !*file) throw "no filename";
    // Grids of a big island run to hundreds of megabytes of text: read them in place.
    MappedFile mapped;
    if (int e = mapped.mf_Open(file); e == 0) {
      auto const* text = reinterpret_cast<char const*>(mapped.mf_Data());
      _read_text(text, text + mapped.mf_Size());
      if (mapped.mf_Truncated()) {
        _clear();
        _io.io_throw(GE_EOF, "%s shrank while it was read\r\n", file);
      }
    } else if (e == EMFILE) {
      if (!_io.io_OpenFile(file)) _io.io_throw(GE_INVALID_FILE, "Cannot open %s\r\n", file);
      auto const* text = reinterpret_cast<char const*>(_io.io_GetRawData());
      _read_text(text, text + _io.io_GetFileSize());
      _io.io_CloseInput();
    } else {
      _io.io_throw(GE_INVALID_FILE, "Cannot open %s: %s\r\n", file, std::strerror(e));
    }
    return 0;
  });
}

int Heightmap::hm_Read(void const* text, uint64_t size) {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    _clear();
    auto const* t = static_cast<char const*>(text);
    _read_text(t, t + (t ? size : 0));
    return 0;
  });
}

void Heightmap::_read_text(char const* text, char const* end) {
  if (end - text >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) text += 3;  // a UTF-8 mark from a Windows editor
  try {
    Lines lines(text, end);
    std::string_view line, word;
    while (lines.next(line)) {
      Fields f(line, true);
      if (!f.next(word)) continue;
      if (asc_key(word) >= 0) return _read_asc(text, end);
      if (starts_number(word) || starts_letter(word)) return _read_xyz(text, end);
      break;
    }
    _io.io_throw(GRID_UNKNOWN_FORM, "%s\r\n",
                 text == end ? "the file is empty"
                             : "the first line is neither an ESRI grid header (ncols, nrows, ...) nor x y z numbers");
  } catch (...) {
    _clear();
    throw;
  }
}

// An ESRI ASCII grid: keyword lines, then nrows lines of ncols heights each, the northernmost row
// first. Each line is one row: a row that is longer or shorter than ncols is refused, not wrapped.
void Heightmap::_read_asc(char const* text, char const* end) {
  Lines lines(text, end);
  std::string_view line, word, value, extra;
  double keys[KEY_COUNT] = {};
  bool seen[KEY_COUNT] = {};
  bool data = false;
  while (lines.next(line)) {
    Fields f(line, false);
    if (!f.next(word)) continue;
    if (starts_number(word)) {
      data = true;
      break;
    }
    int k = asc_key(word);
    if (k < 0)
      _io.io_throw(GRID_BAD_HEADER, "line %llu: '%s' is not a keyword of an ESRI grid header\r\n", ull(lines.number),
                   shown(word).c_str());
    if (seen[k])
      _io.io_throw(GRID_BAD_HEADER, "line %llu: %s is given twice\r\n", ull(lines.number), kAscKeys[k]);
    if (!f.next(value))
      _io.io_throw(GRID_BAD_HEADER, "line %llu: %s has no value\r\n", ull(lines.number), kAscKeys[k]);
    if (f.next(extra))
      _io.io_throw(GRID_BAD_HEADER, "line %llu: %s has more than one value\r\n", ull(lines.number), kAscKeys[k]);
    if (!to_number(value, keys[k]) || !std::isfinite(keys[k]))
      _io.io_throw(GRID_NOT_A_NUMBER, "line %llu: the %s '%s' is not a number\r\n", ull(lines.number), kAscKeys[k],
                   shown(value).c_str());
    seen[k] = true;
  }
  for (int k : {NCOLS, NROWS})
    if (!seen[k]) _io.io_throw(GRID_BAD_HEADER, "the header has no %s\r\n", kAscKeys[k]);
  for (int k : {NCOLS, NROWS})
    if (!(keys[k] >= 1 && keys[k] <= double(kMaxCells) && keys[k] == std::floor(keys[k])))
      _io.io_throw(GRID_BAD_SIZE, "%s %g is not a count of heights (1 to %llu)\r\n", kAscKeys[k], keys[k],
                   ull(kMaxCells));
  if ((seen[XLLCORNER] && seen[XLLCENTER]) || (seen[YLLCORNER] && seen[YLLCENTER]))
    _io.io_throw(GRID_BAD_HEADER, "the header places its corner twice (both ...corner and ...center)\r\n");
  double cell = keys[CELLSIZE];
  if (!seen[CELLSIZE]) {
    if (!seen[DX] || !seen[DY]) _io.io_throw(GRID_BAD_HEADER, "the header has no cellsize\r\n");
    if (keys[DX] != keys[DY])
      _io.io_throw(GRID_NOT_SQUARE, "cells of %g m by %g m (dx, dy); a terrain's cells are square\r\n", keys[DX],
                   keys[DY]);
    cell = keys[DX];
  } else if (seen[DX] || seen[DY]) {
    _io.io_throw(GRID_BAD_HEADER, "the header gives both cellsize and dx/dy\r\n");
  }
  auto cols = uint64_t(keys[NCOLS]), rows = uint64_t(keys[NROWS]);
  _check_size(cols, rows, UINT64_MAX);
  cell = _check_cell(cell, std::max(cols, rows), "cellsize");
  if (!data) _io.io_throw(GRID_ROW_LENGTH, "the grid has no rows after its header; nrows is %llu\r\n", ull(rows));
  _check_size(cols, rows, uint64_t(end - line.data()));

  _cols = uint32_t(cols);
  _rows = uint32_t(rows);
  _cell = cell;
  _heights.resize(cols * rows);
  float const nodata = float(keys[NODATA]);
  uint64_t missing = 0, missing_line = 0, missing_column = 0;
  uint64_t row = 0;
  do {
    Fields f(line, false);
    if (!f.next(word)) continue;
    if (row == rows)
      _io.io_throw(GRID_ROW_LENGTH, "line %llu: more rows than nrows (%llu)\r\n", ull(lines.number), ull(rows));
    float* out = _heights.data() + (rows - 1 - row) * cols;
    uint64_t column = 0;
    do {
      if (column == cols) {
        while (f.next(word)) ++column;
        _io.io_throw(GRID_ROW_LENGTH, "line %llu (row %llu) has %llu heights where ncols is %llu\r\n",
                     ull(lines.number), ull(row + 1), ull(column + 1), ull(cols));
      }
      float h;
      if (!to_number(word, h))
        _io.io_throw(GRID_NOT_A_NUMBER, "line %llu, value %llu: '%s' is not a number\r\n", ull(lines.number),
                     ull(column + 1), shown(word).c_str());
      if (seen[NODATA] && h == nodata) {
        if (!missing++) missing_line = lines.number, missing_column = column + 1;
      } else if (!(std::fabs(h) <= kMaxElevation)) {
        _io.io_throw(GRID_BAD_ELEVATION,
                     "line %llu, value %llu: %s is no elevation (NaN, infinite or beyond %g km)\r\n", ull(lines.number),
                     ull(column + 1), shown(word).c_str(), kMaxElevation / 1000);
      }
      out[column++] = h;
    } while (f.next(word));
    if (column != cols)
      _io.io_throw(GRID_ROW_LENGTH, "line %llu (row %llu) has %llu heights where ncols is %llu\r\n", ull(lines.number),
                   ull(row + 1), ull(column), ull(cols));
    ++row;
  } while (lines.next(line));
  if (row != rows)
    _io.io_throw(GRID_ROW_LENGTH, "the grid ends after %llu rows; nrows is %llu\r\n", ull(row), ull(rows));
  if (missing)
    _io.io_throw(GRID_BAD_ELEVATION,
                 "%llu %s the no-data value %g (the first on line %llu, value %llu); a terrain needs an "
                 "elevation everywhere: fill them in first\r\n",
                 ull(missing), missing == 1 ? "cell holds" : "cells hold", double(nodata), ull(missing_line),
                 ull(missing_column));
  _check_heights();
}

// XYZ points: one "x y z" line per height, in any order, on a regular square grid. Two passes over
// the text: the first finds the extent and the spacing (the smallest step between consecutive
// points of one row or column) and validates every value, the second places each point in its cell,
// so that nothing is allocated before the grid is known to be sound.
void Heightmap::_read_xyz(char const* text, char const* end) {
  struct Point {
    double x, y;
    float z;
  };
  bool header_allowed = true;
  // The next point, or false at the end of the text.
  auto next_point = [&](Lines& lines, Point& p) {
    std::string_view line, field[4];
    while (lines.next(line)) {
      Fields f(line, true);
      int n = 0;
      while (n < 4 && f.next(field[n])) ++n;
      if (n == 0) continue;
      // Column names ("x y z", "easting,northing,height") may head the points.
      bool header = header_allowed && n == 3 && starts_letter(field[0]) && starts_letter(field[1]) &&
                    starts_letter(field[2]);
      header_allowed = false;
      if (header) continue;
      if (n != 3)
        _io.io_throw(GRID_ROW_LENGTH, "line %llu has %s values; each point is x y z\r\n", ull(lines.number),
                     n == 4 ? "more than 3" : n == 2 ? "2" : "1");
      char const* names[] = {"x", "y", "z"};
      for (int i = 0; i < 2; ++i) {
        double& v = i == 0 ? p.x : p.y;
        if (!to_number(field[i], v) || !std::isfinite(v) || std::fabs(v) > 1e12)
          _io.io_throw(GRID_NOT_A_NUMBER, "line %llu: the %s '%s' is not a position\r\n", ull(lines.number), names[i],
                       shown(field[i]).c_str());
      }
      if (!to_number(field[2], p.z))
        _io.io_throw(GRID_NOT_A_NUMBER, "line %llu: the z '%s' is not a number\r\n", ull(lines.number),
                     shown(field[2]).c_str());
      if (!(std::fabs(p.z) <= kMaxElevation))
        _io.io_throw(GRID_BAD_ELEVATION, "line %llu: %s is no elevation (NaN, infinite or beyond %g km)\r\n",
                     ull(lines.number), shown(field[2]).c_str(), kMaxElevation / 1000);
      return true;
    }
    return false;
  };

  Lines first(text, end);
  Point p{}, prev{};
  uint64_t count = 0;
  double x0 = 0, x1 = 0, y0 = 0, y1 = 0;
  double step_x = std::numeric_limits<double>::infinity(), step_y = step_x;
  while (next_point(first, p)) {
    if (count++) {
      if (p.y == prev.y && p.x != prev.x) step_x = std::min(step_x, std::fabs(p.x - prev.x));
      if (p.x == prev.x && p.y != prev.y) step_y = std::min(step_y, std::fabs(p.y - prev.y));
      x0 = std::min(x0, p.x), x1 = std::max(x1, p.x), y0 = std::min(y0, p.y), y1 = std::max(y1, p.y);
    } else {
      x0 = x1 = p.x, y0 = y1 = p.y;
    }
    prev = p;
  }
  if (count < 2) _io.io_throw(GRID_BAD_SIZE, "%s\r\n", count ? "one point makes no grid" : "the file holds no points");
  double step = std::isfinite(step_x) ? step_x : step_y;
  if (!std::isfinite(step))
    _io.io_throw(GRID_IRREGULAR,
                 "no two consecutive points share a row or a column, so the spacing cannot be told; list the points "
                 "row by row\r\n");
  // The spacing from whole spans, which rounding in the printed positions does not blur.
  double cells_x = (x1 - x0) / step, cells_y = (y1 - y0) / step;
  if (cells_x >= kMaxSide || cells_y >= kMaxSide)
    _io.io_throw(GRID_BAD_SIZE, "points %g m apart spread over %g x %g m: more heights than any terrain\r\n", step,
                 x1 - x0, y1 - y0);
  uint64_t cols = uint64_t(std::llround(cells_x)) + 1, rows = uint64_t(std::llround(cells_y)) + 1;
  double sx = cols > 1 ? (x1 - x0) / double(cols - 1) : step, sy = rows > 1 ? (y1 - y0) / double(rows - 1) : step;
  if (std::fabs(sx - sy) > 1e-4 * std::max(sx, sy))
    _io.io_throw(GRID_NOT_SQUARE,
                 "the points lie %g m apart east-west and %g m north-south; a terrain's cells are square\r\n", sx, sy);
  double cell = cols > 1 ? sx : sy;
  _check_size(cols, rows, UINT64_MAX);
  double stored = _check_cell(cell, std::max(cols, rows), "the points' spacing");
  if (cols * rows != count)
    _io.io_throw(GRID_IRREGULAR, "%llu points do not fill a grid of %llu x %llu points %g m apart\r\n", ull(count),
                 ull(cols), ull(rows), cell);

  _cols = uint32_t(cols);
  _rows = uint32_t(rows);
  _cell = stored;
  // A cell still NaN has no point yet: the elevations themselves are never NaN.
  _heights.assign(cols * rows, std::numeric_limits<float>::quiet_NaN());
  Lines second(text, end);
  header_allowed = true;
  double const tolerance = cell * 0.1;
  while (next_point(second, p)) {
    double fx = (p.x - x0) / cell, fy = (p.y - y0) / cell;
    double cx = std::round(fx), cy = std::round(fy);
    if (std::fabs(fx - cx) * cell > tolerance || std::fabs(fy - cy) * cell > tolerance)
      _io.io_throw(GRID_IRREGULAR, "line %llu: the point at %g, %g lies between the grid's points %g m apart\r\n",
                   ull(second.number), p.x, p.y, cell);
    float& h = _heights[uint64_t(cy) * cols + uint64_t(cx)];
    if (!std::isnan(h))
      _io.io_throw(GRID_IRREGULAR, "line %llu: a second point at %g, %g\r\n", ull(second.number), p.x, p.y);
    h = p.z;
  }
  _check_heights();
}

// ===== writing ===============================================================

int Heightmap::hm_Write(char const* file, int form) const {
  return bis_guarded_call<GridErrors>(_io, kDetectedError, GE_UNKNOWN_EXCEPTION, [&] {
    if (!_cols || !_rows) _io.io_throw(GRID_BAD_SIZE, "no grid to write\r\n");
    if (form != FORM_ASC && form != FORM_XYZ && form != FORM_PNG)
      _io.io_throw(GRID_UNKNOWN_FORM, "a grid is written as .asc, .xyz or .png\r\n");
    if (!file || !*file) throw "no filename";
    OutputCloser closer{_io};
    if (!_io.io_CreateFile(file)) throw GE_CANNOT_WRITE;
    if (form == FORM_ASC) _write_asc(_io);
    if (form == FORM_XYZ) _write_xyz(_io);
    if (form == FORM_PNG) _write_png(_io);
    if (!_io.io_CloseOutput()) _io.io_throw(GE_CANNOT_WRITE, "%s: %s\r\n", file, std::strerror(errno));
    std::string cell = float_text(float(_cell)), lo = float_text(_min), hi = float_text(_max);
    if (form == FORM_PNG)
      _io.io_callback("%u x %u heights of %s m cells: %s m (black) to %s m (white)\r\n", _cols, _rows, cell.c_str(),
                      lo.c_str(), hi.c_str());
    else
      _io.io_callback("%u x %u heights of %s m cells, %s m to %s m\r\n", _cols, _rows, cell.c_str(), lo.c_str(),
                      hi.c_str());
    return 0;
  });
}

// The corner is the terrain's origin: terrain editors read xllcorner and yllcorner as the place
// of the first height, and the terrain's own coordinates start at 0.
void Heightmap::_write_asc(BisFileIO& out) const {
  std::string text = "ncols " + std::to_string(_cols) + "\nnrows " + std::to_string(_rows) +
                     "\nxllcorner 0\nyllcorner 0\ncellsize " + float_text(float(_cell)) + "\n";
  text.reserve(kBlock + 64);
  char number[32];
  for (uint64_t r = _rows; r-- > 0;) {
    float const* row = _heights.data() + r * _cols;
    for (uint32_t c = 0; c < _cols; ++c) {
      char* e = put_float(number, row[c]);
      if (c) text += ' ';
      text.append(number, e);
      if (text.size() >= kBlock) out.io_WriteBlock(text.data(), text.size()), text.clear();
    }
    text += '\n';
  }
  out.io_WriteBlock(text.data(), text.size());
}

// The northernmost row first, west to east, as a GIS tool lists a raster.
void Heightmap::_write_xyz(BisFileIO& out) const {
  std::string text;
  text.reserve(kBlock + 128);
  double cell = decimal_cell(_cell);
  // Every row repeats the same eastings: their texts are made once.
  std::vector<char> eastings(size_t(_cols) * 24);
  std::vector<uint8_t> lengths(_cols);
  for (uint32_t c = 0; c < _cols; ++c)
    lengths[c] = uint8_t(put_coordinate(&eastings[c * 24], double(c) * cell) - &eastings[c * 24]);
  char line[128];
  for (uint64_t r = _rows; r-- > 0;) {
    float const* row = _heights.data() + r * _cols;
    char y[32];
    size_t ny = size_t(put_coordinate(y, double(r) * cell) - y);
    for (uint32_t c = 0; c < _cols; ++c) {
      char* e = line;
      std::memcpy(e, &eastings[c * 24], lengths[c]);
      e += lengths[c];
      *e++ = ' ';
      std::memcpy(e, y, ny);
      e += ny;
      *e++ = ' ';
      e = put_float(e, row[c]);
      *e++ = '\n';
      text.append(line, e);
      if (text.size() >= kBlock) out.io_WriteBlock(text.data(), text.size()), text.clear();
    }
  }
  out.io_WriteBlock(text.data(), text.size());
}

// Lowest black, highest white, the northernmost row on top; the two elevations and the cell size
// travel in the text chunks so that the grey levels can be turned back into metres.
void Heightmap::_write_png(BisFileIO& out) const {
  PngImage image;
  image.width = _cols;
  image.height = _rows;
  image.channels = 1;
  image.bit_depth = 16;
  image.pixels.resize(image.row_bytes() * _rows);
  double span = double(_max) - double(_min);
  double scale = span > 0 ? 65535.0 / span : 0;
  auto* grey = reinterpret_cast<uint16_t*>(image.pixels.data());
  for (uint64_t r = 0; r < _rows; ++r) {
    float const* row = _heights.data() + (_rows - 1 - r) * _cols;
    uint16_t* to = grey + r * _cols;
    for (uint32_t c = 0; c < _cols; ++c) to[c] = uint16_t(std::lround((double(row[c]) - _min) * scale));
  }
  std::string lo = float_text(_min), hi = float_text(_max), cell = float_text(float(_cell));
  image.texts = {{"Software", std::string("vendrak ") + BisDLL::dll_GetVersionStr()},
                 {"Description", "Elevations of a terrain: " + lo + " m black, " + hi + " m white, cells of " + cell +
                                     " m, north up"},
                 {kPngMinKey, lo},
                 {kPngMaxKey, hi},
                 {kPngCellKey, cell}};
  std::vector<uint8_t> bytes;
  std::string failure = image.encode(bytes, kPngEffort);
  if (!failure.empty()) _io.io_throw(GE_CANNOT_WRITE, "cannot make the PNG: %s\r\n", failure.c_str());
  out.io_WriteBlock(bytes.data(), bytes.size());
}
