// Opening archives: kinds, content classes, trailers, header faults and entry data.
#include <gtest/gtest.h>

#include "PboTestSupport.h"
#include "core/BisDLL.h"
#include "io/BisFileIO.h"
#include "pbo/Vendrak.h"
#include "text/TokenPairs.h"

using namespace pbotest;

namespace {
struct OpenFixture : ::testing::Test {
  TempDir dir;
  BisDLL dll;
  Vendrak* tool = dll.dll_GetVendrak();
  OpenFixture() {
    clear_captured();
    tool->pbo_GetIO()->io_SetErrCallBack(capture_err);
  }
  int open(Builder const& b, int flags = 0, std::string const& name = "a.pbo") {
    write_file(dir / name, b.build());
    return tool->pbo_Open((dir / name).c_str(), capture, flags);
  }
};

Builder with_prefix(std::string prefix = "x\\y") { return Builder().prop("prefix", std::move(prefix)); }
}  // namespace

TEST_F(OpenFixture, KindAndContentReportFollowPropertiesTrailerAndRootFiles) {
  struct Case {
    Builder b;
    uint32_t kind;
    char const* line;
  };
  auto sha = [](Builder b) {
    b.trailer = Builder::SHA;
    return b;
  };
  auto elite = [](Builder b) {
    b.trailer = Builder::ELITE;
    return b;
  };
  Case cases[] = {
      {Builder().file("mission.sqm"), 0, "//Pbo Type is: CWC Mission\r\n"},
      {Builder().file("Description.ext"), 0, "//Pbo Type is: CWC Campaign\r\n"},
      {Builder().file("sub\\config.cpp"), 0, "//Pbo Type is: CWC Unknown pbo type (no config)\r\n"},
      {Builder().prop("product", "OFP").file("config.cpp"), 128, "//Pbo Type is: Resistance Addon\r\n"},
      {Builder().prop("product", "OFP").file("config.bin").file("mission.sqm"), 128,
       "//Pbo Type is: Resistance Mission Addon\r\n"},
      {with_prefix().file("config.bin"), 256,
       "//Pbo Type is: Xbox Elite or Arma but missing checksum/sha (possibly a mission.pbo)\r\n"},
      {elite(with_prefix().file("a.paa")), 512, "//Pbo Type is: Elite Unknown Addon (no config)\r\n"},
      {elite(with_prefix().file("config.cpp").file("description.ext")), 512,
       "//Pbo Type is: Elite Campaign Addon\r\n"},
      {sha(with_prefix().file("config.bin")), 1024, "//Pbo Type is: Arma Addon\r\n"},
      {sha(Builder().prop("PREFIX", "p").file("config.bin")), 1024, "//Pbo Type is: Arma Addon\r\n"},
      {sha(with_prefix().file("mission.sqm")), 1024, "//Pbo Type is: Arma Mission with irrelevant prefix\r\n"},
      {sha(with_prefix().file("config.cpp").file("description.ext")), 1024,
       "//Pbo Type is: Arma Campaign addon\r\n"},
      {sha(with_prefix().file("a.paa")), 1024, "//Pbo Type is: Arma Unknown pbo typ (no config).\r\n"},
      {sha(Builder().file("config.cpp").file("mission.sqm")), 0x10000,
       "//Pbo Type is: Arma Mission Addon. No prefix (pboname assumed)\r\n"},
      {sha(Builder().prop("product", "x")), 0x10000,
       "//Pbo Type is: Arma Unknown pbo type (no config). No prefix (pboname assumed)\r\n"},
      {sha(Builder().file("config.cpp")), 0x10000, "//Pbo Type is: Arma Addon without prefix (pboname assumed)\r\n"},
  };
  int i = 0;
  for (auto& c : cases) {
    SCOPED_TRACE(i++);
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
  Builder b = with_prefix("a\\b").prop("version", "1").prop("prefix", "dup");
  b.trailer = Builder::SHA;
  b.file("config.bin");
  ASSERT_EQ(open(b), 0);
  std::string digest = sha1(b.build().substr(0, b.build().size() - 21));
  char hex[41];
  for (int i = 0; i < 20; ++i) std::snprintf(hex + 2 * i, 3, "%02X", static_cast<uint8_t>(digest[static_cast<size_t>(i)]));
  std::string expected = "///<'" + (dir / "a.pbo") +
                         "' properties via Ostrel's tools, dll version 6.54>///\r\n"
                         "prefix=a\\b\r\nversion=1\r\nprefix=dup\r\n"
                         "//Pbo Type is: Arma Addon\r\n//Sha: '" +
                         hex + "'\r\n//////</properties>//////\r\n";
  EXPECT_EQ(tool->pbo_GetReport(), expected);
  EXPECT_STREQ(tool->pbo_GetPrefix(), "a\\b");  // the first of duplicates
  EXPECT_TRUE(tool->pbo_HasPrefix());
  EXPECT_STREQ(tool->pbo_GetProperty("VERSION")->value(), "1");
  EXPECT_EQ(tool->pbo_GetProperty(nullptr), tool->pbo_GetProperties());
}

TEST_F(OpenFixture, EliteReportShowsAnUnreadChecksum) {
  Builder b = with_prefix();
  b.trailer = Builder::ELITE;
  ASSERT_EQ(open(b), 0);
  EXPECT_NE(std::string(tool->pbo_GetReport()).find("//Checksum: '00000000'\r\n"), std::string::npos);
}

TEST_F(OpenFixture, AnEndRecordAloneIsAnEmptyCwcArchive) {
  write_file(dir / "e.pbo", std::string(21, '\0'));
  ASSERT_EQ(tool->pbo_Open((dir / "e.pbo").c_str(), capture, 0), 0);
  EXPECT_EQ(tool->pbo_GetType(), 0u);
  EXPECT_EQ(tool->GetCount(), 0u);
  EXPECT_NE(messages().find("//Pbo Type is: CWC Unknown pbo type (no config)\r\n"), std::string::npos);
}

TEST_F(OpenFixture, TrailerAndWarningResults) {
  struct Case {
    char const* what;
    Builder b;
    int flags;
    int result;
    char const* error_text;  // expected in the error stream ("" for none)
  };
  Builder residual = Builder().file("a.txt");
  residual.extra = "abc";
  Builder elite_unprefixed = Builder().file("a.txt");
  elite_unprefixed.trailer = Builder::ELITE;
  Builder bad_lead = with_prefix().file("a.txt");
  bad_lead.trailer = Builder::SHA;
  Case cases[] = {
      {"residual bytes", residual, 0, 0, "Warning: Vendrak has residual bytes (possibly a tool signature)\r\n"},
      {"residual bytes, strict", residual, 32, 25, ""},
      {"prefix without sha", with_prefix().file("a.txt"), 0, 0, "Warning: no sha key\r\n"},
      {"prefix without sha, strict", with_prefix().file("a.txt"), 32, 26, ""},
      {"five bytes without prefix", elite_unprefixed, 0, 0, "residual bytes"},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.what);
    clear_captured();
    EXPECT_EQ(open(c.b, c.flags), c.result);
    if (*c.error_text) {
      EXPECT_NE(errors().find(c.error_text), std::string::npos) << errors();
    }
  }
  // A non-zero byte where the digest's lead byte belongs.
  std::string bytes = bad_lead.build();
  bytes[bytes.size() - 21] = 1;
  write_file(dir / "lead.pbo", bytes);
  EXPECT_EQ(tool->pbo_Open((dir / "lead.pbo").c_str(), capture, 0), 19);
}

