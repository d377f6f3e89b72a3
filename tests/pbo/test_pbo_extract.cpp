// Extraction and listing: output folders, filters, prefix files, hostile names, the corpus and the
// command line.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "PboTestSupport.h"
#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"

using namespace pbotest;
namespace fs = std::filesystem;

namespace {
struct ExtractFixture : ::testing::Test {
  TempDir dir;
  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  std::string archive = dir / "in/arc.pbo";
  std::string out = dir / "out";
  ExtractFixture() {
    clear_captured();
    tool->pbo_GetIO()->io_SetErrCallBack(capture_err);
    fs::create_directories(dir.path / "in");
    fs::create_directories(dir.path / "outside");
    write_file(dir / "outside/canary", "canary");
  }
  int extract(Builder const& b, int flags = 0, char const* files = nullptr, char const* dest = "") {
    write_file(archive, b.build());
    return tool->pbo_Extract(archive.c_str(), capture, flags, files, dest && !*dest ? out.c_str() : dest);
  }
  // Every regular file or link that exists below the scratch folder, relative to it.
  std::set<std::string> all_files() const {
    std::set<std::string> found;
    for (auto& e : fs::recursive_directory_iterator(dir.path))
      if (!e.is_directory() || e.is_symlink()) found.insert(e.path().lexically_relative(dir.path).string());
    return found;
  }
};
}  // namespace

TEST_F(ExtractFixture, PrefixedArchiveGoesBelowDestinationWithItsPropertiesFile) {
  Builder b = Builder().prop("prefix", "x\\y").prop("version", "7");
  b.trailer = Builder::SHA;
  b.file("config.bin", "cfg").file("data\\tex.paa", std::string(3000, 'q'), true);
  ASSERT_EQ(extract(b), 0) << errors();
  EXPECT_EQ(read_file(out + "/x/y/config.bin"), "cfg");
  EXPECT_EQ(read_file(out + "/x/y/data/tex.paa"), std::string(3000, 'q'));
  std::string props = read_file(out + "/x/y/$PBOPREFIX$.txt");
  EXPECT_NE(props.find("prefix=x\\y\r\nversion=7\r\n//Pbo Type is: Arma Addon\r\n//Sha: '"), std::string::npos);
  ASSERT_EQ(tool->pbo_Open(archive.c_str(), capture, 8), 0);
  EXPECT_EQ(props, tool->pbo_GetReport());
  EXPECT_NE(messages().find("config.bin\r\ndata\\tex.paa (decompressed/decrypted)\r\n"), std::string::npos);
  EXPECT_NE(messages().find("Creating prefix file with prefix='x\\y'\r\n--------------------\r\n"), std::string::npos);
}

TEST_F(ExtractFixture, OutputFolderIsNamedAfterTheArchiveWhenThereIsNoPrefix) {
  ASSERT_EQ(extract(Builder().file("a.txt", "1")), 0);
  EXPECT_EQ(read_file(out + "/arc/a.txt"), "1");
  EXPECT_FALSE(fs::exists(out + "/arc/$PBOPREFIX$.txt"));  // no properties, no file
  // Without a destination the folder sits beside the archive; a prefix is then not used.
  ASSERT_EQ(extract(Builder().prop("prefix", "p\\q").file("b.txt", "2"), 0, nullptr, nullptr), 0);
  EXPECT_EQ(read_file(dir / "in/arc/b.txt"), "2");
  EXPECT_TRUE(fs::exists(dir / "in/arc/$PBOPREFIX$.txt"));
}

TEST_F(ExtractFixture, FileListsSelectEntries) {
  Builder mission = Builder().prop("prefix", "m").file("mission.sqm", "s").file("init.sqf", "i").file("sub\\x.sqm", "x");
  mission.trailer = Builder::SHA;
  struct Case {
    char const* files;
    int flags;
    int result;
    std::set<std::string> written;
    char const* warning;
  } cases[] = {
      {"*.sqm", 0, 0, {"mission.sqm", "sub/x.sqm", "$PBOPREFIX$.txt"}, ""},
      {"init.sqf, mission.sqm", 0, 0, {"mission.sqm", "init.sqf", "$PBOPREFIX$.txt"}, ""},
      {"*.paa", 0, 0, {}, "Warning: no file(s) to extract\r\n"},
      {"*.paa", 32, 27, {}, ""},
      {"$PBOPREFIX$.txt", 0, 0, {"$PBOPREFIX$.txt"}, "Warning: no file(s) to extract\r\n"},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.files);
    clear_captured();
    fs::remove_all(out);
    EXPECT_EQ(extract(mission, c.flags, c.files), c.result);
    std::set<std::string> got;
    if (fs::exists(out + "/m"))
      for (auto& e : fs::recursive_directory_iterator(out + "/m"))
        if (e.is_regular_file()) got.insert(fs::relative(e.path(), out + "/m").string());
    EXPECT_EQ(got, c.written);
    if (*c.warning) {
      EXPECT_NE(errors().find(c.warning), std::string::npos) << errors();
    }
  }
}

