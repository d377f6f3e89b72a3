#pragma once
#include "io/BisFileIO.h"

// Result codes of the elevation grids, object listings and map pictures made from terrains. They
// follow the terrain tool's own (10-32), so that one command that reads a terrain and writes a grid
// never gives one number two meanings; 0-9 are the generic ones.
enum GridErrors : int {
  GRID_UNKNOWN_FORM = 40,   // neither an ESRI ASCII grid nor XYZ points, or an unknown output form
  GRID_BAD_HEADER = 41,     // an ESRI header keyword missing, repeated, unknown or without a value
  GRID_ROW_LENGTH = 42,     // a row longer or shorter than ncols, or a row count other than nrows
  GRID_NOT_A_NUMBER = 43,   // a value that does not read as a number
  GRID_BAD_ELEVATION = 44,  // NaN, infinite, no-data or beyond any real elevation
  GRID_BAD_SIZE = 45,       // no cells, more than a terrain holds, or more than the file can hold
  GRID_BAD_CELL = 46,       // a cell size that is zero, negative, not a number or absurd
  GRID_IRREGULAR = 47,      // XYZ points off a regular grid, repeated or missing
  GRID_NOT_SQUARE = 48,     // cells of different width and height
  GRID_BAD_OBJECTS = 49,    // an object listing line that cannot be placed
  GRID_BAD_PICTURE = 50,    // a map picture size out of range
};

// What the grid, listing and map tools share.
namespace grid_tool {
// A thrown message text ends a call with this code, as for the terrain tool.
constexpr int kDetectedError = 3;

// Deflate effort for pictures: within a few per cent of libpng's default size, three times as fast
// on a 4096 x 4096 picture.
constexpr int kPngEffort = 3;

// Closes the tool's output however the writing ends.
struct OutputCloser {
  BisFileIO& io;
  ~OutputCloser() { io.io_CloseOutput(); }
};
}  // namespace grid_tool
