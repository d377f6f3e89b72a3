#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "io/BisFileIO.h"
#include "text/BisTokens.h"
#include "text/CString8.h"
#include "text/CStringU.h"
#include "text/FileStringA.h"

namespace {

std::string thrown_text(auto&& f) {
  try {
    f();
  } catch (char const* m) {
    return m;
  }
  return "";
}

TEST(FileKinds, ByNameThenExtension) {
  struct Case {
    char const* name;
    int kind;
  } const cases[] = {
      {"CONFIG.BIN", 2},     {"a\\b\\x.Bin", 29},    {"p/texheaders.bin", 30}, {"x\\config.cpp", 1},
      {"b.cpp", 17},         {"noext", 0},           {"a.b\\c", 0},            {"mission.sqm", 3},
      {"Description.ext", 4}, {"t.PAA", 19},         {"t.pac", 19},            {"x.HTML", 27},
      {"x.ignore", 38},      {"m.bikb", 16},         {"s.sqf", 9},             {"h.h", 18},
      {"x.hh", 0},           {"c:model.p3d", 20},    {"v.ogv", 36},            {"", 0},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(FileStringA::fs_FileIs(c.name), c.kind) << c.name;
    EXPECT_EQ(FileString(c.name).FileIs(), c.kind) << c.name;
  }
  EXPECT_EQ(FileStringA::fs_FileIs(nullptr), 0);
}

TEST(Paths, DefaultExtensions) {
  struct Case {
    char const* name;
    char const* ext;
    bool force;
    char const* out;
  } const cases[] = {
      {"a.p3d", ".p3d", false, "a.p3d"}, {"a.P3D", "p3d", false, "a.P3D"}, {"a", ".p3d", false, "a.p3d"},
      {"a.", "p3d", false, "a.p3d"},     {"a.bak", "p3d", false, "a.bak.p3d"}, {"a", "", false, "a"},
      {"a.p3d", "p3d", true, "a.p3d.p3d"}, {"d.x\\a", "p3d", false, "d.x\\a.p3d"},
  };
  for (auto const& c : cases) {
    FileStringA f(c.name);
    f.fs_AddExt(c.ext, c.force);
    EXPECT_STREQ(f.c_str(), c.out) << c.name;
  }
}

TEST(Paths, PartsOfAPath) {
  FileStringA f("c:\\data\\sub\\file.name.paa");
  EXPECT_STREQ(f.fs_GetExt(), ".paa");
  EXPECT_STREQ(f.fs_GetFilenameAndExt(), "file.name.paa");
  EXPECT_STREQ(f.fs_GetNoHardPath(), "\\data\\sub\\file.name.paa");
  struct Case {
    int mask;
    char const* out;
  } const masks[] = {{8, ".paa"}, {12, "file.name.paa"}, {4, "file.name"}, {3, "c:\\data\\sub\\"}, {1, "c:"},
                     {15, "c:\\data\\sub\\file.name.paa"}};
  for (auto const& m : masks) EXPECT_STREQ(f.fs_Extract(m.mask), m.out) << m.mask;
  EXPECT_STREQ(f.fs_Extract(8, "x/y.z/w"), "");
  GenString folder, name, ext;
  f.fs_split(&folder, &name, &ext);
  EXPECT_STREQ(folder.c_str(), "c:\\data\\sub\\");
  EXPECT_STREQ(name.c_str(), "file.name");
  EXPECT_STREQ(ext.c_str(), ".paa");
  f.fs_GetDriveAndPathOnly(folder);
  EXPECT_STREQ(folder.c_str(), "c:\\data\\sub");
  f.fs_GetDriveFileAndPathNoExt(folder);
  EXPECT_STREQ(folder.c_str(), "c:\\data\\sub\\file.name");

  FileStringA g("a/b\\c.txt");
  g.fs_ReplaceExt("bin");
  EXPECT_STREQ(g.c_str(), "a/b\\c.bin");
  g.fs_ReplaceFilenameAndExt("d.e");
  EXPECT_STREQ(g.c_str(), "a/b\\d.e");
  g.fs_RemoveExt();
  EXPECT_STREQ(g.c_str(), "a/b\\d");
  g.fs_RemoveFilename();
  EXPECT_STREQ(g.c_str(), "a/b\\");
  g.fs_RemoveTrailingFolder();
  EXPECT_STREQ(g.c_str(), "a/");
  g.fs_prepend_slash();
  g.fs_AppendTrailingSlash();
  EXPECT_STREQ(g.c_str(), "\\a/");
  g.fs_remove_leading_slash();
  g.fs_RemoveTrailingSlash();
  EXPECT_STREQ(g.c_str(), "a");
  g.fs_ConvertToSystemSlash();

  EXPECT_EQ(thrown_text([] { FileStringA().fs_RemoveExt(); }), "Vendrak.dll coding error: FileStringEx");
  EXPECT_EQ(thrown_text([] { FileStringA("a").fs_ReplaceFilenameAndExt(""); }),
            "Vendrak.dll coding error: FileStringEx: 'no with'");
}

TEST(Paths, Comparisons) {
  struct Case {
    char const* name;
    char const* pattern;
    bool match;
  } const wild[] = {
      {"file.TXT", "*.txt", true},   {"a\\b.txt", "*.txt", true},  {"file.txt", "*.tx", false},
      {"abc", "a?c", true},          {"ac", "a?c", false},         {"abc", "*", true},
      {"", "*", true},               {"", "", true},               {"a", "", false},
      {"aXbXc", "a*b*c", true},      {"aXbX", "a*b*c", false},     {"data/x.p3d", "data\\*", true},
      {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaab", "*a*a*a*a*a*a*c", false},  // no blow-up on backtracking
  };
  for (auto const& c : wild) EXPECT_EQ(FileStringA::fs_CompareWild(c.name, c.pattern), c.match) << c.name << " " << c.pattern;

  BisTokens tokens;
  tokens.tkn_convert_csv("*.txt,wss,thumbs.db,data\\keep.p3d");
  struct Tok {
    char const* name;
    bool match;
  } const toks[] = {
      {"readme.TXT", true},   {"sound.WSS", true},  {"wss", false},         {"a\\Thumbs.db", true},
      {"data/keep.p3d", true}, {"keep.p3d", false}, {"other.p3d", false},   {"x.wssx", false},
  };
  for (auto const& t : toks) EXPECT_EQ(FileStringA::fs_CompareTokens(t.name, &tokens), t.match) << t.name;
  EXPECT_FALSE(FileStringA::fs_CompareTokens("a", nullptr));

  EXPECT_TRUE(FileStringA("Abc").fs_Compare("aBC"));
  EXPECT_FALSE(FileStringA("Abc").fs_Compare("aBC", 1));
  EXPECT_FALSE(FileStringA("").fs_Compare(""));
  EXPECT_TRUE(FileStringA("x\\A.b").fs_CompareFilenameOnly("y/a.c"));
  EXPECT_TRUE(FileStringA("x\\A.b").fs_CompareFilenameExtOnly("y/a.B"));
  EXPECT_FALSE(FileStringA("x\\A.b").fs_CompareFilenameExtOnly("y/a.c"));
  EXPECT_TRUE(FileStringA("x\\A.b").fs_CompareFiles("X/a.B"));
  EXPECT_FALSE(FileStringA("x\\A.b").fs_CompareFiles("X/a.Bc"));
}

TEST(Paths, JoiningFolderAndFile) {
  struct Case {
    char const* folder;
    char const* file;
    char const* out;  // null: refused
  } const cases[] = {
      {"a\\b", "..\\c.txt", "a\\c.txt"},
      {"x\\a", "..\\c", "x\\c"},
      {"x\\a\\", "\\c", "x\\a\\c"},
      {"x\\a\\b", "..\\..\\c", "x\\c"},
      {"x/a", "../c/d", "x/c/d"},
      {"x\\a", "..", "x\\"},
      {"x\\a", nullptr, "x\\a\\"},
      {"x", "a..b\\c", "x\\a..b\\c"},  // not a parent reference
      {"", "c", "c"},
      {"", "..\\c", nullptr},
      {"a", "..\\c", nullptr},  // the parent is the first component
      {"x\\a", "..\\..\\c", nullptr},
      {"x\\\\a", "..\\..\\c", nullptr},
      {"c:\\a", "..\\..\\b", nullptr},
      {"x", "..", nullptr},
  };
  for (auto const& c : cases) {
    FileStringA f;
    std::string err = thrown_text([&] { f.fs_format_folder_and_file(c.folder, c.file); });
    if (c.out) {
      EXPECT_EQ(err, "") << c.folder << " + " << (c.file ? c.file : "(null)");
      EXPECT_STREQ(f.c_str(), c.out);
    } else {
      EXPECT_EQ(err, "FileStringEx: ../ has no parent") << c.folder << " + " << c.file;
    }
  }
}

// Whatever the file part holds, the joined path stays below the folder's first component and
// holds no parent references.
TEST(Paths, JoiningNeverClimbsAboveTheFirstComponent) {
  std::mt19937 rng(12345);
  char const* parts[] = {"..", "..", ".", "a", "bb", "", "x.y", "..."};
  char const* seps[] = {"\\", "/"};
  int joined = 0;
  for (int i = 0; i < 20000; ++i) {
    std::string folder = "top", file;
    for (int n = rng() % 3; n > 0; --n) folder += std::string(seps[rng() % 2]) + "f" + std::to_string(n);
    for (int n = 1 + rng() % 6; n > 0; --n) file += std::string(parts[rng() % 8]) + (n > 1 ? seps[rng() % 2] : "");
    FileStringA f;
    if (!thrown_text([&] { f.fs_format_folder_and_file(folder.c_str(), file.c_str()); }).empty()) continue;
    ++joined;
    std::string out = f.c_str();
    ASSERT_EQ(out.rfind("top", 0), 0u) << folder << " + " << file << " -> " << out;
    ASSERT_TRUE(out.size() == 3 || FileStringA::fs_IsSlash(out[3])) << out;
    for (auto& c : out) c = c == '\\' ? '/' : c;
    ASSERT_EQ(("/" + out + "/").find("/../"), std::string::npos) << out;
  }
  EXPECT_GT(joined, 1000);
}

class TextFiles : public testing::Test {
 protected:
  std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("vendrak_paths_" + std::to_string(::getpid()));
  void SetUp() override { std::filesystem::create_directories(dir); }
  void TearDown() override { std::filesystem::remove_all(dir); }
  std::string put(char const* name, std::string const& bytes) {
    auto p = (dir / name).string();
    std::ofstream(p, std::ios::binary) << bytes;
    return p;
  }
};

// "日本語テキスト" and more: every character of three UTF-8 bytes from two UTF-16 bytes.
std::string utf16le_of(std::u16string const& s) {
  std::string b("\xFF\xFE", 2);
  for (char16_t c : s) b += static_cast<char>(c & 0xFF), b += static_cast<char>(c >> 8);
  return b;
}

TEST_F(TextFiles, ByteOrderMarks) {
  std::u16string wide;
  for (int i = 0; i < 300; ++i) wide += u"\u65e5\u672c";
  wide += u"\U0001F600!";
  std::string utf8 = CString8::from_utf16(wide.data(), wide.size());
  ASSERT_EQ(utf8.size(), 300u * 6 + 5);

  struct Case {
    std::string bytes;
    int result;
    std::string text;
  } const cases[] = {
      {"\xEF\xBB\xBF" "abc", 1, "abc"},
      {"plain", 0, "plain"},
      {"\xFE\xFF\0a", -1, ""},
      {utf16le_of(u"ab\u00e9"), 1, "ab\xC3\xA9"},
      {utf16le_of(wide), 1, utf8},
      {utf16le_of(u"a\xD800z"), 1, "a\xEF\xBF\xBDz"},  // a lone surrogate is no character
  };
  for (auto const& c : cases) {
    // The growing form keeps everything.
    uint64_t size = c.bytes.size();
    auto* buf = new uint8_t[size + 4]();
    std::memcpy(buf, c.bytes.data(), size);
    EXPECT_EQ(FileStringA::fs_RemoveBom(buf, size), c.result);
    if (c.result >= 0) {
      EXPECT_EQ(std::string(reinterpret_cast<char*>(buf)), c.text);
      EXPECT_EQ(std::memcmp(buf + size, "\0\0\0\0", 4), 0);
    }
    delete[] buf;
    // The fixed form stays inside its buffer and cuts only between characters.
    std::vector<char> fixed(c.bytes.begin(), c.bytes.end());
    fixed.resize(fixed.size() + 4, 0);
    EXPECT_EQ(FileStringA::fs_RemoveBom(fixed.data()), c.result);
    if (c.result >= 0) {
      std::string got(fixed.data());
      EXPECT_EQ(c.text.compare(0, got.size(), got), 0);
      EXPECT_TRUE(FileStringA::fs_isUtf8(got.c_str()));
    }
    // Through the file opener and the text reader.
    auto path = put("bom.txt", c.bytes);
    BisFileIO io;
    time_t opened = io.io_OpenFile(path.c_str(), nullptr, 1);
    FileStringA read;
    bool ok = read.fs_ReadTextFile(path.c_str());
    if (c.result < 0) {
      EXPECT_EQ(opened, 0);
      EXPECT_FALSE(ok);
    } else {
      ASSERT_NE(opened, 0);
      EXPECT_EQ(std::string(reinterpret_cast<char*>(io.io_GetRawData()), io.io_GetFileSize()), c.text);
      EXPECT_TRUE(ok);
      EXPECT_EQ(std::string(read.c_str()), c.text);
    }
  }
  EXPECT_EQ(FileStringA::fs_RemoveBom(nullptr), -1);
}

TEST_F(TextFiles, CreatingWritesTheMark) {
  struct Case {
    int encoding;
    std::string mark;
  } const cases[] = {{0, ""}, {1, "\xEF\xBB\xBF"}, {2, "\xFF\xFE"}, {3, "\xFE\xFF"}};
  auto name = (dir / "out.txt").string();
  for (auto const& c : cases) {
    FileStringA f;
    FILE* fp = f.fs_CreateTextFile(name.c_str(), c.encoding);
    ASSERT_NE(fp, nullptr);
    std::fclose(fp);
    std::ifstream in(name, std::ios::binary);
    std::string got((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(got, c.mark);
  }
  FileStringA f;
  EXPECT_EQ(thrown_text([&] { f.fs_CreateTextFile(name.c_str(), 4); }),
            "Coding Error: FileStringEx::_WriteBom() AsUnicode");
  EXPECT_EQ(f.fs_CreateTextFile((dir / "no/such/dir.txt").string().c_str(), 1), nullptr);
}

TEST_F(TextFiles, FileSystemCallsTakeBackslashes) {
  put("a.txt", "12345");
  FileStringA f((dir.string() + "\\a.txt").c_str());
  EXPECT_TRUE(f.fs_FileExists());
  EXPECT_EQ(f.fs_GetFileSize(), 5);
  EXPECT_TRUE(f.fs_SetFileDate(1000000000));
  EXPECT_EQ(f.fs_GetFileDate(), 1000000000);
  FileStringA sub((dir.string() + "\\sub").c_str());
  EXPECT_EQ(sub.fs_mkdir(), 0);
  EXPECT_TRUE(sub.fs_FolderExists());
  FileStringA dest;
  dest.fs_build_destination(sub.c_str(), f.c_str());
  EXPECT_EQ(std::string(dest.c_str()), dir.string() + "\\sub\\a.txt");
  EXPECT_EQ(f.fs_rename(dest.c_str()), 0);
  EXPECT_TRUE(dest.fs_FileExists());
  EXPECT_EQ(dest.fs_unlink(), 0);
  EXPECT_EQ(sub.fs_rmdir(), 0);
  dest.fs_build_destination("not\\a\\folder.bin", "x\\y.z");
  EXPECT_STREQ(dest.c_str(), "not\\a\\folder.bin");
}

TEST_F(TextFiles, TemporaryNamesReplaceEachOther) {
  FileStringA t;
  std::string first = t.fs_create_temp_name("tmp");
  ASSERT_EQ(first.substr(first.size() - 4), ".tmp");
  std::ofstream(first) << "x";
  std::string second = t.fs_create_temp_name("tmp");
  EXPECT_NE(first, second);
  EXPECT_FALSE(std::filesystem::exists(first)) << "the previous temporary file is deleted";
}

TEST(Text, Utf8Checks) {
  struct Case {
    char const* text;
    bool ok;
  } const cases[] = {
      {"plain", true},        {"\xC3\xA9", true},        {"\xE6\x97\xA5", true}, {"\xF0\x9F\x98\x80", true},
      {"\xC3", false},        {"\x80", false},           {"\xE6\x97", false},    {"a\xBF", false},
      {"\xC3\xA9\xC3", false}, {"", true},
  };
  for (auto const& c : cases) EXPECT_EQ(FileStringA::fs_isUtf8(c.text), c.ok) << c.text;
}

TEST(Text, WideAndNarrowConversions) {
  struct Case {
    char const* utf8;
    std::wstring wide;
  } const cases[] = {
      {"abc", L"abc"}, {"\xC3\xA9", L"\u00e9"}, {"\xF0\x9F\x98\x80", L"\U0001F600"}, {"", L""},
  };
  for (auto const& c : cases) {
    EXPECT_EQ(CStringU(c.utf8).str(), c.wide);
    EXPECT_STREQ(CString8(c.wide.c_str()).c_str(), c.utf8);
    EXPECT_EQ(FileStringA::fs_convert_to_utf8(c.wide.c_str()), c.utf8);
    EXPECT_EQ(FileStringA::fs_convert_to_unicode(c.utf8), c.wide);
  }
  // Malformed input becomes replacement characters, never a crash or a lost tail.
  EXPECT_EQ(CStringU("a\xC3z\xFF" "b\xE6\x97").str(), L"a\ufffdz\ufffdb\ufffd");
  EXPECT_EQ(CStringU("\xC0\xAF").str().size(), 2u);  // an overlong form is refused
  EXPECT_STREQ(CString8(static_cast<wchar_t const*>(nullptr)).c_str(), "");
}

}  // namespace