TEST_F(OpenFixture, FlippedDataByteInSealedArchiveWarnsWithBothDigestsAndStaysReadable) {
  Builder b = with_prefix().file("config.bin", "hello world");
  b.trailer = Builder::SHA;
  std::string bytes = b.build();
  size_t at = bytes.size() - 21 - 3;
  bytes[at] ^= 0x20;
  write_file(dir / "s.pbo", bytes);
  ASSERT_EQ(tool->pbo_Open((dir / "s.pbo").c_str(), capture, 16), 19);
  EXPECT_NE(messages().find("Verifying sha\r\n"), std::string::npos);
  std::string computed = sha1(bytes.substr(0, bytes.size() - 21));
  auto hex = [](std::string const& d) {
    std::string h;
    char two[3];
    for (unsigned char c : d) std::snprintf(two, 3, "%02X", c), h += two;
    return h;
  };
  std::string expected = "Warning: Bad Sha detected\r\nWarning: calculated='" + hex(computed) +
                         "'\r\nWarning: should be= '" + hex(bytes.substr(bytes.size() - 20)) + "'\r\n";
  EXPECT_NE(errors().find(expected), std::string::npos) << errors();
  pbo_entry* e = tool->pbo_FindEntry("config.bin");
  ASSERT_NE(e, nullptr);
  int size = 0;
  uint8_t const* data = tool->pbo_ReadEntryData(e, &size, 0);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(data), static_cast<size_t>(size)), "hello woRld");
}

