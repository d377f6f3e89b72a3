#include <functional>

#include "core/Generic_Errors.h"
#include "io/BisFileIO.h"
#include "io/CompressTestUtil.h"
#include "io/CompressedStruct.h"

namespace {
using namespace compress_test;

Bytes sized(Bytes const& b) { return cat({le24(uint32_t(b.size())), b}); }
// Elements that compress but are not all alike.
Bytes elements(size_t count, uint32_t element_size) {
  Bytes b(count * element_size);
  for (size_t i = 0; i < b.size(); ++i) b[i] = uint8_t(i / 7 % 5);
  return b;
}

Bytes write_with(std::function<void(BisFileIO&)> const& fn) {
  // One file per test: ctest runs the tests of this suite side by side.
  std::string name = testing::TempDir() + "compressed_struct_" +
                     testing::UnitTest::GetInstance()->current_test_info()->name() + ".bin";
  BisFileIO out;
  EXPECT_EQ(out.io_CreateFile(name.c_str()), 1);
  fn(out);
  out.io_CloseOutput();
  return read_file(name);
}

struct ReadCase {
  char const* name;
  CompressType type;
  uLongPair dims;
  uint32_t element_size;
  uint64_t expanded_size;
  Bytes stored;
  Bytes expected;  // the array's bytes
  bool owned;
  uint8_t state;
};

std::vector<ReadCase> read_cases() {
  Bytes const e255 = elements(255, 4), e256 = elements(256, 4), e600 = elements(600, 4);
  Bytes const fill = {1, 2, 3, 4};
  Bytes filled;
  for (int i = 0; i < 300; ++i) filled.insert(filled.end(), fill.begin(), fill.end());
  Bytes const small = {9, 8, 7, 6, 5, 4};
  return {
      {"1020 bytes stay raw under LZO", CT_LZO, {255, 1}, 4, 0, e255, e255, false, 0},
      {"1024 bytes are expanded", CT_LZO, {16, 16}, 4, 0, packed(e256, CT_LZO), e256, true, 0},
      {"count from the file, LZSS", CT_LZSS, {0, 0}, 4, 0, cat({le32(600), packed(e600, CT_LZSS)}), e600, true, 0},
      {"no method is raw at any size", CT_TERRAIN, {600, 1}, 4, 0, e600, e600, false, 0},
      {"fill byte 1", CT_LZSS | CT_FILL_BYTE, {0, 0}, 4, 0, cat({le32(300), {1}, fill}), filled, true, CompressedStruct::CS_FILLED},
      {"fill byte 1 with no elements", CT_LZO | CT_FILL_BYTE, {0, 0}, 4, 0, cat({le32(0), {1}}), {}, false,
       CompressedStruct::CS_FILLED},
      {"fill byte 0 then raw", CT_LZO | CT_FILL_BYTE, {3, 1}, 2, 0, cat({{0}, small}), small, false, 0},
      {"fill byte ignored without LZO or LZSS", CT_RLE | CT_FILL_BYTE, {6, 1}, 1, 0, small, small, false, 0},
      {"flag byte 0", CT_LZSS | CT_FLAG_BYTE, {600, 1}, 4, 0, cat({{0}, e600}), e600, false, 0},
      {"flag byte without a method", CT_FLAG_BYTE, {3, 1}, 2, 0, cat({{0}, small}), small, false, 0},
      {"flag byte 2 compresses small arrays too", CT_LZO | CT_FLAG_BYTE, {0, 0}, 2, 0,
       cat({le32(3), {2}, packed(small, CT_LZO)}), small, true, CompressedStruct::CS_COMPRESSED},
      {"3-byte size, raw", 0x10010, {}, 1, 0, cat({le24(6), small}), small, false, 0},
      {"3-byte size, signed LZSS", 0x10014, {}, 1, 2400, sized(packed(e600, CT_LZSS_SIGNED)), e600, true, 0},
      {"3-byte size, run-length", 0x10018, {}, 1, 1200, sized(packed(filled, CT_RLE)), filled, true, 0},
      {"grid flag 0", CT_LZSS | CT_GRID, {4, 4}, 4, 0, cat({{0}, le32(77)}), {}, false, 0},
  };
}

TEST(CompressedStruct, ReadsEveryStoredFormAndWritesItBackUnchanged) {
  for (auto const& c : read_cases()) {
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
    if (!(c.type & CT_TRIBYTE_SIZE) && !(c.type & CT_GRID)) {
      EXPECT_EQ(array.cs_Count() * c.element_size, c.expected.size());
    }
    if (!c.expected.empty()) {
      EXPECT_EQ(Bytes(array.cs_Array(), array.cs_Array() + c.expected.size()), c.expected);
    }
    // Raw arrays are not copied out of the reader's buffer.
    if (!c.owned && !c.expected.empty()) {
      EXPECT_GE(array.cs_Array(), file.data());
    }

    CompressType write_type = c.type | (c.dims.x * c.dims.y == 0 ? CompressType(CT_WRITE_COUNT) : 0u);
    uint64_t count = c.type & CT_TRIBYTE_SIZE ? c.expected.size() / c.element_size : array.cs_Count();
    if (c.type & CT_TRIBYTE_SIZE && !(c.type & CT_METHOD_MASK)) count = array.cs_Count();
    EXPECT_EQ(write_with([&](BisFileIO& out) { array.WriteCompressed(out, write_type, count); }), c.stored);
  }
}

TEST(CompressedStruct, ModifiedArraysAreCodedAfresh) {
  struct Case {
    char const* name;
    CompressType type;
    Bytes data;
    uint32_t element_size;
    size_t stored_size;  // 0: smaller than the data
  };
  Bytes same(2000, 0x42), varied = elements(700, 4), tiny = {1, 2, 3};
  std::vector<Case> cases = {
      {"LZSS above the threshold", CT_LZSS | CT_WRITE_COUNT, varied, 4, 0},
      {"LZO below the threshold stays raw", CT_LZO | CT_WRITE_COUNT, tiny, 1, 4 + 3},
      {"equal elements become one", CT_LZSS | CT_FILL_BYTE | CT_WRITE_COUNT, same, 2, 4 + 1 + 2},
      {"flag byte 0 stays raw", CT_LZO | CT_FLAG_BYTE | CT_WRITE_COUNT, varied, 4, 4 + 1 + 2800},
      {"3-byte size with LZO", 0x10011, varied, 1, 0},
      {"3-byte size with run-length", 0x10018, same, 1, 0},
      {"no method", CT_WRITE_COUNT, varied, 4, 4 + 2800},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    uint64_t count = c.data.size() / c.element_size;
    CompressedStruct array(c.element_size);
    array.cs_CopyIn(c.data.data(), count);
    EXPECT_TRUE(array.cs_IsModified());
    Bytes stored = write_with([&](BisFileIO& out) { array.WriteCompressed(out, c.type, count); });
    if (c.stored_size) {
      EXPECT_EQ(stored.size(), c.stored_size);
    } else {
      EXPECT_LT(stored.size(), c.data.size());
    }
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
  // A stream that decodes to the same bytes by another road than our compressor takes.
  Bytes literal_only;
  uint32_t sum = 0;
  for (size_t i = 0; i < data.size(); i += 8) {
    literal_only.push_back(0xFF);
    for (size_t k = i; k < i + 8; ++k) {
      literal_only.push_back(data[k]);
      sum += data[k];
    }
  }
  Bytes file = cat({le32(600), literal_only, le32(sum)});
  struct Case {
    char const* name;
    CompressType type;
    bool modify;
    Bytes expected;
  };
  std::vector<Case> cases = {
      {"unchanged", CT_LZSS | CT_WRITE_COUNT, false, file},
      {"forced", CT_LZSS | CT_WRITE_COUNT | CT_FORCE_RECOMPRESS, false, cat({le32(600), packed(data, CT_LZSS)})},
      {"modified", CT_LZSS | CT_WRITE_COUNT, true, cat({le32(600), packed(data, CT_LZSS)})},
      {"another method", CT_LZO | CT_WRITE_COUNT, false, cat({le32(600), packed(data, CT_LZO)})},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    BisFileIO io;
    io.io_OpenPseudoFile(file.data(), file.size());
    CompressedStruct array(4);
    ASSERT_EQ(array.ReadCompressed(io, CT_LZSS), 1);
    if (c.modify) array.cs_CopyIn(data.data(), 600);
    EXPECT_EQ(write_with([&](BisFileIO& out) { array.WriteCompressed(out, c.type, 600); }), c.expected);
  }
}

TEST(CompressedStruct, GridFlagHandsTheGridToItsFormat) {
  Bytes file = {1, 0xAA, 0xBB};
  BisFileIO io;
  io.io_OpenPseudoFile(file.data(), file.size());
  CompressedStruct grid(2);
  uLongPair seen{};
  grid.cs_SetGridDecoder([&](BisFileIO& in, CompressedStruct& array, uLongPair dims, CompressType) {
    seen = dims;
    EXPECT_EQ(array.cs_Count(), 6u);
    array.cs_Array()[0] = uint8_t(in.io_ReadByte());
    array.cs_Array()[23] = uint8_t(in.io_ReadByte());  // room for twice the elements
  });
  ASSERT_EQ(grid.ReadCompressed(io, CT_LZSS | CT_GRID, {3, 2}), 1);
  EXPECT_EQ(seen.x, 3u);
  EXPECT_EQ(seen.y, 2u);
  EXPECT_EQ(grid.cs_Array()[23], 0xBB);
  EXPECT_EQ(write_with([&](BisFileIO& out) { grid.WriteCompressed(out, CT_LZSS | CT_GRID, 6); }), file);

  Bytes unknown = {2, 0, 0, 0, 0};
  io.io_OpenPseudoFile(unknown.data(), unknown.size());
  CompressedStruct other(2);
  EXPECT_EQ(other.ReadCompressed(io, CT_LZSS | CT_GRID, {3, 2}), 0);
}

int read_result(Bytes file, CompressType type, uLongPair dims, uint32_t element_size, std::string* message) {
  BisFileIO io;
  io.io_OpenPseudoFile(file.data(), file.size());
  io.io_SetErrCallBack(nullptr);
  CompressedStruct array(element_size);
  try {
    return array.ReadCompressed(io, type, dims);
  } catch (Generic_Errors e) {
    return 100 + int(e);
  } catch (char const* m) {
    *message = m;
    return -1;
  }
}

TEST(CompressedStruct, DamagedArraysFail) {
  struct Case {
    char const* name;
    Bytes file;
    CompressType type;
    uLongPair dims;
    int result;
    char const* message;
  };
  std::vector<Case> cases = {
      {"fill byte 2", cat({le32(4), {2}}), CT_LZO | CT_FILL_BYTE, {}, -1, "fill byte not zero or 1"},
      {"flag byte 1", cat({le32(4), {1}}), CT_LZO | CT_FLAG_BYTE, {}, 100 + GE_CODE_BUG, ""},
      {"negative count", le32(0x80000000u), CT_LZSS, {}, 100 + GE_INVALID_FILE, ""},
      {"raw array past the end", cat({le32(200), Bytes(500)}), CT_LZSS, {}, 100 + GE_EOF, ""},
      {"expansion the input cannot hold", cat({le32(0x7FFFFFFF), Bytes(8)}), CT_LZSS, {}, 100 + GE_EOF, ""},
      {"fill count the file cannot justify", cat({le32(0x7FFFFFFF), {1}, le32(0)}), CT_LZSS | CT_FILL_BYTE, {},
       100 + GE_NO_MEMORY, ""},
      {"broken LZSS", cat({le32(256), {0, 0, 0}, Bytes(200)}), CT_LZSS, {}, -1, "lzss compression error"},
      {"broken LZO", cat({le32(256), Bytes(200, 0)}), CT_LZO, {}, -1, "lzo compression error"},
      {"run-length too long", cat({le32(257), Bytes(200, 0xFF)}), CT_RLE, {}, 100 + GE_EOF, ""},
  };
  for (auto const& c : cases) {
    std::string message;
    EXPECT_EQ(read_result(c.file, c.type, c.dims, 4, &message), c.result) << c.name;
    EXPECT_EQ(message, c.message) << c.name;
  }
}

}  // namespace