TEST_F(ExtractFixture, EntryNamesAreMappedAndDated) {
  Builder b = Builder().prop("prefix", "p").file("$PBOPREFIX$", "baked").file("a*b.txt", "star").file("old.txt", "0");
  b.files[2].stamp = 0;
  b.files[1].stamp = 1234567890;
  write_file(archive, b.build());
  fs::last_write_time(archive, fs::file_time_type::clock::now() - std::chrono::hours(48));
  struct stat arc;
  ::stat(archive.c_str(), &arc);
  ASSERT_EQ(tool->pbo_Extract(archive.c_str(), capture, 0, nullptr, out.c_str()), 0);
  EXPECT_NE(messages().find("$PBOPREFIX$ ignoring an erroneous prefix file that was baked into a pbo\r\n"),
            std::string::npos);
  EXPECT_EQ(read_file(out + "/p/azb.txt"), "star");
  EXPECT_NE(read_file(out + "/p/$PBOPREFIX$.txt"), "baked");
  struct stat st;
  ASSERT_EQ(::stat((out + "/p/azb.txt").c_str(), &st), 0);
  EXPECT_EQ(st.st_mtime, 1234567890);
  ASSERT_EQ(::stat((out + "/p/old.txt").c_str(), &st), 0);
  EXPECT_EQ(st.st_mtime, arc.st_mtime);
}

TEST_F(ExtractFixture, ListingWritesNothing) {
  Builder b = Builder().file("a.txt", "12345").file("b.txt", std::string(100, 'b'), true);
  b.files[0].stamp = 0;
  ASSERT_EQ(extract(b, 4 | 8), 0);
  EXPECT_EQ(messages(), "a.txt\r\nb.txt\r\n");
  clear_captured();
  ASSERT_EQ(extract(b, 4), 0);
  time_t zero = 0;
  std::string when = std::ctime(&zero);
  when.pop_back();
  size_t packed = lzss_pack(std::string(100, 'b')).size();
  EXPECT_NE(messages().find("a.txt:" + when + ": size 5\r\nb.txt:"), std::string::npos) << messages();
  EXPECT_NE(messages().find(": size 100 (compressed or encrypted size=" + std::to_string(packed) + ")\r\n"),
            std::string::npos);
  EXPECT_FALSE(fs::exists(out));
}

TEST_F(ExtractFixture, ResultsOfBrokenOrEmptyArchives) {
  EXPECT_EQ(extract(Builder()), 24);
  Builder sealed = Builder().prop("prefix", "s").file("a.txt", "payload");
  sealed.trailer = Builder::SHA;
  std::string bytes = sealed.build();
  bytes[bytes.size() - 22] ^= 1;
  write_file(archive, bytes);
  clear_captured();
  EXPECT_EQ(tool->pbo_Extract(archive.c_str(), capture, 32, nullptr, out.c_str()), 19);
  EXPECT_NE(errors().find("Warning: Content NOT extracted\r\n"), std::string::npos);
  EXPECT_FALSE(fs::exists(out + "/s/a.txt"));
  EXPECT_EQ(tool->pbo_Extract(archive.c_str(), capture, 0, nullptr, out.c_str()), 19);
  EXPECT_NE(errors().find("Warning: Content extracted regardless\r\n"), std::string::npos);
  EXPECT_EQ(read_file(out + "/s/a.txt"), "payloae");
  // A file where a later entry needs a folder.
  EXPECT_EQ(extract(Builder().file("a", "1").file("a\\b", "2")), 16);
  EXPECT_EQ(read_file(out + "/arc/a"), "1");  // what was written stays
}