TEST_F(OpenFixture, HeaderFaultsGiveTheirCodesAndLeaveNothingOpen) {
  auto with = [](Builder b, auto edit) {
    edit(b);
    return b;
  };
  std::string good = Builder().file("a.txt", "abc").build();
  struct Case {
    char const* what;
    std::string bytes;
    int result;
  };
  std::string twice = Builder().prop("a", "b").build();
  twice.insert(0, twice.substr(0, twice.find("b") + 3));  // a second properties record in front
  Case cases[] = {
      {"unknown packing method", with(Builder().file("a"), [](Builder& b) { b.files[0].method = 7; }).build(), 12},
      {"stored entry claiming compression",
       with(Builder().file("a"), [](Builder& b) { b.files[0].original = 99; }).build(), 12},
      {"uncompressed Cprs in a prefixed archive",
       with(with_prefix().file("a"), [](Builder& b) { b.files[0].method = kCprs; }).build(), 12},
      {"two properties records", twice, 11},
      {"truncated header", good.substr(0, 10), 1},
      {"header without end record", good.substr(0, good.size() - 3 - 21), 1},
      {"data running past the end", good.substr(0, good.size() - 1), 1},
      {"huge data size", with(Builder().file("a"), [](Builder& b) { b.files[0].size = 0x7FFFFFFF; }).build(), 1},
  };
  for (auto& c : cases) {
    SCOPED_TRACE(c.what);
    write_file(dir / "bad.pbo", c.bytes);
    EXPECT_EQ(tool->pbo_Open((dir / "bad.pbo").c_str(), capture, 0), c.result);
    EXPECT_EQ(tool->GetCount(), 0u);
    EXPECT_EQ(tool->pbo_GetProperties(), nullptr);
  }
  // An unnamed record with a strange method.
  std::string strange = Builder().build();
  strange[1] = 'Q';
  write_file(dir / "bad.pbo", strange);
  EXPECT_EQ(tool->pbo_Open((dir / "bad.pbo").c_str(), capture, 0), 12);
}

TEST_F(OpenFixture, OldestArchivesMayMarkStoredEntriesPacked) {
  Builder b = Builder().file("a.txt", "plain");
  b.files[0].method = kCprs;
  ASSERT_EQ(open(b), 0);
  int size = 0;
  auto* data = tool->pbo_ReadEntryData(tool->pbo_GetFirstEntry(), &size, 0);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(data), static_cast<size_t>(size)), "plain");
}

TEST_F(OpenFixture, StrangeValuesAreFlaggedButOpen) {
  Builder end = Builder().file("a");
  end.end_size = 5;
  Builder reserved = Builder().file("a");
  reserved.files[0].reserved = 1;
  struct Case {
    Builder b;
    int flag;
    char const* text;
  } cases[] = {
      {end, 1, "Strange values in header: 1st/last entry has non-zero 'UnpackedSize', 'reserved', or 'SizeOnDisk' field\r\n"},
      {reserved, 2, "Strange values in header: reserved field non zero anywhere in entry bodies (except xbo)\r\n"},
  };
  for (auto& c : cases) {
    clear_captured();
    ASSERT_EQ(open(c.b), 0);
    EXPECT_EQ(tool->pbo_GetStrangeValue(), c.flag);
    tool->pbo_ReportStrangeValues();
    EXPECT_NE(messages().find(c.text), std::string::npos);
  }
}

