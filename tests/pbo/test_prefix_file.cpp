// Prefix files: reading them into the property list, writing the list back, setting properties,
// and the properties record a new archive starts with.
#include <gtest/gtest.h>

#include "PboBuilder.h"
#include "text/TokenPairs.h"

using namespace pbotest;
using Pairs = std::vector<std::pair<std::string, std::string>>;

namespace {
struct PrefixFixture : ToolFixture {
  Pairs properties() const {
    Pairs out;
    for (TokenPair* p = tool->pbo_GetProperties(); p; p = p->GetNext()) out.emplace_back(p->name(), p->value());
    return out;
  }
  // Makes an archive of one file with the properties set so far, and lists it.
  Listing make(int mode, char const* prefix = nullptr) {
    write_file(dir / "f.sqf", "hint 1;");
    std::string name = dir / "made";
    EXPECT_EQ(tool->pbo_Create(name.c_str(), mode, prefix, capture), 1);
    EXPECT_EQ(tool->pbo_AddOrReplaceFile("f.sqf", (dir / "f.sqf").c_str(), 0), 0);
    EXPECT_EQ(tool->pbo_WriteDataBlockAndClose(true), 0);
    return list_archive(read_file(name + ".pbo"));
  }
};

TEST_F(PrefixFixture, ParsesTheLinesOfAPrefixFile) {
  struct Case {
    char const* text;
    int result;
    char const* prefix;
    Pairs pairs;
  } const cases[] = {
      {"x\\y", 1, "x\\y", {}},
      {"x/y\r\nproduct=p\r\n", 1, "x\\y", {{"product", "p"}}},
      // Saved by an editor that marks UTF-8: the mark is not part of the prefix.
      {"\xEF\xBB\xBF" "x\\y\r\n", 1, "x\\y", {}},
      // Trimmed first, then cut at the comment: the blank before ';' stays.
      {"prefix=a\\b ;comment\n", 1, "a\\b ", {{"prefix", "a\\b "}}},
      {"a=b=c\n  name =  v  \n", 1, "", {{"name", "v"}}},
      {"k=1\nno equals here\nk=2\n", 1, "", {{"k", "1"}, {"k", "2"}}},
      {"first\nsecond line\n", 1, "first", {}},
      // The report extraction writes: its banner and kind lines are comments, its pairs are kept.
      {"///<'a.pbo' properties via some tool>///\r\nprefix=p\\q\r\nversion=1\r\n//Pbo Type is: Arma Addon\r\n", 1,
       "p\\q", {{"prefix", "p\\q"}, {"version", "1"}}},
      {"///<'m.pbo' report>///\r\n//Pbo Type is: CWC Mission\r\n", 1, "", {}},
      {"", 0, "", {}},
  };
  for (auto const& c : cases) {
    tool->pbo_SetProperty("stale", "1");
    write_file(dir / "$PBOPREFIX$", c.text);
    EXPECT_EQ(tool->pbo_ParsePrefixFile((dir / "$PBOPREFIX$").c_str()), c.result) << c.text;
    EXPECT_STREQ(tool->pbo_GetPrefixPath(), c.prefix) << c.text;
    EXPECT_EQ(properties(), c.pairs) << c.text;
  }
  EXPECT_EQ(tool->pbo_ParsePrefixFile((dir / "missing").c_str()), 0);
}

TEST_F(PrefixFixture, SettingAPropertyKeepsItsPlaceAndTheFileRoundTrips) {
  tool->pbo_SetProperty("a", "1");
  tool->pbo_SetProperty("B", "2");
  tool->pbo_SetProperty("b", "3");  // names match without regard to case
  EXPECT_STREQ(tool->pbo_SetPrefix("p\\q"), "p\\q");
  TokenPair pair("a", "4");
  tool->pbo_SetProperty(&pair);
  EXPECT_EQ(properties(), (Pairs{{"a", "4"}, {"B", "3"}, {"prefix", "p\\q"}}));
  EXPECT_STREQ(tool->pbo_GetPrefix(), "p\\q");

  std::string file = dir / "props.txt";
  ASSERT_EQ(tool->pbo_WriteParsedPrefixFile(file.c_str()), 1);
  EXPECT_EQ(read_file(file), "a=4\r\nB=3\r\nprefix=p\\q\r\n");
  ASSERT_EQ(tool->pbo_ParsePrefixFile(file.c_str()), 1);
  EXPECT_EQ(properties(), (Pairs{{"a", "4"}, {"B", "3"}, {"prefix", "p\\q"}}));
  EXPECT_EQ(tool->pbo_WriteParsedPrefixFile((dir / "no/such/folder/x.txt").c_str()), 0);
}

TEST_F(PrefixFixture, PropertiesRecordOfEachStyle) {
  struct Case {
    int mode;
    char const* prefix;
    Pairs stored;
    Pairs expected;
    bool has_record;
  } const cases[] = {
      {1024 | Vendrak::MAKE_REPRODUCIBLE, "a\\b", {{"product", "x"}},
       {{"prefix", "a\\b"}, {"product", "x"}, {"version", "00000000"}}, true},
      // A stored version suppresses the generated one; ostrel and cfgWorlds never reach the header.
      {512, "p", {{"version", "7"}, {"CfgWorlds", "w"}, {"OSTREL", "o"}, {"z", "1"}},
       {{"prefix", "p"}, {"version", "7"}, {"z", "1"}}, true},
      {128, "ignored", {{"z", "1"}}, {{"product", "OFP: Resistance"}, {"z", "1"}, {"version", "00000000"}}, true},
      {256, nullptr, {}, {{"version", "00000000"}}, true},
      {0, "p", {{"z", "1"}}, {}, false},
  };
  for (auto const& c : cases) {
    tool->ClosePbo();
    tool->pbo_ParsePrefixFile((dir / "none").c_str());  // clears the list and the prefix
    for (auto const& [n, v] : c.stored) tool->pbo_SetProperty(n.c_str(), v.c_str());
    int mode = c.mode == 256 ? 256 | Vendrak::MAKE_REPRODUCIBLE : c.mode;
    Listing l = make(mode, c.prefix);
    ASSERT_TRUE(l.ok) << c.mode;
    EXPECT_EQ(l.properties, c.expected) << c.mode;
    EXPECT_EQ(read_file(dir / "made.pbo").compare(0, 5, std::string("\0sreV", 5)) == 0, c.has_record) << c.mode;
  }
  // Without the reproducible bit the version is the hour of making: eight digits.
  tool->ClosePbo();
  tool->pbo_ParsePrefixFile((dir / "none").c_str());
  Listing l = make(1024, "p");
  ASSERT_EQ(l.properties.size(), 2u);
  EXPECT_EQ(l.properties[1].first, "version");
  EXPECT_EQ(l.properties[1].second.size(), 8u);
  EXPECT_NE(l.properties[1].second, "00000000");
}
}  // namespace
