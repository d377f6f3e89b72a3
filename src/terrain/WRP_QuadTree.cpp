#include "terrain/WRP_QuadTree.h"

#include <cstring>

#include "io/BisFileIO.h"

namespace {
int ceil_log2(uint32_t v) {
  int n = 0;
  while ((uint64_t(1) << n) < v) ++n;
  return n;
}
int ceil_half(int v) { return v <= 0 ? 0 : (v + 1) / 2; }
}  // namespace

WRP_QuadTree::WRP_QuadTree(uint32_t size_x, uint32_t size_y, uint32_t element_size)
    : _sx(size_x), _sy(size_y), _elem(element_size) {
  _leafLogX = element_size == 4 ? 0 : 1;
  _leafLogY = element_size == 1 ? 1 : 0;
  int lx = ceil_half(ceil_log2(size_x) - _leafLogX), ly = ceil_half(ceil_log2(size_y) - _leafLogY);
  _levels = lx > ly ? lx : ly;
}

// Which element of a leaf block a cell takes.
uint32_t WRP_QuadTree::slot(uint64_t x, uint64_t y) const {
  if (_elem == 1) return uint32_t((y & 1) * 2 + (x & 1));
  if (_elem == 2) return uint32_t(x & 1);
  return 0;
}

void WRP_QuadTree::fill(uint8_t* cells, uint8_t const* block, int level, uint64_t ox, uint64_t oy) const {
  uint64_t w = uint64_t(1) << (2 * level + _leafLogX), h = uint64_t(1) << (2 * level + _leafLogY);
  uint64_t x1 = ox + w < _sx ? ox + w : _sx, y1 = oy + h < _sy ? oy + h : _sy;
  for (uint64_t y = oy; y < y1; ++y) {
    uint8_t* row = cells + (y * _sx) * _elem;
    if (_elem == 4) {
      for (uint64_t x = ox; x < x1; ++x) std::memcpy(row + x * 4, block, 4);
    } else {
      for (uint64_t x = ox; x < x1; ++x) std::memcpy(row + x * _elem, block + slot(x, y) * _elem, _elem);
    }
  }
}

bool WRP_QuadTree::decode_node(BisFileIO& io, uint8_t* cells, int level, uint64_t ox, uint64_t oy) const {
  uint16_t mask = io.io_ReadUshort();
  int child = level - 1;
  uint64_t w = uint64_t(1) << (2 * child + _leafLogX), h = uint64_t(1) << (2 * child + _leafLogY);
  for (int i = 0; i < 16; ++i) {
    uint64_t cx = ox + (i & 3) * w, cy = oy + (i >> 2) * h;
    if (mask & (1u << i)) {
      if (child == 0) return false;  // deeper than the grid
      if (!decode_node(io, cells, child, cx, cy)) return false;
    } else {
      uint8_t const* block = io.io_GetAddressAndUpdate(4);
      if (cx < _sx && cy < _sy) fill(cells, block, child, cx, cy);
    }
  }
  return true;
}

bool WRP_QuadTree::qt_Decode(BisFileIO& io, uint8_t* cells) const {
  int root = io.io_ReadByte();
  if (root == 0) {
    fill(cells, io.io_GetAddressAndUpdate(4), _levels, 0, 0);
    return true;
  }
  if (root != 1 || _levels == 0) return false;
  return decode_node(io, cells, _levels, 0, 0);
}

// True when every cell of the square repeats one block; `block` receives it (cells beyond the grid
// take zeros).
bool WRP_QuadTree::uniform(uint8_t const* cells, int level, uint64_t ox, uint64_t oy, uint8_t* block) const {
  std::memset(block, 0, 4);
  uint64_t bw = uint64_t(1) << _leafLogX, bh = uint64_t(1) << _leafLogY;
  for (uint64_t y = oy; y < oy + bh && y < _sy; ++y)
    for (uint64_t x = ox; x < ox + bw && x < _sx; ++x)
      std::memcpy(block + slot(x, y) * _elem, cells + (y * _sx + x) * _elem, _elem);
  uint64_t w = uint64_t(1) << (2 * level + _leafLogX), h = uint64_t(1) << (2 * level + _leafLogY);
  uint64_t x1 = ox + w < _sx ? ox + w : _sx, y1 = oy + h < _sy ? oy + h : _sy;
  for (uint64_t y = oy; y < y1; ++y)
    for (uint64_t x = ox; x < x1; ++x)
      if (std::memcmp(cells + (y * _sx + x) * _elem, block + slot(x, y) * _elem, _elem) != 0) return false;
  return true;
}

void WRP_QuadTree::encode_node(BisFileIO& io, uint8_t const* cells, int level, uint64_t ox, uint64_t oy) const {
  int child = level - 1;
  uint64_t w = uint64_t(1) << (2 * child + _leafLogX), h = uint64_t(1) << (2 * child + _leafLogY);
  uint8_t blocks[16][4];
  uint16_t mask = 0;
  for (int i = 0; i < 16; ++i) {
    uint64_t cx = ox + (i & 3) * w, cy = oy + (i >> 2) * h;
    bool leaf = cx >= _sx || cy >= _sy || uniform(cells, child, cx, cy, blocks[i]);
    if (cx >= _sx || cy >= _sy) std::memset(blocks[i], 0, 4);
    if (!leaf) mask = uint16_t(mask | (1u << i));
  }
  io.io_WriteUshort(mask);
  for (int i = 0; i < 16; ++i) {
    if (mask & (1u << i))
      encode_node(io, cells, child, ox + (i & 3) * w, oy + (i >> 2) * h);
    else
      io.io_WriteBlock(blocks[i], 4);
  }
}

void WRP_QuadTree::qt_Encode(BisFileIO& io, uint8_t const* cells) const {
  uint8_t block[4];
  if (uniform(cells, _levels, 0, 0, block)) {
    io.io_WriteByte(0);
    io.io_WriteBlock(block, 4);
    return;
  }
  io.io_WriteByte(1);
  encode_node(io, cells, _levels, 0, 0);
}