TEST_F(ExtractFixture, HostileNamesAreRefusedAndTheRestStillExtracts) {
  struct Case {
    char const* name;
    int result;
    char const* lands;  // where a legitimate name lands, relative to out/arc
  } cases[] = {
      {"..\\evil.txt", 52, nullptr},     {"../evil.txt", 52, nullptr},        {"\\evil.txt", 52, nullptr},
      {"/tmp/evil.txt", 52, nullptr},    {"c:\\evil.txt", 52, nullptr},       {"a\\..\\..\\evil.txt", 52, nullptr},
      {"a\\b\\..\\..\\..\\x", 52, nullptr}, {"..", 52, nullptr},              {"a\\..", 52, nullptr},
      {"a\\..\\fine.txt", 0, "fine.txt"}, {".\\x\\.\\y.txt", 0, "x/y.txt"}, {"a\\\\b.txt", 0, "a/b.txt"},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.name);
    clear_captured();
    fs::remove_all(out);
    EXPECT_EQ(extract(Builder().file("first.txt", "1").file(c.name, "evil").file("last.txt", "3")), c.result);
    EXPECT_EQ(read_file(out + "/arc/first.txt"), "1");
    EXPECT_EQ(read_file(out + "/arc/last.txt"), "3");
    if (c.lands) {
      EXPECT_EQ(read_file(out + "/arc/" + c.lands), "evil");
    }
    if (c.result) {
      EXPECT_NE(errors().find("Pbo entry name escapes the destination folder"), std::string::npos);
    }
    for (auto const& f : all_files())
      EXPECT_TRUE(f == "in/arc.pbo" || f == "outside/canary" || f.rfind("out/arc/", 0) == 0) << f;
    EXPECT_FALSE(fs::exists("/tmp/evil.txt"));
  }
}

TEST_F(ExtractFixture, LinksInTheDestinationAreNeverFollowed) {
  fs::create_directories(out + "/arc");
  fs::create_directory_symlink(dir.path / "outside", out + "/arc/link");
  fs::create_symlink(dir.path / "outside/canary", out + "/arc/leaf.txt");
  EXPECT_EQ(extract(Builder().file("link\\evil.txt", "x").file("leaf.txt", "x").file("ok.txt", "y")), 52);
  EXPECT_EQ(read_file(dir / "outside/canary"), "canary");
  EXPECT_FALSE(fs::exists(dir / "outside/evil.txt"));
  EXPECT_EQ(read_file(out + "/arc/ok.txt"), "y");

  // A prefix is the archive's word too: it may not climb out or run through a link.
  for (char const* prefix : {"..\\..\\up", "\\rooted", "link\\x"}) {
    SCOPED_TRACE(prefix);
    fs::create_directories(out);
    if (!fs::is_symlink(out + "/link")) fs::create_directory_symlink(dir.path / "outside", out + "/link");
    EXPECT_EQ(extract(Builder().prop("prefix", prefix).file("a.txt", "z")), 52);
    for (auto const& f : all_files()) EXPECT_TRUE(f.rfind("out/", 0) == 0 || f == "in/arc.pbo" || f == "outside/canary") << f;
    EXPECT_FALSE(fs::exists(dir / "outside/x"));
  }
}

// Every archive of the corpus extracts, and every entry is written with the bytes that a reader
// sharing no code with the library finds in it.
TEST(PboCorpus, EveryArchiveExtractsWithExactBytes) {
  fs::path corpus = fs::path(VENDRAK_CORPUS) / "pbo";
  if (!fs::is_directory(corpus)) GTEST_SKIP() << "no corpus at " << corpus;
  int seen = 0;
  for (auto& file : fs::directory_iterator(corpus)) {
    if (file.path().extension() != ".pbo") continue;
    SCOPED_TRACE(file.path().filename().string());
    ++seen;
    Listing l = list_archive(read_file(file.path().string()));
    ASSERT_TRUE(l.ok);
    TempDir out;
    BisDLL dll;
    Vendrak* tool = dll.dll_GetVendrak();
    clear_captured();
    tool->pbo_GetIO()->io_SetErrCallBack(capture_err);
    ASSERT_EQ(tool->pbo_Extract(file.path().c_str(), capture, 8, nullptr, out.path.c_str()), 0) << errors();
    std::string base = file.path().stem().string();
    for (auto const& [n, v] : l.properties)
      if (n == "prefix" && !v.empty()) base = v;
    for (char& c : base)
      if (c == '\\') c = '/';
    for (auto const& e : l.entries) {
      std::string rel = e.name;
      for (char& c : rel)
        if (c == '\\') c = '/';
      EXPECT_EQ(read_file((out.path / base / rel).string()), e.bytes) << e.name;
    }
  }
  EXPECT_GT(seen, 10);
}

