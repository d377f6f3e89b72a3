#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "texture/Hollin.h"
#include "texture/PaaBytes.h"

using namespace paa_test;

namespace {
// One texture entry as real indexes hold it: DXT5 (type 10), flags 01 01 00 01, two mipmaps.
Bytes entry(std::string const& path = "ui\\icon.paa") {
  Bytes b;
  put(b, {u32(1), u32(0), Bytes(24, 0x40), u32(0), u32(0xFFFFFFFF), u32(0x01000101), u32(2), u32(10), u16(0x0101)});
  put(b, {text(path), Bytes{0}, u32(0), u32(2)});
  put(b, {u16(64), u16(64), u16(0), Bytes{10, 3}, u32(0x80)});
  put(b, {u16(32), u16(32), u16(0), Bytes{10, 3}, u32(0x1000)});
  put(b, {u32(5625)});
  return b;
}

Bytes index(std::vector<Bytes> const& entries) {
  Bytes b = text("0DHT");
  put(b, {u32(1), u32(uint32_t(entries.size()))});
  for (auto const& e : entries) put(b, {e});
  return b;
}

int open_image(Hollin& h, Bytes const& b) {
  clear_captured();
  h.tex_GetIO()->io_SetErrCallBack(capture_err);
  return h.tex_Open(static_cast<char const*>(nullptr), capture_msg, b.data(), static_cast<unsigned long>(b.size()));
}

Bytes with(Bytes b, size_t at, Bytes const& v) {
  std::copy(v.begin(), v.end(), b.begin() + long(at));
  return b;
}
}  // namespace

TEST(TexHeaders, ReadsEntriesInPlace) {
  BisDLL dll;
  Hollin& h = *dll.dll_GetHollin();
  Bytes b = index({entry("a.paa"), entry("dir\\b.paa")});
  ASSERT_EQ(open_image(h, b), 0) << g_errs;
  ASSERT_EQ(h.GetCount(), 2u);
  TexHeader const* e = h.tex_GetEntry(1);
  EXPECT_STREQ(e->path, "dir\\b.paa");
  EXPECT_EQ(e->th_MipmapWidth(1), 32);
  EXPECT_EQ(e->th_MipmapOffset(0), 0x80u);
  EXPECT_EQ(e->file_size, 5625u);
}

TEST(TexHeaders, EveryFixedFieldHasItsCodeInOrder) {
  BisDLL dll;
  Hollin& h = *dll.dll_GetHollin();
  size_t const r = 12;                  // the record of the first entry
  size_t const m = r + 54 + 12 + 4 + 4;  // its first mipmap entry (path "ui\icon.paa" is 11 + 1)
  Bytes good = index({entry()});
  Bytes extra = good;
  extra.push_back(0);
  struct Case {
    char const* name;
    Bytes file;
    int code;
  };
  std::vector<Case> cases = {
      {"signature", with(good, 0, text("0DHX")), 10},
      {"version", with(good, 4, u32(2)), 10},
      {"offset 4 before offset 32", with(with(good, r + 4, u32(1)), r + 32, u32(1)), 12},
      {"offset 32 before offset 0", with(with(good, r + 32, u32(1)), r, u32(2)), 13},
      {"offset 0 before offset 36", with(with(good, r, u32(2)), r + 36, u32(0)), 14},
      {"offset 36 before offset 52", with(with(good, r + 36, u32(0)), r + 52, u16(0x0101 + 1)), 15},
      {"offset 52 of 0x0100", with(good, r + 52, u16(0x0100)), 16},
      {"offset 52 of 0x0001", with(good, r + 52, u16(0x0001)), 0},
      {"flag byte 2", with(good, r + 40, u32(0x00000002)), 4},
      {"flag value above 0x1FFFFFF", with(good, r + 40, u32(0x02000000)), 4},
      {"mipmap count differs", with(good, m - 4, u32(3)), 18},
      {"first mipmap's zero field", with(good, m + 4, u16(1)), 17},
      {"first mipmap's constant 3", with(good, m + 7, Bytes{4}), 4},
      {"first mipmap's type", with(good, m + 6, Bytes{6}), 20},
      {"second mipmap is not checked", with(good, m + 12 + 4, u16(9)), 0},
      {"byte after the last entry", extra, 11},
      {"no entries at all", index({}), 0},
      {"count beyond the entries", with(good, 8, u32(2)), 1},
      {"count of billions", with(good, 8, u32(0xFFFFFFFF)), 1},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(open_image(h, c.file), c.code);
    if (c.code) {
      EXPECT_EQ(h.GetCount(), 0u);  // nothing half read is kept
    }
  }
  EXPECT_EQ(open_image(h, with(good, r + 40, u32(2))), 4);
  EXPECT_EQ(g_errs, "0002: flagbytes umknown\r\n");
  EXPECT_STREQ(Hollin::ErrorString(-16), "Texerr: 'not always 11' ");
  EXPECT_STREQ(Hollin::ErrorString(20), "Texerr: mimmap type mismatch");
  EXPECT_STREQ(Hollin::ErrorString(21), "dll Unknown throw Error");
}

TEST(TexHeadersCorpus, EveryIndexOpens) {
  auto files = corpus_files("texheaders", {".bin"});
  auto more = corpus_files("addon-src", {".bin"});
  files.insert(files.end(), more.begin(), more.end());
  if (files.empty()) GTEST_SKIP() << "no corpus";
  BisDLL dll;
  Hollin& h = *dll.dll_GetHollin();
  for (auto const& f : files) {
    if (f.find("exHeaders") == std::string::npos) continue;
    SCOPED_TRACE(f);
    clear_captured();
    EXPECT_EQ(h.tex_Open(f.c_str(), capture_msg), 0) << g_msgs;
    EXPECT_GT(h.GetCount(), 0u);
    for (uint64_t i = 0; i < h.GetCount(); ++i) EXPECT_EQ(h.tex_GetEntry(i)->mipmap_count, h.tex_GetEntry(i)->th_Field(44));
  }
  EXPECT_EQ(h.tex_Open("/nonexistent/texHeaders", nullptr), GE_INVALID_FILE);
}