TEST_F(OpenFixture, PackedEntriesUnpackAndLiesAboutSizeAreRefused) {
  std::string text = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaabbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb0123456789";
  Builder b = Builder().file("good.txt", text, true).file("bomb.txt", "zzzzzzzzzz", true).file("bad.txt", text, true);
  b.files[1].original = 0x7FFFFFF0;  // ten bytes cannot expand that far
  ASSERT_EQ(open(b), 0);
  int size = 0;
  pbo_entry* good = tool->pbo_FindEntry("good.txt");
  ASSERT_TRUE(good->pbe_iscompressed());
  clear_captured();
  auto* data = tool->pbo_ReadEntryData(good, &size, 0);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(data), static_cast<size_t>(size)), text);
  EXPECT_EQ(messages(), " (decompressed/decrypted)");
  EXPECT_EQ(tool->pbo_ReadEntryData(tool->pbo_FindEntry("bomb.txt"), &size, 2), nullptr);
  EXPECT_EQ(tool->pbo_GetLastError(), 10);

  // Leaving data packed hands out the stored bytes.
  pbo_entry* bad = tool->pbo_FindEntry("bad.txt");
  data = tool->pbo_ReadEntryData(bad, &size, 4 | 2);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(static_cast<uint64_t>(size), bad->pbe_GetStoredDataSize());
}

TEST_F(OpenFixture, CorruptPackedStreamIsACompressionError) {
  std::string bytes = Builder().file("a.txt", "abcdefghijklmnop", true).build();
  bytes[bytes.size() - 1] ^= 1;  // the checksum
  write_file(dir / "c.pbo", bytes);
  ASSERT_EQ(tool->pbo_Open((dir / "c.pbo").c_str(), capture, 0), 0);
  int size = 0;
  EXPECT_EQ(tool->pbo_ReadEntryData(tool->pbo_GetFirstEntry(), &size, 2), nullptr);
  EXPECT_EQ(tool->pbo_GetLastError(), 10);
}

TEST_F(OpenFixture, NamesAndExtensions) {
  write_file(dir / "a.ifa", Builder().file("x").build());
  EXPECT_EQ(tool->pbo_Open((dir / "a.pbo").c_str(), capture, 0), 0);  // a.pbo is absent: a.ifa serves
  EXPECT_EQ(tool->pbo_Open((dir / "missing.pbo").c_str(), capture, 0), 3);
  EXPECT_EQ(Vendrak::pbo_PboExists((dir / "a").c_str()), 2);
  EXPECT_EQ(Vendrak::pbo_PboExists((dir / "a.ifa").c_str()), 2);
  EXPECT_EQ(Vendrak::pbo_PboExists((dir / "a.pbo").c_str()), 0);
  struct {
    char const* name;
    int ext;
  } exts[] = {{"x.pbo", 1}, {"X.IFA", 2}, {"a\\b.xbo", 3}, {"x.zip", 0}, {"pbo", 0}};
  for (auto& e : exts) EXPECT_EQ(Vendrak::pbo_HasPboExt(e.name), e.ext) << e.name;
}

TEST_F(OpenFixture, FindEntryComparesFileNamesOnly) {
  ASSERT_EQ(open(Builder().file("data\\a.paa", "1").file("other\\a.paa", "2").file("B.txt")), 0);
  EXPECT_STREQ(tool->pbo_FindEntry("other\\a.paa")->pbe_GetFilename(), "data\\a.paa");
  EXPECT_STREQ(tool->pbo_FindEntry("b.TXT")->pbe_GetFilename(), "B.txt");
  EXPECT_EQ(tool->pbo_FindEntry("c.txt"), nullptr);
}

TEST(PboErrorString, OwnCodesThenGenericOnes) {
  struct {
    int code;
    char const* text;
  } cases[] = {{19, "Vendrak corrupted sha key"},
               {-19, "Vendrak corrupted sha key"},
               {27, "No file(s) found to extract"},
               {52, "Pbo entry name escapes the destination folder"},
               {3, "invalid file"},
               {21, "dll Unknown throw Error"},
               {10000, "dll Unknown throw Error"}};
  for (auto& c : cases) EXPECT_STREQ(Vendrak::ErrorString(c.code), c.text) << c.code;
}
