// Making archives from folders: what becomes an entry, the judgement of the scan, styles and
// trailers, compression, reproducible output, safety of the output and of the walk, and the corpus.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <cstdlib>
#include <map>

#include "PboBuilder.h"

using namespace pbotest;
namespace fs = std::filesystem;

namespace {
using Files = std::map<std::string, std::string>;  // relative path (with '/') -> bytes

struct MakeFixture : ToolFixture {
  std::string src = dir / "src", out = dir / "out";
  MakeFixture() {
    fs::create_directories(src);
    fs::create_directories(out);
  }
  void put(Files const& files) {
    for (auto const& [name, bytes] : files) {
      fs::create_directories((fs::path(src) / name).parent_path());
      write_file(src + "/" + name, bytes);
    }
  }
  int make(int mode, char const* dest = nullptr, char const* exclude = nullptr, char const* prefix = nullptr,
           char const* ignore = nullptr) {
    return tool->pbo_Make(src.c_str(), mode, prefix, capture, dest ? dest : out.c_str(), ignore, exclude);
  }
  std::string made() const { return out + "/src.pbo"; }
  static Files entries(Listing const& l) {
    Files f;
    for (auto const& [name, bytes] : l.entries) f[name] = bytes;
    return f;
  }
};

std::string repeated(size_t n) {
  std::string s;
  while (s.size() < n) s += "class CfgPatches { units[] = {}; weapons[] = {}; };\n";
  return s.substr(0, n);
}

TEST_F(MakeFixture, FolderBecomesEntriesWithThePrefixFromItsPrefixFile) {
  put({{"config.cpp", "class CfgPatches {};"},
       {"$PBOPREFIX$", "x\\addons\\thing\n"},
       {"data/tex.paa", std::string(300, '\x07')},
       {"data/$PBOPREFIX$.txt", "prefix=child"},
       {"thumbs.db", "t"},
       {"notes.txt", "n"},
       {"script.hpp", "h"},
       {"PboName.h", "\"renamed\""},
       {"deep/er/f.sqf", "hint 1;"}});
  ASSERT_EQ(make(Vendrak::MAKE_STYLE_ARMA), 0) << errors();
  std::string archive = out + "/renamed.pbo";
  EXPECT_EQ(tool->pbo_GetMadeName(), archive);
  Listing l = list_archive(read_file(archive));
  ASSERT_TRUE(l.ok);
  EXPECT_EQ(entries(l), (Files{{"config.cpp", "class CfgPatches {};"},
                               {"data\\tex.paa", std::string(300, '\x07')},
                               {"deep\\er\\f.sqf", "hint 1;"}}));
  EXPECT_EQ(l.properties.at(0), (std::pair<std::string, std::string>("prefix", "x\\addons\\thing")));
  for (char const* line : {"Renaming output to renamed\r\n", "$PBOPREFIX$ :configuring\r\n",
                           "data\\$PBOPREFIX$.txt :ignoring child prefix.txt\r\n", "notes.txt :excluded\r\n",
                           "thumbs.db :excluded\r\n", "PboName.h :excluded\r\n", "config.cpp :scanning\r\n",
                           "<adding entries:...>\r\n", "</end header>\r\n", "Writing sha '"})
    EXPECT_NE(messages().find(line), std::string::npos) << line;
  EXPECT_NE(errors().find("/*Creating ArmA style pbo:*/\r\nPrefix = x\\addons\\thing\r\n"), std::string::npos);

  ASSERT_EQ(tool->pbo_Open(archive.c_str(), capture, 8), 0);
  EXPECT_EQ(tool->pbo_GetType(), Vendrak::KIND_ARMA_PREFIX);
}

TEST_F(MakeFixture, JudgementOfTheScan) {
  struct Case {
    Files files;
    int mode;
    int result;
  } const cases[] = {
      {{{"thumbs.db", "t"}, {"notes.txt", "n"}}, 1024, 20},
      {{{"sub/config.cpp", "class A {};"}}, 1024, 20},
      {{{"mission.sqm", "version=12;"}}, 1024, 0},
      {{{"description.ext", "x"}}, 1024, 0},
      {{{"config.bin", "\0raP"}, {"m.p3d", "MLOD...."}}, 1024, 13},
      {{{"config.bin", "\0raP"}, {"m.p3d", "MLOD...."}}, 1024 | Vendrak::MAKE_ACCEPT_MLOD, 0},
      {{{"config.bin", "\0raP"}, {"m.p3d", "MLOD...."}},
       1024 | Vendrak::MAKE_ACCEPT_MLOD | Vendrak::MAKE_COMPRESS, 13},
      {{{"config.bin", "\0raP"}, {"m.p3d", "ODOL...."}}, 1024 | Vendrak::MAKE_COMPRESS, 0},
      {{{"config.bin", "\0raP"}, {"m.p3d", "junk"}}, 1024, 18},
      {{{"config.bin", "\0raP"}, {"w.wrp", "8WVR...."}}, 1024 | Vendrak::MAKE_ACCEPT_MLOD, 14},
      {{{"config.bin", "\0raP"}, {"w.wrp", "OPRW...."}}, 1024, 0},
      {{{"config.cpp", "class A {"}}, 1024 | Vendrak::MAKE_PROCESS_CONTENT, 17},
  };
  for (auto const& c : cases) {
    fs::remove_all(src);
    fs::create_directories(src);
    put(c.files);
    EXPECT_EQ(make(c.mode), c.result) << c.files.begin()->first << " " << c.mode;
  }
  fs::remove_all(src);
  fs::create_directories(src);
  EXPECT_EQ(make(1024), 20);
  EXPECT_EQ(tool->pbo_Make((dir / "missing").c_str(), 1024, nullptr, capture, nullptr, nullptr, nullptr), 35);
  for (auto const& e : fs::directory_iterator(out)) EXPECT_EQ(e.path().filename(), "src.pbo");
}

TEST_F(MakeFixture, EachStyleOpensAsItsKind) {
  put({{"config.cpp", "class CfgPatches {};"}});
  struct Case {
    int style;
    char const* prefix;
    uint32_t kind;
    size_t trailer;
    char const* banner;
  } const cases[] = {
      {1024, "p", Vendrak::KIND_ARMA_PREFIX, 21, "/*Creating ArmA style pbo:*/"},
      {1024, "", Vendrak::KIND_ARMA_NO_PREFIX, 21, "/*Creating ArmA noPrefix (mission/campaign/or rootAddon) pbo:*/"},
      {256, "p", Vendrak::KIND_PREFIXED_NO_SHA, 0, "/*Creating ArmA style no sha1key*/"},
      {512, "p", Vendrak::KIND_ELITE, 5, "/*Creating Xbox Elite Style Pbo:*/"},
      {128, "p", Vendrak::KIND_RESISTANCE, 0, "/*Creating Resistance style pbo*/"},
      {64, "p", Vendrak::KIND_CWC, 0, "/*Creating CWC style pbo*/"},
  };
  for (auto const& c : cases) {
    clear_captured();
    // A single-name prefix equal to the archive's name is dropped with this bit.
    int mode = c.style | (*c.prefix ? 0 : Vendrak::MAKE_DROP_NAME_PREFIX);
    ASSERT_EQ(make(mode, nullptr, nullptr, *c.prefix ? c.prefix : "src"), 0) << c.style;
    EXPECT_NE(errors().find(c.banner), std::string::npos) << c.style;
    std::string bytes = read_file(made());
    size_t data_end = bytes.size() - c.trailer;
    EXPECT_EQ(bytes.substr(data_end - 20, 20), "class CfgPatches {};") << c.style;
    if (c.trailer == 21) { EXPECT_EQ(bytes.substr(data_end + 1), sha1(bytes.substr(0, data_end))); }
    if (c.trailer == 5) { EXPECT_EQ(bytes.substr(data_end), std::string(5, '\0')); }
    clear_captured();
    EXPECT_EQ(tool->pbo_Open(made().c_str(), capture, 8), 0) << c.style;
    EXPECT_EQ(tool->pbo_GetType(), c.kind) << c.style;
    if (c.style == 256) { EXPECT_NE(errors().find("Warning: no sha key"), std::string::npos); }
    tool->ClosePbo();
  }
}

TEST_F(MakeFixture, CompressionKeepsEveryEntryAndSkipsWhatItShould) {
  std::string text = repeated(20000);
  put({{"config.cpp", text},
       {"sound.wss", text},
       {"init.sqf", text},
       {"initServer.sqf", text},
       {"a.sqf", text},
       {"tiny.sqf", "ab"},
       {"empty.sqf", ""}});
  ASSERT_EQ(make(1024 | Vendrak::MAKE_COMPRESS), 0) << errors();
  std::string bytes = read_file(made());
  Listing l = list_archive(bytes);
  ASSERT_TRUE(l.ok);
  Files e = entries(l);
  EXPECT_EQ(e.size(), 7u);
  for (auto const& [name, data] : e) EXPECT_EQ(data.size(), name[0] == 't' ? 2u : name[0] == 'e' ? 0u : 20000u);
  EXPECT_LT(bytes.size(), 4u * 20000u);  // config.cpp and a.sqf shrank
  EXPECT_NE(messages().find("tiny.sqf rejected\r\n"), std::string::npos);
  EXPECT_NE(messages().find("config.cpp(compressed)"), std::string::npos);
  for (char const* stored : {"sound.wss(compressed)", "init.sqf(compressed)", "initServer.sqf(compressed)"})
    EXPECT_EQ(messages().find(stored), std::string::npos) << stored;
  EXPECT_NE(messages().find("Overall compression from 100002 to "), std::string::npos);
}

TEST_F(MakeFixture, ReproducibleArchivesAreByteIdentical) {
  put({{"config.cpp", "class A {};"}, {"b/x.sqf", "1"}, {"a/y.sqf", "2"}, {"c.sqf", "3"}});
  int mode = 1024 | Vendrak::MAKE_REPRODUCIBLE | Vendrak::MAKE_COMPRESS;
  ASSERT_EQ(make(mode, (dir / "one.pbo").c_str()), 0);
  utimbuf t{1000000000, 1000000000};
  ::utime((src + "/c.sqf").c_str(), &t);
  ASSERT_EQ(make(mode, (dir / "two.pbo").c_str()), 0);
  EXPECT_EQ(read_file(dir / "one.pbo"), read_file(dir / "two.pbo"));
  // Entries in name order, whatever order the system lists them in.
  Listing l = list_archive(read_file(dir / "one.pbo"));
  ASSERT_EQ(l.entries.size(), 4u);
  EXPECT_EQ(l.entries[0].first, "a\\y.sqf");
  EXPECT_EQ(l.entries[3].first, "config.cpp");
}

TEST_F(MakeFixture, AddingUnderAnExistingNameReplacesInPlace) {
  put({{"a.sqf", "first"}, {"b.sqf", "second"}, {"c.sqf", "third"}});
  std::string name = dir / "built.pbo";
  ASSERT_EQ(tool->pbo_Create(name.c_str(), 1024, "p", capture), 1);
  EXPECT_EQ(tool->pbo_AddOrReplaceFile("x/a.sqf", (src + "/a.sqf").c_str(), 0), 0);
  EXPECT_EQ(tool->pbo_AddOrReplaceFile("b.sqf", (src + "/b.sqf").c_str(), 0), 0);
  pbo_entry* replaced = nullptr;
  EXPECT_EQ(tool->pbo_AddOrReplaceFile("X\\A.SQF", (src + "/c.sqf").c_str(), 0, &replaced), 3);
  EXPECT_NE(messages().find("replacing existing content X\\A.SQF\r\n"), std::string::npos);
  EXPECT_EQ(tool->pbo_AddOrReplaceFile("y.sqf", (src + "/none.sqf").c_str(), 0), 39);
  for (pbo_entry* e = tool->pbo_GetFirstEntry(); e; e = e->GetNext()) tool->pbo_WriteHeaderEntry(e);
  ASSERT_EQ(tool->pbo_WriteDataBlockAndClose(true), 0);
  Listing l = list_archive(read_file(name));
  ASSERT_TRUE(l.ok);
  ASSERT_EQ(l.entries.size(), 2u);
  EXPECT_EQ(l.entries[0], (std::pair<std::string, std::string>("X\\A.SQF", "third")));
  EXPECT_EQ(l.entries[1].second, "second");
}

TEST_F(MakeFixture, AFailedMakeLeavesTheOldArchiveAndNoTemporaryFile) {
  put({{"config.cpp", "class A {};"}, {"gone.sqf", "soon gone"}});
  std::string name = dir / "keep.pbo";
  write_file(name, "old archive");
  ASSERT_EQ(tool->pbo_Create(name.c_str(), 1024, "p", capture), 1);
  ASSERT_EQ(tool->pbo_AddOrReplaceFile("config.cpp", (src + "/config.cpp").c_str(), 0), 0);
  ASSERT_EQ(tool->pbo_AddOrReplaceFile("gone.sqf", (src + "/gone.sqf").c_str(), 0), 0);
  fs::remove(src + "/gone.sqf");
  EXPECT_EQ(tool->pbo_WriteDataBlockAndClose(true), 39);
  EXPECT_EQ(read_file(name), "old archive");
  // A source that changed size since it was added is refused too.
  ASSERT_EQ(tool->pbo_Create(name.c_str(), 1024, "p", capture), 1);
  ASSERT_EQ(tool->pbo_AddOrReplaceFile("config.cpp", (src + "/config.cpp").c_str(), 0), 0);
  write_file(src + "/config.cpp", "class A {}; class B {};");
  EXPECT_EQ(tool->pbo_WriteDataBlockAndClose(true), 39);
  EXPECT_EQ(read_file(name), "old archive");
  // The tool destroyed halfway through an archive takes its temporary file with it.
  {
    BisDLL other;
    Vendrak* t = other.dll_GetVendrak();
    ASSERT_EQ(t->pbo_Create((dir / "half.pbo").c_str(), 1024, "p", capture), 1);
  }
  std::vector<std::string> left;
  for (auto const& e : fs::directory_iterator(dir.path)) left.push_back(e.path().filename().string());
  std::sort(left.begin(), left.end());
  EXPECT_EQ(left, (std::vector<std::string>{"keep.pbo", "out", "src"}));
}

TEST_F(MakeFixture, TheWalkStaysInTheFolderAndSkipsItsOwnArchive) {
  put({{"config.cpp", "class A {};"}, {"inner/f.sqf", "inside"}});
  fs::create_directories(dir / "outside");
  write_file(dir / "outside/secret.sqf", "secret");
  fs::create_symlink(dir / "outside/secret.sqf", src + "/secret.sqf");
  fs::create_directory_symlink(dir / "outside", src + "/linked");
  fs::create_symlink(src + "/inner/f.sqf", src + "/alias.sqf");
  write_file(src + "/src.pbo", "an older archive made into the folder");
  ASSERT_EQ(make(1024, src.c_str()), 0) << errors();
  Files e = entries(list_archive(read_file(src + "/src.pbo")));
  EXPECT_EQ(e, (Files{{"config.cpp", "class A {};"}, {"inner\\f.sqf", "inside"}, {"alias.sqf", "inside"}}));
  EXPECT_NE(messages().find("secret.sqf :excluded"), std::string::npos);
}

TEST_F(MakeFixture, CopyOfAnOpenArchiveKeepsPackedEntriesPacked) {
  std::string text = repeated(5000);
  Builder b;
  b.prop("prefix", "a\\b").prop("version", "1").file("packed.sqf", text, true).file("plain.txt", "plain");
  write_file(dir / "in.pbo", b.seal(Builder::SHA).build());
  ASSERT_EQ(tool->pbo_Open((dir / "in.pbo").c_str(), capture, 8), 0);
  ASSERT_EQ(tool->pbo_CreateCopy((dir / "copy").c_str(), 1024), 0);
  std::string copy = read_file(dir / "copy.pbo");
  Listing l = list_archive(copy);
  ASSERT_TRUE(l.ok);
  EXPECT_EQ(l.properties, (std::vector<std::pair<std::string, std::string>>{{"prefix", "a\\b"}, {"version", "1"}}));
  EXPECT_EQ(entries(l), (Files{{"packed.sqf", text}, {"plain.txt", "plain"}}));
  EXPECT_NE(copy.find(lzss_pack(text)), std::string::npos);
  tool->ClosePbo();
  EXPECT_EQ(tool->pbo_Open((dir / "copy.pbo").c_str(), capture, 8), 0);
}

// ---- the corpus --------------------------------------------------------------

std::string corpus() {
  if (fs::is_directory(VENDRAK_CORPUS)) return VENDRAK_CORPUS;
  char const* env = std::getenv("VENDRAK_TEST_CORPUS");
  return env && fs::is_directory(env) ? env : "";
}

Files folder_files(fs::path const& root, bool (*keep)(std::string const&)) {
  Files f;
  for (auto const& e : fs::recursive_directory_iterator(root)) {
    if (!e.is_regular_file()) continue;
    std::string rel = e.path().lexically_relative(root).string();
    if (!keep(rel)) continue;
    std::replace(rel.begin(), rel.end(), '/', '\\');
    f[rel] = read_file(e.path().string());
  }
  return f;
}

TEST_F(MakeFixture, CorpusAddonFoldersPackToSealedArchivesOfTheirFiles) {
  if (corpus().empty()) GTEST_SKIP() << "no corpus";
  for (auto const& addon : fs::directory_iterator(fs::path(corpus()) / "addon-src")) {
    std::string archive = out + "/" + addon.path().filename().string() + ".pbo";
    int r = tool->pbo_Make(addon.path().c_str(), 1024 | Vendrak::MAKE_ACCEPT_MLOD, "fallback", capture, out.c_str(),
                           nullptr, nullptr);
    ASSERT_EQ(r, 0) << addon.path() << errors();
    ASSERT_EQ(tool->pbo_Open(archive.c_str(), capture, 8), 0) << archive;
    EXPECT_EQ(tool->pbo_GetType(), Vendrak::KIND_ARMA_PREFIX);
    bool has_prefix_file = fs::exists(addon.path() / "$PBOPREFIX$");
    if (!has_prefix_file) { EXPECT_STREQ(tool->pbo_GetPrefix(), "fallback"); }
    tool->ClosePbo();
    Files expected = folder_files(addon.path(), [](std::string const& rel) {
      FileStringA name(rel.c_str());
      if (Vendrak::pbo_fname_is_a_properties_file(rel.c_str())) return false;
      int kind = name.fs_FileIs();
      if (kind == 1 || kind == 2) return true;
      for (char const* ext : {".txt", ".h", ".hpp", ".cpp", ".png", ".bak", ".log", ".dep", ".pew"})
        if (name.fs_CompareExt(ext + 1)) return false;
      return rel != "thumbs.db";
    });
    EXPECT_EQ(entries(list_archive(read_file(archive))), expected) << archive;
  }
}

TEST_F(MakeFixture, CorpusArchivesPackBackFromTheirExtraction) {
  if (corpus().empty()) GTEST_SKIP() << "no corpus";
  int packed = 0;
  for (auto const& file : fs::directory_iterator(fs::path(corpus()) / "pbo")) {
    std::string name = file.path().stem().string(), unpacked = dir / ("x/" + name);
    Listing original = list_archive(read_file(file.path().string()));
    if (!original.ok || tool->pbo_Extract(file.path().c_str(), capture, 8, nullptr, unpacked.c_str()) != 0) continue;
    // The folder extraction made: the one holding the properties file, else the only one.
    fs::path root = *fs::directory_iterator(unpacked);
    for (auto const& e : fs::recursive_directory_iterator(unpacked))
      if (e.path().filename() == "$PBOPREFIX$.txt") root = e.path().parent_path();
    Files want = entries(original);
    for (auto it = want.begin(); it != want.end();)
      it = Vendrak::pbo_fname_is_a_properties_file(it->first.c_str()) ? want.erase(it) : std::next(it);
    for (int compress : {0, Vendrak::MAKE_COMPRESS}) {
      std::string archive = dir / ("re/" + name + ".pbo");
      fs::create_directories(dir / "re");
      int r = tool->pbo_Make(root.c_str(), 1024 | Vendrak::MAKE_ACCEPT_MLOD | compress, nullptr, capture,
                             archive.c_str(), nullptr, ",");
      // Folders with no config, mission or campaign at their root are refused by design.
      if (r == 20) continue;
      ASSERT_EQ(r, 0) << name << errors();
      Files got = entries(list_archive(read_file(archive)));
      EXPECT_EQ(got.size(), want.size()) << name;
      for (auto const& w : want) {
        auto same = [&](auto const& g) { return strcasecmp(g.first.c_str(), w.first.c_str()) == 0; };
        auto it = std::find_if(got.begin(), got.end(), same);
        ASSERT_NE(it, got.end()) << name << " " << w.first;
        EXPECT_EQ(it->second, w.second) << name << " " << w.first;
      }
      ++packed;
    }
  }
  EXPECT_GE(packed, 20);
}
}  // namespace
