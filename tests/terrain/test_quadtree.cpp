#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "io/BisFileIO.h"
#include "io/BisFileIO_test_util.h"
#include "terrain/WRP_QuadTree.h"

namespace {
std::string encode(WRP_QuadTree const& tree, std::vector<uint8_t> const& cells, TempFolder const& tmp) {
  BisFileIO out;
  std::string name = tmp / "qt.bin";
  out.io_CreateFile(name.c_str());
  tree.qt_Encode(out, cells.data());
  out.io_CloseOutput();
  return get_file(name);
}

// Random patches, uniform regions and odd sizes, for each leaf shape: decoding what was encoded
// gives the cells back and every cell is covered.
TEST(WrpQuadTree, EncodeDecodeRoundTrip) {
  struct Case {
    uint32_t sx, sy, elem;
    bool patchy;
  } const cases[] = {
      {1, 1, 1, true},   {2, 2, 1, true},   {3, 5, 1, true},   {64, 64, 1, true}, {100, 37, 2, true},
      {64, 64, 2, false}, {33, 65, 4, true}, {256, 256, 4, false}, {1, 1000, 2, true}, {17, 17, 4, true},
  };
  TempFolder tmp;
  std::mt19937 rng(7);
  for (auto const& c : cases) {
    std::vector<uint8_t> cells(uint64_t(c.sx) * c.sy * c.elem);
    for (size_t i = 0; i < cells.size(); ++i)
      cells[i] = c.patchy ? uint8_t(rng() % 3 ? 0 : rng()) : uint8_t((i / c.elem) % 7 == 3 ? 9 : 0);
    WRP_QuadTree tree(c.sx, c.sy, c.elem);
    std::string packed = encode(tree, cells, tmp);
    BisFileIO in;
    in.io_OpenPseudoFile(packed.data(), packed.size());
    std::vector<uint8_t> back(cells.size(), 0xEE);
    ASSERT_TRUE(tree.qt_Decode(in, back.data())) << c.sx << "x" << c.sy << " elem " << c.elem;
    EXPECT_EQ(in.io_RemainingBytes(), 0u);
    EXPECT_TRUE(back == cells) << c.sx << "x" << c.sy << " elem " << c.elem;
  }
}

TEST(WrpQuadTree, RootLeafFillsAndBadTreesFail) {
  struct Case {
    uint32_t sx, sy, elem;
    std::string bytes;
    bool ok;
    uint8_t first, second;  // cells 0 and 1 after decoding
  } const cases[] = {
      {4, 4, 4, std::string("\0\x05\0\0\0", 5), true, 5, 5},
      {4, 4, 1, std::string("\0\x01\x02\x03\x04", 5), true, 1, 2},  // a 2x2 block repeated
      {4, 4, 1, std::string("\x02\0\0\0\0", 5), false, 0, 0},      // neither leaf nor node
      {2, 2, 1, std::string("\x01\x01\0", 3), false, 0, 0},         // a node where one block is all
      // 16 x 1 cells of 4 bytes: two levels; a node below the first level is deeper than the grid.
      {16, 1, 4, std::string("\x01\x01\0", 3) + std::string("\x01\0", 2), false, 0, 0},
  };
  for (auto const& c : cases) {
    WRP_QuadTree tree(c.sx, c.sy, c.elem);
    std::vector<uint8_t> cells(uint64_t(c.sx) * c.sy * c.elem);
    BisFileIO in;
    in.io_OpenPseudoFile(c.bytes.data(), c.bytes.size());
    bool ok = false;
    try {
      ok = tree.qt_Decode(in, cells.data());
    } catch (Generic_Errors) {
    }
    EXPECT_EQ(ok, c.ok) << c.sx << "x" << c.sy;
    if (ok) {
      EXPECT_EQ(cells[0], c.first);
      EXPECT_EQ(cells[c.elem], c.second);
    }
  }
}
}  // namespace
