#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "pbo/PboBuilder.h"
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

// ---- making indexes -------------------------------------------------------------

namespace {
// The entries of an index by path: the record, the path, and everything after it.
std::map<std::string, Bytes> index_entries(Bytes const& b) {
  std::map<std::string, Bytes> out;
  size_t p = 12;
  for (uint32_t n = b[8] | b[9] << 8, i = 0; i < n; ++i) {
    size_t start = p, zero = size_t(std::find(b.begin() + long(p) + 54, b.end(), 0) - b.begin());
    uint32_t mipmaps = b[zero + 5] | b[zero + 6] << 8;
    p = zero + 1 + 8 + 12 * size_t(mipmaps) + 4;
    out[std::string(b.begin() + long(start) + 54, b.begin() + long(zero))] = Bytes(b.begin() + long(start), b.begin() + long(p));
  }
  return out;
}
}  // namespace

TEST(TexHeadersWrite, AGameTexturesEntryComesOutAsTheGameWroteIt) {
  if (!have_corpus()) GTEST_SKIP() << "no corpus";
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  Hollin& h = *dll.dll_GetHollin();
  std::string f = corpus("paa/cba_focused_dxt1.paa");
  ASSERT_EQ(t.pax_Open(f.c_str(), nullptr), 0);
  h.tex_New();
  ASSERT_EQ(h.tex_AddTexture("/FlexiMenu/Data/popup/focused.paa", t, get_file(f).size()), 0);
  Bytes made;
  ASSERT_EQ(h.tex_Output(made), 0);
  auto game = index_entries(text(get_file(corpus("texheaders/oas_cba_ui_texHeaders.bin"))));
  EXPECT_EQ(index_entries(made), (std::map<std::string, Bytes>{{"fleximenu\\data\\popup\\focused.paa",
                                                                game.at("fleximenu\\data\\popup\\focused.paa")}}));
  EXPECT_EQ(open_image(h, made), 0) << g_errs;
}

TEST(TexHeadersWrite, AlphaKindsSuffixesAndPacFiles) {
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  Hollin& h = *dll.dll_GetHollin();
  struct Case {
    char const* path;
    uint32_t average;  // 0: no taggs at all
    uint32_t flag;     // 0: none
    Bytes flags;       // record bytes 40-43
    uint32_t suffix;
    uint8_t is_paa;
  } cases[] = {
      {"wall_co.paa", 0xFF202020, 0, {1, 0, 0, 0}, 0, 1},
      {"glass_ca.paa", 0x40FFFFFF, 1, {1, 1, 0, 1}, 0, 1},
      {"old_ca.pac", 0xA0FFFFFF, 1, {1, 1, 0, 0}, 0, 0},
      {"fence_nohq.paa", 0xE5808080, 2, {1, 0, 1, 0}, 3, 1},
      {"bare_smdi.paa", 0, 0, {0, 1, 0, 1}, 9, 1},
      {"heat_ti_ca.paa", 0xFF000000, 0, {1, 0, 0, 0}, 0, 1},  // as a game index lists a thermal map
  };
  h.tex_New();
  Bytes block(8);
  for (auto const& c : cases) {
    t.pax_New(Lorvix::PAX_DXT1);
    if (c.average) {
      t.pax_SetTagg(PaxTagg::AVGC, c.average);
      t.pax_SetTagg(PaxTagg::MAXC, 0xFFFFFFFF);
    }
    if (c.flag) t.pax_SetTagg(PaxTagg::FLAG, c.flag);
    t.pax_AddMipmap(4, 4, block.data(), block.size());
    ASSERT_EQ(h.tex_AddTexture(c.path, t, 100), 0);
  }
  Bytes made;
  ASSERT_EQ(h.tex_Output(made), 0);
  ASSERT_EQ(open_image(h, made), 0) << g_errs;
  ASSERT_EQ(h.GetCount(), std::size(cases));
  for (size_t i = 0; i < std::size(cases); ++i) {
    TexHeader const* e = h.tex_GetEntry(i);
    SCOPED_TRACE(e->path);
    EXPECT_EQ(Bytes(e->record + 40, e->record + 44), cases[i].flags);
    EXPECT_EQ(e->suffix, cases[i].suffix);
    EXPECT_EQ(e->record[53], cases[i].is_paa);
    EXPECT_EQ(e->th_Type(), 6u);
  }
}

TEST(TexHeadersWrite, PackingWithContentIndexesTheTextures) {
  if (!have_corpus()) GTEST_SKIP() << "no corpus";
  TempFolder dir;
  std::string dxt1 = get_file(corpus("paa/cba_focused_dxt1.paa")), dxt5 = get_file(corpus("paa/rebal_canteen_action_icon.paa"));
  put_file(dir / "src/config.cpp", "class CfgPatches { class a { units[] = {}; }; };\n");
  put_file(dir / "src/Data/Wall_CO.paa", dxt1);
  put_file(dir / "src/ui/icon_ca.paa", dxt5);
  put_file(dir / "src/ui/broken.paa", "not a texture");
  put_file(dir / "src/texHeaders.bin", "stale");
  BisDLL dll;
  Vendrak& pbo = *dll.dll_GetVendrak();
  int const mode = Vendrak::MAKE_STYLE_ARMA | Vendrak::MAKE_PROCESS_CONTENT;
  clear_captured();
  pbo.pbo_GetIO()->io_SetErrCallBack(capture_err);
  ASSERT_EQ(pbo.pbo_Make((dir / "src").c_str(), mode, "a", capture_msg, (dir / "a.pbo").c_str(), nullptr, nullptr), 0)
      << g_errs;
  EXPECT_NE(g_errs.find("ui\\broken.paa is left out of texHeaders.bin"), std::string::npos) << g_errs;
  pbotest::Listing l = pbotest::list_archive(get_file(dir / "a.pbo"));
  ASSERT_TRUE(l.ok);
  auto is_index = [](auto const& e) { return e.first == "texHeaders.bin"; };
  ASSERT_EQ(std::count_if(l.entries.begin(), l.entries.end(), is_index), 1);
  Bytes made = text(std::find_if(l.entries.begin(), l.entries.end(), is_index)->second);
  Hollin& h = *dll.dll_GetHollin();
  ASSERT_EQ(open_image(h, made), 0);
  std::map<std::string, std::pair<uint32_t, uint32_t>> listed;  // path: type, file size
  for (uint64_t i = 0; i < h.GetCount(); ++i)
    listed[h.tex_GetEntry(i)->path] = {h.tex_GetEntry(i)->th_Type(), h.tex_GetEntry(i)->file_size};
  EXPECT_EQ(listed, (std::map<std::string, std::pair<uint32_t, uint32_t>>{
                        {"data\\wall_co.paa", {6, uint32_t(dxt1.size())}}, {"ui\\icon_ca.paa", {10, uint32_t(dxt5.size())}}}));

  // Under warnings as errors the unreadable texture stops the archive.
  EXPECT_EQ(pbo.pbo_Make((dir / "src").c_str(), mode | Vendrak::MAKE_WARNINGS_ARE_ERRORS, "a", capture_msg,
                         (dir / "b.pbo").c_str(), nullptr, nullptr),
            PBO_CANNOT_READ_ENTRY_FILE);
}
