#include "io/BisFileIO.h"
#include "io/CompressTestUtil.h"
#include "io/CompressedStruct.h"

namespace {
using namespace compress_test;

// Elements that compress but are not all alike.
Bytes elements(size_t count, uint32_t element_size) {
  Bytes b(count * element_size);
  for (size_t i = 0; i < b.size(); ++i) b[i] = uint8_t(i / 7 % 5);
  return b;
}

Bytes write_with(std::function<void(BisFileIO&)> const& fn) {
  TempFolder dir;
  BisFileIO out;
  EXPECT_EQ(out.io_CreateFile((dir / "out.bin").c_str()), 1);
  fn(out);
  out.io_CloseOutput();
  return read_file(dir / "out.bin");
}

TEST(CompressedStruct, ReadsEveryStoredFormAndWritesItBackUnchanged) {
  Bytes const e255 = elements(255, 4), e256 = elements(256, 4), e600 = elements(600, 4), small = {9, 8, 7, 6, 5, 4};
  Bytes const fill = {1, 2, 3, 4};
  Bytes filled;
  for (int i = 0; i < 300; ++i) filled.insert(filled.end(), fill.begin(), fill.end());
  auto sized = [](Bytes const& b) { return cat({le24(uint32_t(b.size())), b}); };
  uint8_t const FILLED = CompressedStruct::CS_FILLED, COMPRESSED = CompressedStruct::CS_COMPRESSED;
  // `expected` holds the array's bytes, `owned` when they were decoded into memory of their own.
  struct { char const* name; CompressType type; uLongPair dims; uint32_t element_size; uint64_t expanded_size;
           Bytes stored, expected; bool owned; uint8_t state; } const cases[] = {
      {"1020 bytes stay raw under LZO", CT_LZO, {255, 1}, 4, 0, e255, e255, false, 0},
      {"1024 bytes are expanded", CT_LZO, {16, 16}, 4, 0, packed(e256, CT_LZO), e256, true, 0},
      {"count from the file, LZSS", CT_LZSS, {0, 0}, 4, 0, cat({le32(600), packed(e600, CT_LZSS)}), e600, true, 0},
      {"no method is raw at any size", CT_TERRAIN, {600, 1}, 4, 0, e600, e600, false, 0},
      {"fill byte 1", CT_LZSS | CT_FILL_BYTE, {0, 0}, 4, 0, cat({le32(300), {1}, fill}), filled, true, FILLED},
      {"fill byte 1, no elements", CT_LZO | CT_FILL_BYTE, {0, 0}, 4, 0, cat({le32(0), {1}}), {}, false, FILLED},
      {"fill byte 0 then raw", CT_LZO | CT_FILL_BYTE, {3, 1}, 2, 0, cat({{0}, small}), small, false, 0},
      {"fill byte ignored without LZO or LZSS", CT_RLE | CT_FILL_BYTE, {6, 1}, 1, 0, small, small, false, 0},
      {"flag byte 0", CT_LZSS | CT_FLAG_BYTE, {600, 1}, 4, 0, cat({{0}, e600}), e600, false, 0},
      {"flag byte 2 compresses small arrays too", CT_LZO | CT_FLAG_BYTE, {0, 0}, 2, 0,
       cat({le32(3), {2}, packed(small, CT_LZO)}), small, true, COMPRESSED},
      {"3-byte size, raw", 0x10010, {}, 1, 0, cat({le24(6), small}), small, false, 0},
      {"3-byte size, signed LZSS", 0x10014, {}, 1, 2400, sized(packed(e600, CT_LZSS_SIGNED)), e600, true, 0},
      {"3-byte size, run-length", 0x10018, {}, 1, 1200, sized(packed(filled, CT_RLE)), filled, true, 0},
      {"grid flag 0", CT_LZSS | CT_GRID, {4, 4}, 4, 0, cat({{0}, le32(77)}), {}, false, 0},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes file = cat({c.stored, {0xEE}});  // a byte of the next record
    BisFileIO io;
    io.io_OpenPseudoFile(file.data(), file.size());
    CompressedStruct array(c.element_size);
    ASSERT_EQ(array.ReadCompressed(io, c.type, c.dims, c.expanded_size), 1);
    EXPECT_EQ(io.io_GetCurrentOffset(), c.stored.size());
    EXPECT_EQ(array.cs_StoredLength(), c.stored.size());
    EXPECT_EQ(array.cs_IsOwned(), c.owned);
    EXPECT_EQ(array.cs_State(), c.state);
    bool tribyte = c.type & CT_TRIBYTE_SIZE;
    EXPECT_TRUE(tribyte || (c.type & CT_GRID) || array.cs_Count() * c.element_size == c.expected.size());
    EXPECT_TRUE(c.expected.empty() || std::equal(c.expected.begin(), c.expected.end(), array.cs_Array()));
    EXPECT_TRUE(c.owned || c.expected.empty() || array.cs_Array() >= file.data());  // raw arrays are not copied

    CompressType write_type = c.type | (c.dims.x * c.dims.y == 0 ? CompressType(CT_WRITE_COUNT) : 0u);
    uint64_t count = tribyte && (c.type & CT_METHOD_MASK) ? c.expected.size() / c.element_size : array.cs_Count();
    EXPECT_EQ(write_with([&](BisFileIO& out) { array.WriteCompressed(out, write_type, count); }), c.stored);
  }
}

TEST(CompressedStruct, ModifiedArraysAreCodedAfresh) {
  Bytes same(2000, 0x42), varied = elements(700, 4), tiny = {1, 2, 3};
  // A stored_size of 0: smaller than the data.
  struct { char const* name; CompressType type; Bytes data; uint32_t element_size; size_t stored_size; } cases[] = {
      {"LZSS above the threshold", CT_LZSS | CT_WRITE_COUNT, varied, 4, 0},
      {"LZO below the threshold stays raw", CT_LZO | CT_WRITE_COUNT, tiny, 1, 4 + 3},
      {"equal elements become one", CT_LZSS | CT_FILL_BYTE | CT_WRITE_COUNT, same, 2, 4 + 1 + 2},
      {"flag byte 0 stays raw", CT_LZO | CT_FLAG_BYTE | CT_WRITE_COUNT, varied, 4, 4 + 1 + 2800},
      // Found by fuzzing: without a method bit the writer left out the flag byte the reader expects.
      {"flag byte without a method", CT_FLAG_BYTE | CT_WRITE_COUNT, varied, 4, 4 + 1 + 2800},
      {"3-byte size with LZO", 0x10011, varied, 1, 0},
      {"3-byte size with run-length", 0x10018, same, 1, 0},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    uint64_t count = c.data.size() / c.element_size;
    CompressedStruct array(c.element_size);
    array.cs_CopyIn(c.data.data(), count);
    EXPECT_TRUE(array.cs_IsModified());
    Bytes stored = write_with([&](BisFileIO& out) { array.WriteCompressed(out, c.type, count); });
    EXPECT_TRUE(c.stored_size ? stored.size() == c.stored_size : stored.size() < c.data.size()) << stored.size();
    BisFileIO io;
    io.io_OpenPseudoFile(stored.data(), stored.size());
    CompressedStruct back(c.element_size);
    ASSERT_EQ(back.ReadCompressed(io, c.type, {}, c.data.size()), 1);
    EXPECT_TRUE(io.io_eof());
    EXPECT_EQ(Bytes(back.cs_Array(), back.cs_Array() + c.data.size()), c.data);
  }
}

TEST(CompressedStruct, StoredFormIsReusedOnlyWhenItStillFits) {
  Bytes data = elements(600, 4);
  // A stream that decodes to the same bytes by another road than our compressor takes: all literals.
  Bytes file = le32(600);
  uint32_t sum = 0;
  for (size_t i = 0; i < data.size(); ++i) {
    if (i % 8 == 0) file.push_back(0xFF);
    file.push_back(data[i]);
    sum += data[i];
  }
  file = cat({file, le32(sum)});
  Bytes const lzss = cat({le32(600), packed(data, CT_LZSS)});
  struct { char const* name; CompressType type; bool modify; Bytes expected; } const cases[] = {
      {"unchanged", CT_LZSS | CT_WRITE_COUNT, false, file},
      {"forced", CT_LZSS | CT_WRITE_COUNT | CT_FORCE_RECOMPRESS, false, lzss},
      {"modified", CT_LZSS | CT_WRITE_COUNT, true, lzss},
      {"another method", CT_LZO | CT_WRITE_COUNT, false, cat({le32(600), packed(data, CT_LZO)})},
  };
  for (auto const& c : cases) {
    BisFileIO io;
    io.io_OpenPseudoFile(file.data(), file.size());
    CompressedStruct array(4);
    ASSERT_EQ(array.ReadCompressed(io, CT_LZSS), 1);
    if (c.modify) array.cs_CopyIn(data.data(), 600);
    EXPECT_EQ(write_with([&](BisFileIO& out) { array.WriteCompressed(out, c.type, 600); }), c.expected) << c.name;
  }
}

TEST(CompressedStruct, GridFlagHandsTheGridToItsFormat) {
  Bytes file = {1, 0xAA, 0xBB, /* an unknown grid flag */ 2, 0, 0, 0, 0};
  BisFileIO io;
  io.io_OpenPseudoFile(file.data(), file.size());
  CompressedStruct grid(2);
  grid.cs_SetGridDecoder([&](BisFileIO& in, CompressedStruct& array, uLongPair dims, CompressType) {
    EXPECT_TRUE(dims.x == 3 && dims.y == 2 && array.cs_Count() == 6);
    array.cs_Array()[0] = uint8_t(in.io_ReadByte());
    array.cs_Array()[23] = uint8_t(in.io_ReadByte());  // room for twice the elements
  });
  ASSERT_EQ(grid.ReadCompressed(io, CT_LZSS | CT_GRID, {3, 2}), 1);
  EXPECT_EQ(grid.cs_Array()[23], 0xBB);
  Bytes const record(&file[0], &file[3]);
  EXPECT_EQ(write_with([&](BisFileIO& out) { grid.WriteCompressed(out, CT_LZSS | CT_GRID, 6); }), record);
  EXPECT_EQ(CompressedStruct(2).ReadCompressed(io, CT_LZSS | CT_GRID, {3, 2}), 0);
}

TEST(CompressedStruct, DamagedArraysFail) {
  // result: a Generic_Errors code thrown, or -1 with the message thrown.
  struct { char const* name; Bytes file; CompressType type; int result; char const* message; } cases[] = {
      {"fill byte 2", cat({le32(4), {2}}), CT_LZO | CT_FILL_BYTE, -1, "fill byte not zero or 1"},
      {"flag byte 1", cat({le32(4), {1}}), CT_LZO | CT_FLAG_BYTE, GE_CODE_BUG, ""},
      {"negative count", le32(0x80000000u), CT_LZSS, GE_INVALID_FILE, ""},
      {"raw array past the end", cat({le32(200), Bytes(500)}), CT_LZSS, GE_EOF, ""},
      {"expansion the input cannot hold", cat({le32(0x7FFFFFFF), Bytes(8)}), CT_LZSS, GE_EOF, ""},
      {"fill count not justified", cat({le32(0x7FFFFFFF), {1}, le32(0)}), CT_LZSS | CT_FILL_BYTE, GE_NO_MEMORY, ""},
      {"broken LZSS", cat({le32(256), {0, 0, 0}, Bytes(200)}), CT_LZSS, -1, "lzss compression error"},
      {"broken LZO", cat({le32(256), Bytes(200, 0)}), CT_LZO, -1, "lzo compression error"},
      {"run-length too long", cat({le32(257), Bytes(200, 0xFF)}), CT_RLE, GE_EOF, ""},
  };
  for (auto const& c : cases) {
    BisFileIO io;
    io.io_OpenPseudoFile(c.file.data(), c.file.size());
    io.io_SetErrCallBack(nullptr);
    CompressedStruct array(4);
    std::string message;
    int result = 100;
    try {
      result += array.ReadCompressed(io, c.type, {});
    } catch (Generic_Errors e) {
      result = e;
    } catch (char const* m) {
      result = -1, message = m;
    }
    EXPECT_EQ(result, c.result) << c.name;
    EXPECT_EQ(message, c.message) << c.name;
  }
}

}  // namespace
