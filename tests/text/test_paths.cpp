#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "io/BisFileIO.h"
#include "text/BisTokens.h"
#include "text/CString8.h"
#include "text/CStringU.h"
#include "text/FileStringA.h"

namespace {

TEST(Paths, FileKindsAndExtensions) {
  std::pair<char const*, int> const kinds[] = {
      {"CONFIG.BIN", 2},  {"a\\b\\x.Bin", 29}, {"p/texheaders.bin", 30}, {"x\\config.cpp", 1}, {"b.cpp", 17},
      {"noext", 0},       {"a.b\\c", 0},       {"Description.ext", 4},   {"t.pac", 19},       {"x.HTML", 27},
      {"x.ignore", 38},   {"h.h", 18},         {"x.hh", 0},              {"c:model.p3d", 20}, {"", 0},
  };
  for (auto [name, kind] : kinds) EXPECT_EQ(FileString(name).FileIs(), kind) << name;
  std::tuple<char const*, char const*, bool, char const*> const exts[] = {
      {"a.P3D", ".p3d", false, "a.P3D"}, {"a", ".p3d", false, "a.p3d"}, {"a.", "p3d", false, "a.p3d"},
      {"a.bak", "p3d", false, "a.bak.p3d"}, {"a", "", false, "a"},     {"a.p3d", "p3d", true, "a.p3d.p3d"},
      {"d.x\\a", "p3d", false, "d.x\\a.p3d"},
  };
  for (auto [name, ext, force, out] : exts) {
    FileStringA f(name);
    f.fs_AddExt(ext, force);
    EXPECT_STREQ(f.c_str(), out) << name;
  }
  FileStringA f("c:\\data\\sub\\file.name.paa");
  EXPECT_STREQ(f.fs_Extract(4), "file.name");
  EXPECT_STREQ(f.fs_Extract(3), "c:\\data\\sub\\");
  EXPECT_STREQ(f.fs_Extract(8, "x/y.z/w"), "") << "a dot in a folder is no extension";
}

TEST(Paths, WildcardsAndTokenLists) {
  std::tuple<char const*, char const*, bool> const wild[] = {
      {"file.TXT", "*.txt", true}, {"a\\b.txt", "*.txt", true}, {"file.txt", "*.tx", false}, {"abc", "a?c", true},
      {"ac", "a?c", false},        {"", "*", true},             {"a", "", false},           {"aXbX", "a*b*c", false},
      {"data/x.p3d", "data\\*", true},
      {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaab", "*a*a*a*a*a*a*c", false},  // no blow-up on backtracking
  };
  for (auto [name, pattern, match] : wild) EXPECT_EQ(FileStringA::fs_CompareWild(name, pattern), match) << pattern;
  BisTokens tokens;
  tokens.tkn_convert_csv("*.txt,wss,thumbs.db,data\\keep.p3d");
  for (auto [name, match] : {std::pair{"readme.TXT", true}, {"sound.WSS", true}, {"wss", false}, {"a\\Thumbs.db", true},
                             {"data/keep.p3d", true}, {"keep.p3d", false}, {"x.wssx", false}})
    EXPECT_EQ(FileStringA::fs_CompareTokens(name, &tokens), match) << name;
}

std::string join(char const* folder, char const* file, FileStringA& f) {
  try {
    f.fs_format_folder_and_file(folder, file);
  } catch (char const* m) {
    return m;
  }
  return "";
}

TEST(Paths, JoiningFolderAndFile) {
  struct Case {
    char const* folder;
    char const* file;
    char const* out;  // null: refused
  } const cases[] = {
      {"a\\b", "..\\c.txt", "a\\c.txt"}, {"x\\a\\", "\\c", "x\\a\\c"},     {"x\\a\\b", "..\\..\\c", "x\\c"},
      {"x/a", "../c/d", "x/c/d"},        {"x\\a", "..", "x\\"},            {"x\\a", nullptr, "x\\a\\"},
      {"x", "a..b\\c", "x\\a..b\\c"},    {"", "c", "c"},                   {"", "..\\c", nullptr},
      {"a", "..\\c", nullptr},           {"x\\a", "..\\..\\c", nullptr},   {"x\\\\a", "..\\..\\c", nullptr},
      {"c:\\a", "..\\..\\b", nullptr},   {"x", "..", nullptr},
  };
  for (auto const& c : cases) {
    FileStringA f;
    EXPECT_EQ(join(c.folder, c.file, f), c.out ? "" : "FileStringEx: ../ has no parent")
        << c.folder << " + " << (c.file ? c.file : "");
    EXPECT_STREQ(f.c_str(), c.out ? c.out : "");
  }
  // Whatever the file part holds, the result stays below the folder's first component and keeps
  // no parent reference.
  std::mt19937 rng(12345);
  char const* parts[] = {"..", "..", ".", "a", "bb", "", "x.y", "..."};
  int joined = 0;
  for (int i = 0; i < 20000; ++i) {
    std::string folder = "top", file;
    for (int n = rng() % 3; n > 0; --n) folder += (rng() % 2 ? "\\f" : "/f") + std::to_string(n);
    for (int n = 1 + rng() % 6; n > 0; --n) file += std::string(parts[rng() % 8]) + (n > 1 ? (rng() % 2 ? "\\" : "/") : "");
    FileStringA f;
    if (!join(folder.c_str(), file.c_str(), f).empty()) continue;
    ++joined;
    std::string out = f.c_str();
    for (auto& ch : out) ch = ch == '\\' ? '/' : ch;
    ASSERT_TRUE(out == "top" || out.rfind("top/", 0) == 0) << folder << " + " << file << " -> " << out;
    ASSERT_EQ(("/" + out + "/").find("/../"), std::string::npos) << out;
  }
  EXPECT_GT(joined, 1000);
}

std::string utf16le_of(std::u16string const& s) {
  std::string b("\xFF\xFE", 2);
  for (char16_t c : s) b += static_cast<char>(c & 0xFF), b += static_cast<char>(c >> 8);
  return b;
}

TEST(TextFiles, ByteOrderMarks) {
  auto path = (std::filesystem::temp_directory_path() / ("vendrak_bom_" + std::to_string(::getpid()))).string();
  // Every character here takes three UTF-8 bytes for two UTF-16 ones: the text grows on the way.
  std::u16string wide;
  for (int i = 0; i < 300; ++i) wide += u"\u65e5\u672c";
  wide += u"\U0001F600!";
  std::string utf8 = CString8::from_utf16(wide.data(), wide.size());
  ASSERT_EQ(utf8.size(), 300u * 6 + 5);
  std::tuple<std::string, int, std::string> const cases[] = {  // bytes, result, text
      {"\xEF\xBB\xBF" "abc", 1, "abc"},
      {"plain", 0, "plain"},
      {std::string("\xFE\xFF\0a", 4), -1, ""},
      {utf16le_of(wide), 1, utf8},
      {utf16le_of(u"a\xD800z"), 1, "a\xEF\xBF\xBDz"},  // a lone surrogate is no character
  };
  for (auto const& [bytes, result, text] : cases) {
    // The buffer as it is: never written beyond, cut only between whole characters.
    std::vector<char> fixed(bytes.begin(), bytes.end());
    fixed.resize(fixed.size() + 4, 0);
    EXPECT_EQ(FileStringA::fs_RemoveBom(fixed.data()), result);
    if (result >= 0) {
      std::string got(fixed.data());
      EXPECT_EQ(text.compare(0, got.size(), got), 0);
      EXPECT_TRUE(FileStringA::fs_isUtf8(got.c_str()));
    }
    // Through the file opener and the text reader, which let the buffer grow: nothing is lost.
    std::ofstream(path, std::ios::binary) << bytes;
    BisFileIO io;
    time_t opened = io.io_OpenFile(path.c_str(), nullptr, 1);
    FileStringA read;
    EXPECT_EQ(read.fs_ReadTextFile(path.c_str()), result >= 0);
    EXPECT_EQ(opened != 0, result >= 0);
    if (opened) {
      EXPECT_EQ(std::string(reinterpret_cast<char*>(io.io_GetRawData()), io.io_GetFileSize()), text);
    }
    EXPECT_EQ(std::string(read.c_str()), text);
  }
  std::filesystem::remove(path);
}

TEST(TextFiles, Utf8ChecksAndConversions) {
  for (auto [text, ok] : {std::pair{"plain", true}, {"\xC3\xA9", true}, {"\xF0\x9F\x98\x80", true}, {"\xC3", false},
                          {"\x80", false}, {"\xE6\x97", false}, {"\xC3\xA9\xC3", false}})
    EXPECT_EQ(FileStringA::fs_isUtf8(text), ok) << text;
  for (auto [utf8, wide] : {std::pair{"abc", L"abc"}, {"\xC3\xA9", L"\u00e9"}, {"\xF0\x9F\x98\x80", L"\U0001F600"}}) {
    EXPECT_EQ(CStringU(utf8).str(), wide);
    EXPECT_STREQ(CString8(wide).c_str(), utf8);
  }
  // Malformed input becomes replacement characters, never a crash or a lost tail.
  EXPECT_EQ(CStringU("a\xC3z\xFF" "b\xE6\x97").str(), L"a\ufffdz\ufffdb\ufffd");
  EXPECT_EQ(CStringU("\xC0\xAF").str().size(), 2u);  // an overlong form is refused
}

}  // namespace
