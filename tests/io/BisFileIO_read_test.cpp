#include <cmath>
#include <cstring>
#include <string_view>

#include "io/BisFileIO.h"
#include "io/BisFileIO_test_util.h"
#include "io/BisFunion.h"

namespace {

// The same bytes held three ways: a caller's buffer, a file in memory, a file streamed (huge).
enum class Mode { Pseudo, Memory, Huge };

struct Source {
  TempFolder dir;
  std::string bytes;
  BisFileIO io;
  Source(Mode mode, std::string b) : bytes(std::move(b)) {
    put_file(dir / "in.bin", bytes);
    if (mode == Mode::Pseudo)
      io.io_OpenPseudoFile(bytes.data(), bytes.size());
    else
      EXPECT_NE(io.io_OpenFile((dir / "in.bin").c_str(), nullptr, mode == Mode::Huge ? 2 : 0), 0);
    EXPECT_EQ(io.io_IsHuge(), mode == Mode::Huge);
  }
};

class Reads : public testing::TestWithParam<Mode> {};
std::string const kBytes("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C", 12);

TEST_P(Reads, EveryWidthReadsUpToTheEndAndNotOneByteFurther) {
  // at_8: the value read from offset 8, for widths up to 4.
  struct { char const* what; uint64_t width; std::function<uint64_t(BisFileIO&)> read; uint64_t at_8; } const
      cases[] = {
      {"byte", 1, [](BisFileIO& io) { return uint64_t(io.io_ReadByte()); }, 0x09},
      {"short", 2, [](BisFileIO& io) { return uint64_t(uint16_t(io.io_ReadShort())); }, 0x0A09},
      {"tribyte", 3, [](BisFileIO& io) { return uint64_t(io.io_ReadTriByte()); }, 0x0B0A09},
      {"long", 4, [](BisFileIO& io) { return uint64_t(uint32_t(io.io_ReadLong())); }, 0x0C0B0A09},
      {"mime", 4, [](BisFileIO& io) { return uint64_t(std::strlen(io.io_ReadMime())); }, 4},
      {"ulong pair", 8, [](BisFileIO& io) { return uint64_t(io.io_ReadUlongPair().y); }, 0},
      {"longlong", 8, [](BisFileIO& io) { return uint64_t(io.io_ReadLongLong()); }, 0},
      {"double", 8, [](BisFileIO& io) { return uint64_t(io.io_ReadDouble() != 0); }, 0},
      {"block", 3, [](BisFileIO& io) { char b[3]; io.io_ReadBlock(b, 1, 3); return uint64_t(b[2]); }, 0x0B},
      {"triplet", 12, [](BisFileIO& io) { return uint64_t(io.io_ReadXYZTriplet(1) != nullptr); }, 0},
      {"address", 5, [](BisFileIO& io) { return uint64_t(io.io_GetAddressAndUpdate(5)[4]); }, 0},
  };
  for (auto const& c : cases) {
    Source src(GetParam(), kBytes);
    BisFileIO& io = src.io;
    io.io_MoveTo(12 - c.width);
    EXPECT_EQ(code_of([&] { c.read(io); }), -1) << c.what;
    EXPECT_TRUE(io.io_eof()) << c.what;
    io.io_MoveTo(13 - c.width);
    EXPECT_EQ(code_of([&] { c.read(io); }), GE_EOF) << c.what;
    EXPECT_EQ(io.io_GetCurrentOffset(), 13 - c.width) << c.what << ": a failed read leaves the cursor";
    io.io_MoveTo(8);
    EXPECT_EQ(c.width <= 4 ? c.read(io) : 0, c.at_8) << c.what;
  }
}

TEST_P(Reads, LyingSizesAndCursorMovesThrowOne) {
  Source src(GetParam(), kBytes);
  BisFileIO& io = src.io;
  char b[16];
  std::function<void()> ops[] = {
      [&] { io.io_ReadBlock(b, uint64_t(1) << 62, 8); },  // size x count overflows
      [&] { io.io_ReadBlock(b, 13); },         [&] { io.io_ReadXYZTriplet(UINT64_MAX / 6); },
      [&] { io.io_GetAddressAndUpdate(13); },  [&] { io.io_AddOffset(-1); },
      [&] { io.io_AddOffset(INT64_MIN); },     [&] { io.io_AddOffset(13); },
      [&] { io.io_AddOffset(INT64_MAX); },     [&] { io.io_MoveTo(13); },
      [&] { io.io_Require(13); },
  };
  for (size_t i = 0; i < std::size(ops); ++i) {
    EXPECT_EQ(code_of(ops[i]), GE_EOF) << "case " << i;
    EXPECT_EQ(io.io_GetCurrentOffset(), 0u) << "case " << i;
  }
  io.io_AddOffset(12);
  EXPECT_TRUE(io.io_eof());
  io.io_AddOffset(-12);
  EXPECT_EQ(io.io_RemainingBytes(), 12u);
}

TEST_P(Reads, TextsTagsAndTriplets) {
  float f[3] = {1.5f, -2.0f, 3.25f};
  std::string bytes("ab\0\0cd\0\0\x07", 9);  // the triplet after it sits unaligned
  bytes.append(reinterpret_cast<char const*>(f), sizeof f);
  Source src(GetParam(), bytes + "end");
  BisFileIO& io = src.io;
  EXPECT_STREQ(io.io_ReadAsciiz(), "ab");
  EXPECT_STREQ(io.io_ReadAsciiz(), "");
  EXPECT_EQ(std::string(io.io_ReadMime(nullptr), 5), std::string("cd\0\0\0", 5));  // always terminated after 4
  io.io_ReadByte();
  XYZTriplet t;
  std::memcpy(&t, io.io_ReadXYZTriplet(1), sizeof t);
  EXPECT_EQ(t.x, 1.5f);
  EXPECT_EQ(t.z, 3.25f);
  std::string s;
  EXPECT_EQ(code_of([&] { io.io_ReadAsciiz(); }), GE_EOF);  // "end" has no terminator in the input
  EXPECT_EQ(code_of([&] { io.io_ReadAsciizHuge(s); }), GE_EOF);
  EXPECT_EQ(io.io_GetCurrentOffset(), bytes.size());
  io.io_MoveTo(0);
  io.io_ReadAsciizHuge(s);
  EXPECT_EQ(s, "ab");
}

INSTANTIATE_TEST_SUITE_P(AllInputs, Reads, testing::Values(Mode::Pseudo, Mode::Memory, Mode::Huge));

// Reads one value under `name`: the code thrown, and what was reported left in g_errs.
template <class T>
int checked_read(void const* bytes, size_t n, T& v, char const* name) {
  BisFileIO io;
  io.io_SetErrCallBack(capture_err);
  clear_captured();
  io.io_OpenPseudoFile(bytes, n);
  return code_of([&] { io.io_read(&v, name); });
}

TEST(BisFunion, FloatAndBoolValidity) {
  std::pair<uint32_t, int> cases[] = {
      {0x00000000, 0},  {0x80000000, 0},  // 0.0, -0.0
      {0x3F800000, 0},  {0x7F7FFFFF, 0},  // 1.0, largest float
      {0x01000000, 0},                    // 2^-125: bit 24 set
      {0x006CE3EE, -1},                   // 1e-38
      {0x00800000, -1}, {0x80800000, -1}, // smallest normals: only seven exponent bits are tested
      {0x00000001, -1},                   // denormal
      {0x7FC00000, 1},  {0x7F800001, 1}, {0xFFC00000, 1},  // NaNs, signalling too
      {0x7F800000, 2},  {0xFF800000, 2},  // infinities
  };
  for (auto const& [bits, faulty] : cases) {
    BisFunion u;
    u.u = bits;
    EXPECT_EQ(u.IsFaulty(), faulty) << std::hex << bits;
    float v = 0;
    EXPECT_EQ(checked_read(&bits, 4, v, "x"), faulty ? GE_EOF : -1) << std::hex << bits;
    EXPECT_EQ(g_errs, faulty ? "x is not a float\r\n" : "");
    EXPECT_EQ(checked_read(&bits, 4, v, nullptr), -1);  // no name, no test
  }
  float box[6] = {1, 2, 3, 4, 5, std::nanf("")};
  trpMinMax mm;
  EXPECT_EQ(checked_read(box, sizeof box, mm, "bbox"), GE_EOF);  // the sixth float
  EXPECT_EQ(g_errs, "bbox is not a float\r\n");
  // A bool byte: 0 false, 1 true, anything else true unless named, then an error.
  std::tuple<uint8_t, char const*, int> bools[] = {{0, "b", 0}, {1, "b", 1}, {255, nullptr, 1}, {2, "flag", -1}};
  for (auto const& [byte, name, result] : bools) {
    bool v = false;
    EXPECT_EQ(checked_read(&byte, 1, v, name), result < 0 ? GE_EOF : -1);
    EXPECT_EQ(v, result == 1) << int(byte);
    EXPECT_EQ(g_errs, result < 0 ? "flag is not a bool\r\n" : "");
  }
}

TEST(BisFileIO, OpenFileOutcomes) {
  TempFolder dir;
  std::pair<char const*, std::string> files[] = {{"model.p3d", "P3D"}, {"a.bak", "bak"}, {"empty", ""},
                                                 {"nul.txt", std::string("a\0b", 3)}, {"bom.txt", "\xEF\xBB\xBFhello"},
                                                 {"be.txt", std::string("\xFE\xFF\0h", 4)}};
  for (auto const& [name, bytes] : files) put_file(dir / name, bytes);
  std::filesystem::create_directory(dir / "folder");
  // A content with no data: the file does not open.
  struct { char const *name, *ext; int flags; std::string_view content; } const cases[] = {
      {"model", "p3d", 0, "P3D"}, {"model", ".p3d", 0, "P3D"},  // the default extension is added
      {"a.bak", "p3d", 0, "bak"},                                 // a name with an extension keeps it
      {"empty", "", 0, ""},       {"missing", "p3d", 0, {}},    {"folder", "", 0, {}},
      {"nul.txt", "", 0, {"a\0b", 3}}, {"nul.txt", "", 1, {}},  // a zero byte inside is no text
      {"bom.txt", "", 1, "hello"}, {"be.txt", "", 1, {}},
  };
  for (auto const& c : cases) {
    BisFileIO io;
    io.io_SetErrCallBack(capture_err);
    clear_captured();
    time_t t = io.io_OpenFile((dir / c.name).c_str(), c.ext, c.flags);
    EXPECT_EQ(t != 0, c.content.data() != nullptr) << c.name;
    EXPECT_EQ(g_errs, c.name == std::string("be.txt") ? "Unicode Error\r\n" : "") << c.name;
    if (!c.content.data()) continue;
    EXPECT_EQ(std::string_view(reinterpret_cast<char*>(io.io_GetRawData()), io.io_GetFileSize()), c.content);
    EXPECT_EQ(std::memcmp(io.io_GetRawData() + io.io_GetFileSize(), "\0\0\0\0", 4), 0) << c.name;
    EXPECT_EQ(code_of([&] { io.io_MoveTo(c.content.size()), io.io_ReadByte(); }), GE_EOF) << c.name;
  }
  BisFileIO io;
  try {
    io.io_OpenFile("");
    ADD_FAILURE() << "an empty name opened";
  } catch (char const* text) {
    EXPECT_STREQ(text, "no filename");
  }
  ASSERT_NE(io.io_OpenFile((dir / "a.bak").c_str(), nullptr, 2), 0);
  EXPECT_EQ(code_of([&] { io.io_GetAddress(); }), GE_EOF);  // a stream has no addresses
  uint8_t* buf = nullptr;
  EXPECT_EQ(io.io_ReadFile((dir / "folder").c_str(), buf), -1);  // a folder is no file
}

}  // namespace
