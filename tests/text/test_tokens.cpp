#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "text/BisTokens.h"
#include "text/TokenPairs.h"

namespace {

using Texts = std::vector<std::string>;

// The tokens front to back, checked against the back links and the count.
Texts texts(BisTokens const& t) {
  Texts v, back;
  for (BisToken* k = t.GetFirstToken(); k; k = k->GetNext()) v.emplace_back(k->c_str());
  for (Chain* c = t.GetLast(); c; c = c->GetPrevious()) back.insert(back.begin(), static_cast<BisToken*>(c)->c_str());
  EXPECT_EQ(v, back);
  EXPECT_EQ(v.size(), t.GetCount());
  return v;
}

TEST(BisTokens, CommaAndConcatenatedLists) {
  std::tuple<std::string, bool, Texts> const cases[] = {  // a concatenated list holds its own zeros
      {"a, b ,A,wss", true, {"a", "b", ".wss"}},
      {"\tOGG ,x.ogg,  jpg", true, {".OGG", "x.ogg", ".jpg"}},
      {"wss,.wss,paa", true, {".wss", ".paa"}},  // the bare form folds into the dotted one
      {"a,,b,", true, {"a", "b"}},
      {"  ", true, {}},
      {"wssx,pa", true, {"wssx", "pa"}},  // only whole bare extensions are dotted
      {std::string(" a \0b\0  \0A\0c\0\0ignored\0", 22), false, {"a", "b", "c"}},
      {std::string("\0", 1), false, {}},
  };
  for (auto const& [list, csv, tokens] : cases) {
    BisTokens t;
    t.tkn_add("left over");
    csv ? t.tkn_convert_csv(list.c_str()) : t.tkn_convert_cat(list.c_str());
    EXPECT_EQ(texts(t), tokens) << list;
  }
  // A list read from a file: byte order mark and line ends are separators, not text.
  BisTokens t;
  auto file = std::filesystem::temp_directory_path() / ("vendrak_list_" + std::to_string(::getpid()));
  std::ofstream(file, std::ios::binary) << "\xEF\xBB\xBF" "one,two,\r\nthree";
  t.tkn_convert_csv(file.c_str());
  std::filesystem::remove(file);
  EXPECT_EQ(texts(t), (Texts{"one", "two", "three"}));
}

TEST(BisTokens, AddFindAndStableSort) {
  BisTokens t;
  EXPECT_EQ(t.tkn_add("Abc"), 1);
  EXPECT_EQ(t.tkn_add("abc"), 0);
  EXPECT_EQ(t.tkn_add("abc", 1), 1);  // case-sensitive duplicate test
  EXPECT_EQ(t.tkn_add("MiXed", 2), 1);
  EXPECT_EQ(t.tkn_find_index("abc", 1), 1);
  EXPECT_EQ(texts(t), (Texts{"Abc", "abc", "mixed"}));
  for (Chain* c : {t.GetChain(1), t.GetFirst(), t.GetLast()}) t.DeleteChain(c);
  EXPECT_EQ(texts(t), Texts{});
  std::tuple<Texts, int, Texts> const sorts[] = {
      {{"ab", "abc", "x"}, 2, {"abc", "ab", "x"}},
      {{"b", "a", "c"}, 1, {"c", "b", "a"}},
      {{"b", "B", "a"}, 0, {"B", "a", "b"}},  // byte order: upper case first
      {{"xx", "a", "yy", "b", "zz"}, 2, {"xx", "yy", "zz", "a", "b"}},  // equal keys keep their order
  };
  for (auto const& [in, how, out] : sorts) {
    for (auto const& s : in) t.tkn_add(s.c_str(), 1);
    t.tkn_sort(how);
    EXPECT_EQ(texts(t), out);
    t.Clear();
  }
}

TEST(TokenPairs, NameValueLines) {
  struct Case {
    char const* line;
    int result;
    char const* pair;  // name=value expected afterwards, null when none is added
  } const cases[] = {
      {"prefix=x\\y;", 1, "prefix=x\\y"},    {"prefix x", 1, "prefix=x"},
      {"prefix\t=\t\"a b\"", 1, "prefix=a b"}, {"\"my name\" = v", 1, "my name=v"},
      {"version=1.0;\r\n", 1, "version=1.0"}, {"prefix=", -1, nullptr},
      {"prefix   ", 0, nullptr},              {"prefix", 0, nullptr},
      {"# a comment", 1, nullptr},            {"", 1, nullptr},
      {"prefix=;", 0, nullptr},               {"prefix=\"a\" b", 0, nullptr},  // the quote must end the line
      {"prefix=\"\"", 0, nullptr},            {"\"unclosed = v", 0, nullptr},
      {"\"\" = v", 0, nullptr},
  };
  for (auto const& c : cases) {
    TokenPairs p;
    EXPECT_EQ(p.tkn_add_token_equals(c.line), c.result) << c.line;
    TokenPair* first = p.GetFirstPair();
    EXPECT_EQ(first ? std::string(first->name()) + "=" + first->value() : "", c.pair ? c.pair : "") << c.line;
  }
  // A name keeps its first value; only a different value is complained about.
  TokenPairs p;
  EXPECT_EQ(p.tkn_add_token_equals("prefix=a"), 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(p.tkn_add_token_equals("PREFIX=A"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  EXPECT_EQ(p.tkn_add_token_equals("prefix=b"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "attempt to change tokenlist 'prefix' value\nfrom: 'a'\nto: 'b'\n");
  EXPECT_STREQ(p.tkn_find_value("Prefix"), "a");
  EXPECT_EQ(p.tkn_find("PREFIX", 1), nullptr);
  EXPECT_EQ(p.tkn_add(new TokenPair("Prefix", "dup")), 0);  // refused and deleted, not leaked
}

}  // namespace
