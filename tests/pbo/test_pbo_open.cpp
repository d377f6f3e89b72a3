// Opening archives: kinds, reports, trailers, header faults and entry data.
#include <gtest/gtest.h>

#include "PboBuilder.h"
#include "text/TokenPairs.h"

using namespace pbotest;

namespace {
struct OpenFixture : ToolFixture {
  int open_bytes(std::string const& bytes, int flags = 0) {
    write_file(dir / "a.pbo", bytes);
    return tool->pbo_Open((dir / "a.pbo").c_str(), capture, flags);
  }
  int open(Builder const& b, int flags = 0) { return open_bytes(b.build(), flags); }
  std::string entry_data(pbo_entry* e, int flags = 0) {
    int size = 0;
    auto* data = tool->pbo_ReadEntryData(e, &size, flags);
    return data ? std::string(reinterpret_cast<char const*>(data), static_cast<size_t>(size)) : "<null>";
  }
};

Builder prefixed(std::string prefix = "x\\y") { return Builder().prop("prefix", std::move(prefix)); }
auto const SHA = Builder::SHA, ELITE = Builder::ELITE;

TEST_F(OpenFixture, KindAndContentReportFollowPropertiesTrailerAndRootFiles) {
  struct Case {
    Builder b;
    uint32_t kind;
    char const* line;
  } const cases[] = {
      {Builder(), 0, "//Pbo Type is: CWC Unknown pbo type (no config)\r\n"},  // an end record alone
      {Builder().file("mission.sqm"), 0, "//Pbo Type is: CWC Mission\r\n"},
      {Builder().file("Description.ext"), 0, "//Pbo Type is: CWC Campaign\r\n"},
      {Builder().file("sub\\config.cpp"), 0, "//Pbo Type is: CWC Unknown pbo type (no config)\r\n"},
      {Builder().prop("product", "OFP").file("config.cpp"), 128, "//Pbo Type is: Resistance Addon\r\n"},
      {Builder().prop("product", "OFP").file("config.bin").file("mission.sqm"), 128,
       "//Pbo Type is: Resistance Mission Addon\r\n"},
      {prefixed().file("config.bin"), 256,
       "//Pbo Type is: Xbox Elite or Arma but missing checksum/sha (possibly a mission.pbo)\r\n"},
      {prefixed().file("a.paa").seal(ELITE), 512, "//Pbo Type is: Elite Unknown Addon (no config)\r\n"},
      {prefixed().seal(ELITE), 512, "//Checksum: '00000000'\r\n"},
      {prefixed().file("config.cpp").file("description.ext").seal(ELITE), 512,
       "//Pbo Type is: Elite Campaign Addon\r\n"},
      {prefixed().file("config.bin").seal(SHA), 1024, "//Pbo Type is: Arma Addon\r\n"},
      {Builder().prop("PREFIX", "p").file("config.bin").seal(SHA), 1024, "//Pbo Type is: Arma Addon\r\n"},
      {prefixed().file("mission.sqm").seal(SHA), 1024, "//Pbo Type is: Arma Mission with irrelevant prefix\r\n"},
      {prefixed().file("config.cpp").file("description.ext").seal(SHA), 1024, "//Pbo Type is: Arma Campaign addon\r\n"},
      {prefixed().file("a.paa").seal(SHA), 1024, "//Pbo Type is: Arma Unknown pbo typ (no config).\r\n"},
      {Builder().file("config.cpp").file("mission.sqm").seal(SHA), 0x10000,
       "//Pbo Type is: Arma Mission Addon. No prefix (pboname assumed)\r\n"},
      {Builder().prop("product", "x").seal(SHA), 0x10000,
       "//Pbo Type is: Arma Unknown pbo type (no config). No prefix (pboname assumed)\r\n"},
      {Builder().file("config.cpp").seal(SHA), 0x10000,
       "//Pbo Type is: Arma Addon without prefix (pboname assumed)\r\n"},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.line);
    clear_captured();
    EXPECT_EQ(open(c.b), 0) << errors();
    EXPECT_EQ(tool->pbo_GetType(), c.kind);
    std::string report = tool->pbo_GetReport();
    EXPECT_NE(report.find(c.line), std::string::npos) << report;
    EXPECT_EQ(messages(), report);  // printed whole
    EXPECT_EQ(report.substr(report.size() - 27), "//////</properties>//////\r\n");
  }
}

TEST_F(OpenFixture, ReportListsPropertiesInFileOrderAndTheDigest) {
  Builder b = prefixed("a\\b").prop("version", "1").prop("prefix", "dup").file("config.bin").seal(SHA);
  ASSERT_EQ(open(b), 0);
  std::string bytes = b.build();
  EXPECT_EQ(tool->pbo_GetReport(), "///<'" + (dir / "a.pbo") +
                                       "' properties via Ostrel's tools, dll version 6.54>///\r\n"
                                       "prefix=a\\b\r\nversion=1\r\nprefix=dup\r\n//Pbo Type is: Arma Addon\r\n"
                                       "//Sha: '" + hex(bytes.substr(bytes.size() - 20)) +
                                       "'\r\n//////</properties>//////\r\n");
  EXPECT_STREQ(tool->pbo_GetPrefix(), "a\\b");  // the first of duplicates
  EXPECT_STREQ(tool->pbo_GetProperty("VERSION")->value(), "1");
}

