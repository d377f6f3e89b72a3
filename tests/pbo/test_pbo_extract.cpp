// Extraction and listing: output folders, filters, prefix files, hostile names, the corpus and the
// command line.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>

#include "PboBuilder.h"
#include "support/CliRun.h"

using namespace pbotest;
namespace fs = std::filesystem;

namespace {
struct ExtractFixture : ToolFixture {
  std::string archive = dir / "in/arc.pbo", out = dir / "out";
  ExtractFixture() {
    fs::create_directories(dir.path / "in");
    fs::create_directories(dir.path / "outside");
    write_file(dir / "outside/canary", "canary");
  }
  int extract(std::string const& bytes, int flags = 0, char const* files = nullptr, char const* dest = "") {
    write_file(archive, bytes);
    return tool->pbo_Extract(archive.c_str(), capture, flags, files, dest && !*dest ? out.c_str() : dest);
  }
  int extract(Builder const& b, int flags = 0, char const* files = nullptr, char const* dest = "") {
    return extract(b.build(), flags, files, dest);
  }
  // Nothing exists below the scratch folder but the archive, the canary and what is below `below`.
  void expect_nothing_outside(std::string const& below) const {
    for (auto& e : fs::recursive_directory_iterator(dir.path)) {
      std::string f = e.path().lexically_relative(dir.path).string();
      bool file = !e.is_directory() || e.is_symlink();
      EXPECT_TRUE(!file || f == "in/arc.pbo" || f == "outside/canary" || f.rfind(below, 0) == 0) << f;
    }
  }
};

TEST_F(ExtractFixture, PrefixedArchiveGoesBelowDestinationWithItsPropertiesFile) {
  Builder b = Builder().prop("prefix", "x\\y").prop("version", "7").seal(Builder::SHA);
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
  // Without a prefix the folder is named after the archive, and without properties there is no file.
  ASSERT_EQ(extract(Builder().file("a.txt", "1")), 0);
  EXPECT_EQ(read_file(out + "/arc/a.txt"), "1");
  EXPECT_FALSE(fs::exists(out + "/arc/$PBOPREFIX$.txt"));
  // Without a destination the folder sits beside the archive; a prefix is then not used.
  ASSERT_EQ(extract(Builder().prop("prefix", "p\\q").file("b.txt", "2"), 0, nullptr, nullptr), 0);
  EXPECT_EQ(read_file(dir / "in/arc/b.txt"), "2");
  EXPECT_TRUE(fs::exists(dir / "in/arc/$PBOPREFIX$.txt"));
}

TEST_F(ExtractFixture, FileListsSelectEntries) {
  Builder b = Builder().prop("prefix", "m").file("mission.sqm", "s").file("init.sqf", "i").file("sub\\x.sqm", "x");
  b.seal(Builder::SHA);
  struct Case {
    char const* files;
    int flags, result;
    std::set<std::string> written;
    char const* warning;
  } const cases[] = {
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
    EXPECT_EQ(extract(b, c.flags, c.files), c.result);
    std::set<std::string> got;
    if (fs::exists(out + "/m"))
      for (auto& e : fs::recursive_directory_iterator(out + "/m"))
        if (e.is_regular_file()) got.insert(fs::relative(e.path(), out + "/m").string());
    EXPECT_EQ(got, c.written);
    EXPECT_NE(errors().find(c.warning), std::string::npos) << errors();
  }
}

TEST_F(ExtractFixture, EntryNamesAreMappedAndDated) {
  Builder b = Builder().prop("prefix", "p").file("$PBOPREFIX$", "baked");
  b.file("a*b.txt", "star").set(&File::stamp, 1234567890).file("old.txt", "0").set(&File::stamp, 0);
  write_file(archive, b.build());
  fs::last_write_time(archive, fs::file_time_type::clock::now() - std::chrono::hours(48));
  struct stat arc, st;
  ::stat(archive.c_str(), &arc);
  ASSERT_EQ(tool->pbo_Extract(archive.c_str(), capture, 0, nullptr, out.c_str()), 0);
  EXPECT_NE(messages().find("$PBOPREFIX$ ignoring an erroneous prefix file that was baked into a pbo\r\n"),
            std::string::npos);
  EXPECT_EQ(read_file(out + "/p/azb.txt"), "star");
  EXPECT_NE(read_file(out + "/p/$PBOPREFIX$.txt"), "baked");
  ASSERT_EQ(::stat((out + "/p/azb.txt").c_str(), &st), 0);
  EXPECT_EQ(st.st_mtime, 1234567890);
  ASSERT_EQ(::stat((out + "/p/old.txt").c_str(), &st), 0);
  EXPECT_EQ(st.st_mtime, arc.st_mtime);
}

TEST_F(ExtractFixture, ListingWritesNothing) {
  Builder b = Builder().file("a.txt", "12345").file("b.txt", std::string(100, 'b'), true);
  ASSERT_EQ(extract(b, 4 | 8), 0);
  EXPECT_EQ(messages(), "a.txt\r\nb.txt\r\n");
  EXPECT_FALSE(fs::exists(out));
  EXPECT_EQ(extract(Builder()), 24);  // nothing in it
}

// One flipped data byte in a sealed archive: three warning lines, and the content is still
// extracted unless warnings are errors.
TEST_F(ExtractFixture, FlippedByteInSealedArchive) {
  std::string bytes = Builder().prop("prefix", "s").file("a.txt", "payload").seal(Builder::SHA).build();
  bytes[bytes.size() - 22] ^= 1;
  EXPECT_EQ(extract(bytes, 32), 19);
  EXPECT_NE(errors().find("Warning: Content NOT extracted\r\n"), std::string::npos);
  EXPECT_FALSE(fs::exists(out + "/s/a.txt"));
  clear_captured();
  EXPECT_EQ(extract(bytes, 16), 19);
  EXPECT_NE(messages().find("Verifying sha\r\n"), std::string::npos);
  std::string expected = "Warning: Bad Sha detected\r\nWarning: calculated='" +
                         hex(sha1(bytes.substr(0, bytes.size() - 21))) + "'\r\nWarning: should be= '" +
                         hex(bytes.substr(bytes.size() - 20)) + "'\r\n";
  EXPECT_NE(errors().find(expected), std::string::npos) << errors();
  EXPECT_NE(errors().find("Warning: Content extracted regardless\r\n"), std::string::npos);
  EXPECT_EQ(read_file(out + "/s/a.txt"), "payloae");
  // A file where a later entry needs a folder: what was written stays.
  EXPECT_EQ(extract(Builder().file("a", "1").file("a\\b", "2")), 16);
  EXPECT_EQ(read_file(out + "/arc/a"), "1");
}

TEST_F(ExtractFixture, HostileNamesAreRefusedAndTheRestStillExtracts) {
  struct Case {
    char const* name;
    char const* lands;  // where a legitimate name lands, relative to out/arc; null: refused
  } const cases[] = {
      {"..\\evil.txt", nullptr},       {"../evil.txt", nullptr},     {"\\evil.txt", nullptr},
      {"/tmp/evil.txt", nullptr},      {"c:\\evil.txt", nullptr},    {"a\\..\\..\\evil.txt", nullptr},
      {"a\\b\\..\\..\\..\\x", nullptr}, {"..", nullptr},              {"a\\..", nullptr},
      {"a\\..\\fine.txt", "fine.txt"}, {".\\x\\.\\y.txt", "x/y.txt"}, {"a\\\\b.txt", "a/b.txt"},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.name);
    clear_captured();
    fs::remove_all(out);
    EXPECT_EQ(extract(Builder().file("first.txt", "1").file(c.name, "evil").file("last.txt", "3")), c.lands ? 0 : 52);
    EXPECT_EQ(read_file(out + "/arc/first.txt"), "1");
    EXPECT_EQ(read_file(out + "/arc/last.txt"), "3");
    if (c.lands) {
      EXPECT_EQ(read_file(out + "/arc/" + c.lands), "evil");
    } else {
      EXPECT_NE(errors().find("Pbo entry name escapes the destination folder"), std::string::npos);
    }
    expect_nothing_outside("out/arc/");
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
  fs::create_directory_symlink(dir.path / "outside", out + "/link");
  for (char const* prefix : {"..\\..\\up", "\\rooted", "link\\x"}) {
    SCOPED_TRACE(prefix);
    EXPECT_EQ(extract(Builder().prop("prefix", prefix).file("a.txt", "z")), 52);
    expect_nothing_outside("out/");
    EXPECT_FALSE(fs::exists(dir / "outside/x"));
  }
}

TEST_F(ExtractFixture, BinarisedConfigsAreDecodedToText) {
  Listing shipped = list_archive(read_file(std::string(VENDRAK_TEST_DATA) + "/pbo/cba_diagnostic_enable_logging.pbo"));
  ASSERT_TRUE(shipped.ok);
  std::string rap = shipped.entries[0].second;  // config.bin
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
  fs::remove_all(out);
  ASSERT_EQ(extract(b, 0), 0);  // without the flag the bytes are written as they are
  EXPECT_EQ(read_file(out + "/arc/config.bin"), rap);
  std::string broken = rap.substr(0, 20) + std::string(40, '\x7f');
  EXPECT_EQ(extract(Builder().file("a.txt", "first").file("bad.bin", broken), 2), 17);
  EXPECT_NE(errors().find("\r\nbad.bin->"), std::string::npos) << errors();
  EXPECT_EQ(read_file(out + "/arc/a.txt"), "first");
}

// Every archive of the corpus extracts, and every entry is written with the bytes that a reader
// sharing no code with the library finds in it.
using PboCorpus = ToolFixture;

TEST_F(PboCorpus, EveryArchiveExtractsWithExactBytes) {
  fs::path corpus = fs::path(VENDRAK_CORPUS) / "pbo";
  if (!fs::is_directory(corpus)) GTEST_SKIP() << "no corpus at " << corpus;
  int seen = 0;
  for (auto& file : fs::directory_iterator(corpus)) {
    if (file.path().extension() != ".pbo") continue;
    SCOPED_TRACE(file.path().filename().string());
    ++seen;
    Listing l = list_archive(read_file(file.path().string()));
    ASSERT_TRUE(l.ok);
    fs::path out = dir.path / file.path().stem();
    ASSERT_EQ(tool->pbo_Extract(file.path().c_str(), capture, 8, nullptr, out.c_str()), 0) << errors();
    std::string base = file.path().stem().string();
    for (auto const& [n, v] : l.properties)
      if (n == "prefix" && !v.empty()) base = v;
    for (auto const& [name, bytes] : l.entries) {
      std::string rel = base + "/" + name;
      std::replace(rel.begin(), rel.end(), '\\', '/');
      EXPECT_EQ(read_file((out / rel).string()), bytes) << name;
    }
  }
  EXPECT_GT(seen, 10);
}

TEST(PboCommandLine, ExitStatusIsTheResultCode) {
  TempDir dir;
  std::string shipped = std::string(VENDRAK_TEST_DATA) + "/pbo/cba_diagnostic_enable_logging.pbo";
  struct Case {
    std::string args;
    int status;
    char const* out;  // the whole standard output, or (with a status) a piece of standard error
  } const cases[] = {
      {"info '" + shipped + "'", 0, nullptr},
      {"list --names '" + shipped + "'", 0, "config.bin\nscript_component.hpp\n"},
      {"extract --quiet --files '*.hpp' '" + shipped + "' '" + (dir / "x") + "'", 0, ""},
      {"extract --warnings-as-errors --files '*.nothing' '" + shipped + "' '" + (dir / "y") + "'", 27, nullptr},
      {"info '" + (dir / "missing.pbo") + "'", 3, "missing.pbo: No such file or directory"},
  };
  for (auto const& c : cases) {
    clirun::CliRun r = clirun::run_tool(c.args, dir / "tool");
    EXPECT_EQ(r.status, c.status) << c.args << r.err;
    if (c.out && c.status) {
      EXPECT_NE(r.err.find(c.out), std::string::npos) << c.args;
    } else if (c.out) {
      EXPECT_EQ(r.out, c.out) << c.args;
    }
  }
  EXPECT_NE(clirun::run_tool("info '" + shipped + "'", dir / "tool").out.find("//Pbo Type is: Arma Addon\n"),
            std::string::npos);
  std::string folder = dir / "x/x/cba/addons/diagnostic_enable_logging";
  EXPECT_TRUE(fs::exists(folder + "/script_component.hpp"));
  EXPECT_FALSE(fs::exists(folder + "/config.bin"));
}

}  // namespace
