#pragma once
#include <cstdint>

class BisFileIO;

// The packed grids of binarised terrains: a quad tree whose leaves are 4-byte blocks (2 x 2 cells of
// one byte, 2 x 1 cells of two bytes, or one cell of four bytes). A leaf above the lowest level
// repeats its block over the whole square it covers. The tree's depth follows from the grid size
// alone, so a file cannot make it deeper than the grid.
class WRP_QuadTree {
 public:
  WRP_QuadTree(uint32_t size_x, uint32_t size_y, uint32_t element_size);

  // Decodes at the reader's cursor into `cells` (size_x * size_y elements, row by row). False for a
  // root byte other than 0 or 1, or a node where only leaves may stand.
  bool qt_Decode(BisFileIO& io, uint8_t* cells) const;
  // Encodes `cells`, collapsing every square that repeats one block into a leaf.
  void qt_Encode(BisFileIO& io, uint8_t const* cells) const;
  int qt_Levels() const { return _levels; }

 private:
  uint32_t _sx, _sy, _elem;
  int _leafLogX, _leafLogY, _levels;

  bool decode_node(BisFileIO& io, uint8_t* cells, int level, uint64_t ox, uint64_t oy) const;
  void fill(uint8_t* cells, uint8_t const* block, int level, uint64_t ox, uint64_t oy) const;
  bool uniform(uint8_t const* cells, int level, uint64_t ox, uint64_t oy, uint8_t* block) const;
  void encode_node(BisFileIO& io, uint8_t const* cells, int level, uint64_t ox, uint64_t oy) const;
  uint32_t slot(uint64_t x, uint64_t y) const;
};