TEST_F(OpenFixture, TrailerAndWarningResults) {
  Builder residual = Builder().file("a.txt");
  residual.extra = "abc";
  struct Case {
    Builder b;
    int flags, result;
    char const* error_text;  // expected in the error stream
  } const cases[] = {
      {residual, 0, 0, "Warning: Vendrak has residual bytes (possibly a tool signature)\r\n"},
      {residual, 32, 25, ""},
      {prefixed().file("a.txt"), 0, 0, "Warning: no sha key\r\n"},
      {prefixed().file("a.txt"), 32, 26, ""},
      {Builder().file("a.txt").seal(ELITE), 0, 0, "residual bytes"},  // five bytes without a prefix
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.error_text);
    clear_captured();
    EXPECT_EQ(open(c.b, c.flags), c.result);
    EXPECT_NE(errors().find(c.error_text), std::string::npos) << errors();
  }
  std::string bytes = prefixed().file("a.txt").seal(SHA).build();
  bytes[bytes.size() - 21] = 1;  // a non-zero byte where the digest's lead byte belongs
  EXPECT_EQ(open_bytes(bytes), 19);
}

TEST_F(OpenFixture, HeaderFaultsGiveTheirCodesAndLeaveNothingOpen) {
  std::string good = Builder().file("a.txt", "abc").build(), twice = Builder().prop("a", "b").build(),
              strange = Builder().build();
  twice.insert(0, twice.substr(0, twice.find("b") + 3));  // a second properties record in front
  strange[1] = 'Q';                                       // an unnamed record with a strange method
  struct Case {
    char const* what;
    std::string bytes;
    int result;
  } const cases[] = {
      {"unknown packing method", Builder().file("a").set(&File::method, 7).build(), 12},
      {"stored entry claiming compression", Builder().file("a").set(&File::original, 99).build(), 12},
      {"uncompressed Cprs in a prefixed archive", prefixed().file("a").set(&File::method, kCprs).build(), 12},
      {"two properties records", twice, 11},
      {"strange unnamed record", strange, 12},
      {"truncated header", good.substr(0, 10), 1},
      {"header without end record", good.substr(0, good.size() - 3 - 21), 1},
      {"data running past the end", good.substr(0, good.size() - 1), 1},
      {"huge data size", Builder().file("a").set(&File::size, 0x7FFFFFFF).build(), 1},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(open_bytes(c.bytes), c.result);
    EXPECT_EQ(tool->GetCount(), 0u);
    EXPECT_EQ(tool->pbo_GetProperties(), nullptr);
  }
}

TEST_F(OpenFixture, PackedEntriesUnpackAndLiesAboutSizeAreRefused) {
  std::string text = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaabbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb0123456789";
  Builder b = Builder().file("good.txt", text, true).file("bomb.txt", "zzzzzzzzzz", true).file("bad.txt", text, true);
  b.files[1].original = 0x7FFFFFF0;  // ten bytes cannot expand that far
  b.file("old.txt", "plain").set(&File::method, kCprs);  // the oldest archives mark stored entries packed
  ASSERT_EQ(open(b), 0);
  pbo_entry* good = tool->pbo_FindEntry("good.txt");
  ASSERT_TRUE(good->pbe_iscompressed());
  clear_captured();
  EXPECT_EQ(entry_data(good), text);
  EXPECT_EQ(messages(), " (decompressed/decrypted)");
  EXPECT_EQ(entry_data(tool->pbo_FindEntry("old.txt")), "plain");
  EXPECT_EQ(entry_data(tool->pbo_FindEntry("bomb.txt"), 2), "<null>");
  EXPECT_EQ(tool->pbo_GetLastError(), 10);
  // Leaving data packed hands out the stored bytes.
  pbo_entry* bad = tool->pbo_FindEntry("bad.txt");
  EXPECT_EQ(entry_data(bad, 4 | 2).size(), bad->pbe_GetStoredDataSize());
  // A stream whose byte-sum is wrong.
  std::string bytes = Builder().file("a.txt", "abcdefghijklmnop", true).build();
  bytes.back() ^= 1;
  ASSERT_EQ(open_bytes(bytes), 0);
  EXPECT_EQ(entry_data(tool->pbo_GetFirstEntry(), 2), "<null>");
  EXPECT_EQ(tool->pbo_GetLastError(), 10);
}

TEST_F(OpenFixture, MissingArchiveFallsBackToOtherExtensions) {
  write_file(dir / "b.ifa", Builder().file("x").build());
  EXPECT_EQ(tool->pbo_Open((dir / "b.pbo").c_str(), capture, 0), 0);  // b.pbo is absent: b.ifa serves
  EXPECT_EQ(tool->pbo_Open((dir / "missing.pbo").c_str(), capture, 0), 3);
}

}  // namespace
