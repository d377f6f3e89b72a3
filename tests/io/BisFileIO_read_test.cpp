#include <cfloat>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>

#include "io/BisFileIO.h"
#include "io/BisFunion.h"
#include "io/BisFileIO_test_util.h"

namespace {

// The same bytes, held three ways: a caller's buffer, a file in memory, a file streamed (huge).
enum class Mode { Pseudo, Memory, Huge };

class Source {
 public:
  Source(Mode mode, std::string const& bytes) : _bytes(bytes) {
    if (mode == Mode::Pseudo) {
      io.io_OpenPseudoFile(_bytes.data(), _bytes.size());
      return;
    }
    put_file(_dir / "in.bin", bytes);
    EXPECT_NE(io.io_OpenFile((_dir / "in.bin").c_str(), nullptr, mode == Mode::Huge ? 2 : 0), 0);
    EXPECT_EQ(io.io_IsHuge(), mode == Mode::Huge);
  }
  BisFileIO io;

 private:
  TempFolder _dir;
  std::string _bytes;
};

class Reads : public testing::TestWithParam<Mode> {};

std::string const kBytes("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C", 12);

TEST_P(Reads, EveryWidthReadsUpToTheEndAndNotOneByteFurther) {
  struct Case {
    char const* what;
    uint64_t width;
    std::function<uint64_t(BisFileIO&)> read;
    uint64_t value_at_8;  // what the read gives when started at offset 8 (when it fits)
  } cases[] = {
      {"byte", 1, [](BisFileIO& io) { return uint64_t(io.io_ReadByte()); }, 0x09},
      {"short", 2, [](BisFileIO& io) { return uint64_t(uint16_t(io.io_ReadShort())); }, 0x0A09},
      {"tribyte", 3, [](BisFileIO& io) { return uint64_t(io.io_ReadTriByte()); }, 0x0B0A09},
      {"long", 4, [](BisFileIO& io) { return uint64_t(uint32_t(io.io_ReadLong())); }, 0x0C0B0A09},
      {"ulong pair", 8, [](BisFileIO& io) { auto p = io.io_ReadUlongPair(); return uint64_t(p.x) | uint64_t(p.y) << 32; }, 0},
      {"longlong", 8, [](BisFileIO& io) { return uint64_t(io.io_ReadLongLong()); }, 0},
      {"double", 8, [](BisFileIO& io) { double d = io.io_ReadDouble(); uint64_t u; std::memcpy(&u, &d, 8); return u; }, 0},
      {"mime", 4, [](BisFileIO& io) { return uint64_t(std::strlen(io.io_ReadMime())); }, 4},
      {"block", 3, [](BisFileIO& io) { char b[3]; io.io_ReadBlock(b, 1, 3); return uint64_t(uint8_t(b[2])); }, 0x0B},
      {"triplet", 12, [](BisFileIO& io) { io.io_ReadXYZTriplet(1); return uint64_t(0); }, 0},
      {"address", 5, [](BisFileIO& io) { return uint64_t(io.io_GetAddressAndUpdate(5)[4]); }, 0},
  };
  for (auto const& c : cases) {
    Source src(GetParam(), kBytes);
    BisFileIO& io = src.io;
    uint64_t start = 12 - c.width;
    io.io_MoveTo(start);
    EXPECT_NO_THROW(c.read(io)) << c.what;
    EXPECT_TRUE(io.io_eof()) << c.what;
    io.io_MoveTo(start + 1);
    EXPECT_THROW(c.read(io), Generic_Errors) << c.what;
    EXPECT_EQ(io.io_GetCurrentOffset(), start + 1) << c.what << ": a failed read leaves the cursor";
    if (c.value_at_8 && c.width <= 4) {
      io.io_MoveTo(8);
      EXPECT_EQ(c.read(io), c.value_at_8) << c.what;
    }
  }
}

TEST_P(Reads, LyingSizesAndCursorMovesThrowOne) {
  Source src(GetParam(), kBytes);
  BisFileIO& io = src.io;
  struct Case {
    char const* what;
    std::function<void()> op;
  } cases[] = {
      {"block count overflow", [&] { char b[4]; io.io_ReadBlock(b, uint64_t(1) << 62, 8); }},
      {"block too big", [&] { char b[16]; io.io_ReadBlock(b, 13); }},
      {"triplet count overflow", [&] { io.io_ReadXYZTriplet(UINT64_MAX / 6); }},
      {"address beyond", [&] { io.io_GetAddressAndUpdate(13); }},
      {"offset before start", [&] { io.io_AddOffset(-1); }},
      {"most negative offset", [&] { io.io_AddOffset(INT64_MIN); }},
      {"offset beyond end", [&] { io.io_AddOffset(13); }},
      {"huge offset", [&] { io.io_AddOffset(INT64_MAX); }},
      {"move beyond end", [&] { io.io_MoveTo(13); }},
      {"require", [&] { io.io_Require(13); }},
  };
  for (auto const& c : cases) {
    try {
      c.op();
      ADD_FAILURE() << c.what << " did not throw";
    } catch (Generic_Errors e) {
      EXPECT_EQ(e, GE_EOF) << c.what;
    }
    EXPECT_EQ(io.io_GetCurrentOffset(), 0u) << c.what;
  }
  io.io_AddOffset(12);
  EXPECT_TRUE(io.io_eof());
  io.io_AddOffset(-12);
  EXPECT_EQ(io.io_RemainingBytes(), 12u);
}

TEST_P(Reads, TextsAndPointers) {
  std::string bytes("ab\0\0cd", 6);
  Source src(GetParam(), bytes);
  BisFileIO& io = src.io;
  EXPECT_STREQ(io.io_ReadAsciiz(), "ab");
  EXPECT_STREQ(io.io_ReadAsciiz(), "");
  EXPECT_EQ(io.io_GetCurrentOffset(), 4u);
  EXPECT_THROW(io.io_ReadAsciiz(), Generic_Errors);  // "cd" has no terminator inside the input
  EXPECT_EQ(io.io_GetCurrentOffset(), 4u);
  std::string s;
  io.io_MoveTo(0);
  io.io_ReadAsciizHuge(s);
  EXPECT_EQ(s, "ab");
  io.io_MoveTo(4);
  EXPECT_THROW(io.io_ReadAsciizHuge(s), Generic_Errors);

  io.io_MoveTo(2);
  char* tag = io.io_ReadMime(nullptr);
  EXPECT_EQ(std::string(tag, 5), std::string("\0\0cd\0", 5));  // always terminated after 4
}

TEST_P(Reads, TripletsComeOutWhole) {
  float f[4] = {1.5f, -2.0f, 3.25f, 9.0f};
  std::string bytes("\x07", 1);  // one byte first: the triplet sits unaligned
  bytes.append(reinterpret_cast<char const*>(f), sizeof f);
  Source src(GetParam(), bytes);
  src.io.io_ReadByte();
  XYZTriplet t;
  std::memcpy(&t, src.io.io_ReadXYZTriplet(1), sizeof t);
  EXPECT_EQ(t.x, 1.5f);
  EXPECT_EQ(t.y, -2.0f);
  EXPECT_EQ(t.z, 3.25f);
  EXPECT_EQ(src.io.io_RemainingBytes(), 4u);
}

INSTANTIATE_TEST_SUITE_P(AllInputs, Reads, testing::Values(Mode::Pseudo, Mode::Memory, Mode::Huge),
                         [](auto const& info) {
                           return std::string(info.param == Mode::Pseudo ? "Pseudo"
                                              : info.param == Mode::Memory ? "Memory" : "Huge");
                         });

TEST(BisFunion, FloatValidity) {
  struct Case {
    uint32_t bits;
    int faulty;
  } cases[] = {
      {0x00000000, 0},   // 0.0
      {0x80000000, 0},   // -0.0
      {0x3F800000, 0},   // 1.0
      {0x7F7FFFFF, 0},   // largest float
      {0x01000000, 0},   // 2^-125: bit 24 set
      {0x81000000, 0},
      {0x006CE3EE, -1},  // 1e-38
      {0x00800000, -1},  // smallest normal: the test looks at seven exponent bits only
      {0x00000001, -1},  // denormal
      {0x80800000, -1},
      {0x7FC00000, 1},   // quiet NaN
      {0x7F800001, 1},   // signalling NaN
      {0xFFC00000, 1},
      {0x7F800000, 2},   // +inf
      {0xFF800000, 2},   // -inf
  };
  for (auto const& c : cases) {
    BisFunion u;
    u.u = c.bits;
    EXPECT_EQ(u.IsFaulty(), c.faulty) << std::hex << c.bits;

    BisFileIO io;
    io.io_SetErrCallBack(capture_err);
    Captured::clear();
    io.io_OpenPseudoFile(&c.bits, 4);
    float v = 0;
    if (c.faulty) {
      EXPECT_THROW(io.io_read(&v, "x"), Generic_Errors) << std::hex << c.bits;
      EXPECT_EQ(Captured::join(Captured::errs()), "x is not a float\r\n");
    } else {
      io.io_read(&v, "x");
      EXPECT_TRUE(Captured::errs().empty());
    }
    io.io_MoveTo(0);
    EXPECT_NO_THROW(io.io_read(&v, nullptr));  // no name, no test
  }
}

TEST(BisFileIO, ValidatedCompoundsTestEveryFloat) {
  float f[6] = {1, 2, 3, 4, 5, std::nanf("")};
  BisFileIO io;
  io.io_SetErrCallBack(capture_err);
  io.io_OpenPseudoFile(f, sizeof f);
  trpMinMax box;
  Captured::clear();
  EXPECT_THROW(io.io_read(&box, "bbox"), Generic_Errors);
  EXPECT_EQ(Captured::join(Captured::errs()), "bbox is not a float\r\n");
  io.io_MoveTo(0);
  Matrix3P m;
  EXPECT_THROW(io.io_read(&m, "orient"), Generic_Errors);  // nine floats, only six there
}

TEST(BisFileIO, BoolReads) {
  struct Case {
    uint8_t byte;
    char const* name;
    int result;  // 0 false, 1 true, -1 throws
  } cases[] = {{0, "b", 0}, {1, "b", 1}, {2, nullptr, 1}, {255, nullptr, 1}, {2, "flag", -1}};
  for (auto const& c : cases) {
    BisFileIO io;
    io.io_SetErrCallBack(capture_err);
    Captured::clear();
    io.io_OpenPseudoFile(&c.byte, 1);
    bool v = false;
    if (c.result < 0) {
      EXPECT_THROW(io.io_read(&v, c.name), Generic_Errors);
      EXPECT_EQ(Captured::join(Captured::errs()), std::string(c.name) + " is not a bool\r\n");
    } else {
      io.io_read(&v, c.name);
      EXPECT_EQ(v, c.result == 1) << int(c.byte);
    }
  }
}

TEST(BisFileIO, RaPSignature) {
  struct Case {
    char const* bytes;
    int result;
  } cases[] = {{"\0raP", 0}, {"\x02raP", 2}, {"\0rap", -1}, {"raP\0", -1}};
  for (auto const& c : cases) EXPECT_EQ(BisFileIO::io_BufIsRaPified(c.bytes), c.result);
  EXPECT_EQ(BisFileIO::io_BufIsRaPified(nullptr), -1);
  TempFolder dir;
  put_file(dir / "config.bin", std::string("\0raP\x01", 5));
  put_file(dir / "short", "r");
  BisFileIO io;
  EXPECT_EQ(io.io_FileIsRaPified((dir / "config.bin").c_str()), 0);
  EXPECT_EQ(io.io_FileIsRaPified((dir / "short").c_str()), -1);
  EXPECT_EQ(io.io_FileIsRaPified((dir / "missing").c_str()), -1);
}

// ---- opening --------------------------------------------------------------------

TEST(BisFileIO, ZeroLengthFile) {
  TempFolder dir;
  put_file(dir / "empty", "");
  BisFileIO io;
  EXPECT_NE(io.io_OpenFile((dir / "empty").c_str()), 0);
  EXPECT_TRUE(io.io_eof());
  ASSERT_NE(io.io_GetRawData(), nullptr);
  EXPECT_EQ(std::memcmp(io.io_GetRawData(), "\0\0\0\0", 4), 0);
  try {
    io.io_ReadByte();
    ADD_FAILURE();
  } catch (Generic_Errors e) {
    EXPECT_EQ(e, GE_EOF);
  }
}

TEST(BisFileIO, OpenFileOutcomes) {
  TempFolder dir;
  put_file(dir / "model.p3d", "P3D");
  put_file(dir / "a.bak", "bak");
  put_file(dir / "nul.txt", std::string("a\0b", 3));
  put_file(dir / "bom.txt", "\xEF\xBB\xBFhello");
  put_file(dir / "be.txt", "\xFE\xFF\0h");
  std::filesystem::create_directory(dir / "folder");
  struct Case {
    std::string name;
    char const* ext;
    int flags;
    bool opens;
    std::string content;
    char const* reported;
  } cases[] = {
      {dir / "model", "p3d", 0, true, "P3D", ""},      // the default extension is added
      {dir / "model", ".p3d", 0, true, "P3D", ""},
      {dir / "a.bak", "p3d", 0, true, "bak", ""},      // a name with an extension keeps it
      {dir / "missing", "p3d", 0, false, "", ""},
      {dir / "folder", "", 0, false, "", ""},
      {dir / "nul.txt", "", 0, true, std::string("a\0b", 3), ""},
      {dir / "nul.txt", "", 1, false, "", ""},         // a zero byte inside is no text
      {dir / "bom.txt", "", 1, true, "hello", ""},     // the mark is gone and the size with it
      {dir / "be.txt", "", 1, false, "", "Unicode Error\r\n"},
  };
  for (auto const& c : cases) {
    BisFileIO io;
    io.io_SetErrCallBack(capture_err);
    Captured::clear();
    time_t t = io.io_OpenFile(c.name.c_str(), c.ext, c.flags);
    EXPECT_EQ(t != 0, c.opens) << c.name;
    EXPECT_EQ(Captured::join(Captured::errs()), c.reported) << c.name;
    if (!c.opens) continue;
    EXPECT_EQ(t, io.io_GetOpenedFiledate());
    EXPECT_EQ(std::string(reinterpret_cast<char*>(io.io_GetRawData()), io.io_GetFileSize()), c.content);
  }
  BisFileIO io;
  for (char const* bad : {"", static_cast<char const*>(nullptr)}) {
    try {
      io.io_OpenFile(bad);
      ADD_FAILURE();
    } catch (char const* text) {
      EXPECT_STREQ(text, "no filename");
    }
  }
}

TEST(BisFileIO, ReadWholeFile) {
  TempFolder dir;
  put_file(dir / "f", "abc");
  BisFileIO io;
  uint8_t* buf = nullptr;
  EXPECT_EQ(io.io_ReadFile((dir / "f").c_str(), buf), 3);
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(std::memcmp(buf, "abc\0\0\0\0", 7), 0);
  delete[] buf;
  EXPECT_EQ(io.io_ReadFile((dir / "none").c_str(), buf), -1);
  EXPECT_EQ(io.io_ReadFile(dir.path().c_str(), buf), -1);  // a folder is no file
  EXPECT_EQ(buf, nullptr);
}

TEST(BisFileIO, HugeModeHasNoAddresses) {
  TempFolder dir;
  put_file(dir / "f", "abcd");
  BisFileIO io;
  ASSERT_NE(io.io_OpenFile((dir / "f").c_str(), nullptr, 2), 0);
  EXPECT_EQ(io.io_GetRawData(), nullptr);
  EXPECT_THROW(io.io_GetAddress(), Generic_Errors);
  EXPECT_EQ(io.io_ReadByte(), 'a');
  io.io_MoveTo(3);
  EXPECT_EQ(io.io_ReadByte(), 'd');
  io.io_AddOffset(-3);
  EXPECT_EQ(io.io_ReadByte(), 'b');
  io.io_CloseInput();
  EXPECT_FALSE(io.io_ReadActive());
}

}  // namespace