TEST(PboCommandLine, ExitStatusIsTheResultCode) {
  TempDir dir;
  std::string cli = VENDRAK_CLI_PATH;
  std::string shipped = std::string(VENDRAK_TEST_DATA) + "/pbo/cba_diagnostic_enable_logging.pbo";
  auto run = [&](std::string const& args) {
    std::string cmd = "'" + cli + "' " + args + " >'" + (dir / "stdout") + "' 2>'" + (dir / "stderr") + "'";
    int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  EXPECT_EQ(run("info '" + shipped + "'"), 0);
  EXPECT_NE(read_file(dir / "stdout").find("//Pbo Type is: Arma Addon\n"), std::string::npos);
  EXPECT_EQ(run("list --names '" + shipped + "'"), 0);
  EXPECT_EQ(read_file(dir / "stdout"), "config.bin\nscript_component.hpp\n");
  EXPECT_EQ(run("extract --quiet --files '*.hpp' '" + shipped + "' '" + (dir / "x") + "'"), 0);
  std::string folder = dir / "x/x/cba/addons/diagnostic_enable_logging";
  EXPECT_TRUE(fs::exists(folder + "/script_component.hpp"));
  EXPECT_TRUE(fs::exists(folder + "/$PBOPREFIX$.txt"));
  EXPECT_FALSE(fs::exists(folder + "/config.bin"));
  EXPECT_EQ(run("extract --warnings-as-errors --files '*.nothing' '" + shipped + "' '" + (dir / "y") + "'"), 27);
  EXPECT_EQ(run("info '" + (dir / "missing.pbo") + "'"), 3);
  EXPECT_NE(read_file(dir / "stderr").find("invalid file"), std::string::npos);
}

TEST_F(ExtractFixture, BinarisedConfigsAreDecodedToText) {
  Listing shipped = list_archive(read_file(std::string(VENDRAK_TEST_DATA) + "/pbo/cba_diagnostic_enable_logging.pbo"));
  ASSERT_TRUE(shipped.ok);
  std::string rap = shipped.entries[0].bytes;  // config.bin
  ASSERT_EQ(rap.substr(1, 3), "raP");
  Builder b = Builder().file("config.bin", rap).file("sub\\config.bin", "not a config").file("mission.sqm", rap, true);
  for (int flags : {2, 2 | 64}) {
    SCOPED_TRACE(flags);
    clear_captured();
    fs::remove_all(out);
    ASSERT_EQ(extract(b, flags), 0) << errors();
    std::string text = read_file(out + "/arc/config.cpp");
    EXPECT_EQ(text.rfind("////", 0), 0u);
    EXPECT_NE(text.find("class CfgPatches"), std::string::npos);
    EXPECT_EQ(text.find('\t') == std::string::npos, (flags & 64) != 0);
    EXPECT_FALSE(fs::exists(out + "/arc/config.bin"));
    EXPECT_EQ(read_file(out + "/arc/sub/config.bin"), "not a config");
    EXPECT_NE(read_file(out + "/arc/mission.sqm").find("class CfgPatches"), std::string::npos);
    EXPECT_NE(messages().find("config.bin (kaltorped) (renaming output to config.cpp)\r\nsub\\config.bin\r\n"
                              "mission.sqm (decompressed/decrypted) (kaltorped)\r\n"),
              std::string::npos)
        << messages();
  }
  // Without the flag the bytes are written as they are.
  ASSERT_EQ(extract(b, 0), 0);
  EXPECT_EQ(read_file(out + "/arc/config.bin"), rap);

  std::string broken = rap.substr(0, 20) + std::string(40, '\x7f');
  EXPECT_EQ(extract(Builder().file("a.txt", "first").file("bad.bin", broken), 2), 17);
  EXPECT_NE(errors().find("\r\nbad.bin->"), std::string::npos) << errors();
  EXPECT_EQ(read_file(out + "/arc/a.txt"), "first");
}
