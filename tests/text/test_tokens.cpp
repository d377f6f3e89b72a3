#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "text/BisTokens.h"
#include "text/TokenPairs.h"

namespace {

std::vector<std::string> texts(BisTokens const& t) {
  std::vector<std::string> v;
  for (BisToken* k = t.GetFirstToken(); k; k = k->GetNext()) v.emplace_back(k->c_str());
  // The back links must agree with the forward ones.
  std::vector<std::string> back;
  for (Chain* c = t.GetLast(); c; c = c->GetPrevious()) back.insert(back.begin(), static_cast<BisToken*>(c)->c_str());
  EXPECT_EQ(v, back);
  EXPECT_EQ(v.size(), t.GetCount());
  return v;
}

using Texts = std::vector<std::string>;

TEST(BisTokens, CommaLists) {
  struct Case {
    char const* list;
    Texts tokens;
  } const cases[] = {
      {"a, b ,A,wss", {"a", "b", ".wss"}},
      {"\tOGG ,x.ogg,  jpg", {".OGG", "x.ogg", ".jpg"}},
      {"wss,.wss,paa", {".wss", ".paa"}},  // the bare form folds into the dotted one
      {"a,,b,", {"a", "b"}},
      {"  ", {}},
      {"", {}},
      {"*.txt, data\\x.p3d", {"*.txt", "data\\x.p3d"}},
      {"wssx,pa", {"wssx", "pa"}},  // only whole bare extensions are dotted
  };
  for (auto const& c : cases) {
    BisTokens t;
    t.tkn_add("left over");
    t.tkn_convert_csv(c.list);
    EXPECT_EQ(texts(t), c.tokens) << c.list;
  }
  BisTokens t;
  EXPECT_EQ(t.tkn_convert_csv(static_cast<char const*>(nullptr)), nullptr);
  BisToken* first = t.tkn_convert_csv(L"a,wav");
  EXPECT_EQ(first, t.GetFirstToken());
  EXPECT_EQ(texts(t), (Texts{"a", ".wav"}));
}

TEST(BisTokens, ListFromAFile) {
  auto dir = std::filesystem::temp_directory_path() / ("vendrak_tokens_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  auto file = (dir / "list.txt").string();
  std::ofstream(file, std::ios::binary) << "\xEF\xBB\xBF" "one,two,\r\nthree";
  BisTokens t;
  t.tkn_convert_csv(file.c_str());
  EXPECT_EQ(texts(t), (Texts{"one", "two", "three"}));
  std::filesystem::remove_all(dir);
}

TEST(BisTokens, ConcatenatedLists) {
  BisTokens t;
  static char const cat[] = " a \0b\0  \0A\0c\0\0ignored\0";
  t.tkn_convert_cat(cat);
  EXPECT_EQ(texts(t), (Texts{"a", "b", "c"}));
  t.tkn_convert_cat(L"x\0y\0");
  EXPECT_EQ(texts(t), (Texts{"x", "y"}));
  t.tkn_convert_cat("");
  EXPECT_EQ(t.GetCount(), 0u);
}

TEST(BisTokens, AddFindAndFlags) {
  BisTokens t;
  EXPECT_EQ(t.tkn_add("Abc"), 1);
  EXPECT_EQ(t.tkn_add("abc"), 0);
  EXPECT_EQ(t.tkn_add("abc", 1), 1);  // case-sensitive duplicate test
  EXPECT_EQ(t.tkn_add("MiXed", 2), 1);
  EXPECT_EQ(texts(t), (Texts{"Abc", "abc", "mixed"}));
  EXPECT_EQ(t.tkn_find_index("ABC"), 0);
  EXPECT_EQ(t.tkn_find_index("abc", 1), 1);
  EXPECT_EQ(t.tkn_find_index("nope"), -1);
  EXPECT_EQ(t.tkn_find(""), nullptr);
  BisTokens u;
  u.tkn_add("ABC");
  u.tkn_add("new");
  t.tkn_add(&u);
  EXPECT_EQ(texts(t), (Texts{"Abc", "abc", "mixed", "new"}));
  t.tkn_make_lower();
  EXPECT_EQ(t.tkn_find("abc", 1), t.GetFirstToken());
  t.DeleteChain(t.GetChain(1));
  t.DeleteChain(t.GetFirst());
  EXPECT_EQ(texts(t), (Texts{"mixed", "new"}));
  t.DeleteChain(t.GetLast());
  EXPECT_EQ(texts(t), (Texts{"mixed"}));
}

TEST(BisTokens, SortsKeepEqualKeysInOrder) {
  struct Case {
    Texts in;
    int how;
    Texts out;
  } const cases[] = {
      {{"ab", "abc", "x"}, 2, {"abc", "ab", "x"}},
      {{"b", "a", "c"}, 0, {"a", "b", "c"}},
      {{"b", "a", "c"}, 1, {"c", "b", "a"}},
      {{"B", "a"}, 0, {"B", "a"}},  // byte order: upper case first
      {{"xx", "a", "yy", "b", "zz"}, 2, {"xx", "yy", "zz", "a", "b"}},
      {{}, 0, {}},
  };
  for (auto const& c : cases) {
    BisTokens t;
    for (auto const& s : c.in) t.tkn_add(s.c_str());
    t.tkn_sort(c.how);
    EXPECT_EQ(texts(t), c.out);
  }
}

TEST(TokenPairs, NameValueLines) {
  struct Case {
    char const* line;
    int result;
    char const* name;  // the pair expected afterwards (null: none added)
    char const* value;
  } const cases[] = {
      {"prefix=x\\y;", 1, "prefix", "x\\y"},
      {"prefix x", 1, "prefix", "x"},
      {"prefix\t=\t\"a b\"", 1, "prefix", "a b"},
      {"\"my name\" = v", 1, "my name", "v"},
      {"prefix=", -1, nullptr, nullptr},
      {"prefix   ", 0, nullptr, nullptr},  // nothing after the name at all
      {"prefix", 0, nullptr, nullptr},
      {"# a comment", 1, nullptr, nullptr},
      {"", 1, nullptr, nullptr},
      {"prefix=;", 0, nullptr, nullptr},
      {"prefix=\"a\" b", 0, nullptr, nullptr},  // the closing quote must end the line
      {"prefix=\"\"", 0, nullptr, nullptr},
      {"\"unclosed = v", 0, nullptr, nullptr},
      {"\"\" = v", 0, nullptr, nullptr},
      {"version=1.0;\r\n", 1, "version", "1.0"},
  };
  for (auto const& c : cases) {
    TokenPairs p;
    EXPECT_EQ(p.tkn_add_token_equals(c.line), c.result) << c.line;
    if (c.name) {
      ASSERT_EQ(p.GetCount(), 1u) << c.line;
      EXPECT_STREQ(p.GetFirstPair()->name(), c.name);
      EXPECT_STREQ(p.GetFirstPair()->value(), c.value);
    } else {
      EXPECT_EQ(p.GetCount(), 0u) << c.line;
    }
  }
}

TEST(TokenPairs, ConflictingValuesAreRefused) {
  TokenPairs p;
  EXPECT_EQ(p.tkn_add_token_equals("prefix=a"), 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(p.tkn_add_token_equals("PREFIX=A"), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  EXPECT_EQ(p.tkn_add_token_equals("prefix=b"), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "attempt to change tokenlist 'prefix' value\nfrom: 'a'\nto: 'b'\n");
  EXPECT_STREQ(p.tkn_find_value("Prefix"), "a");
  EXPECT_EQ(p.tkn_find_value("prefix2"), nullptr);
  EXPECT_EQ(p.tkn_find("PREFIX", 1), nullptr);
}

TEST(TokenPairs, AddCopyAndSort) {
  TokenPairs p;
  EXPECT_EQ(p.tkn_add("b", "1"), 1);
  EXPECT_EQ(p.tkn_add("B", "2"), 0);
  EXPECT_EQ(p.tkn_add(L"a", L"\u00e9"), 1);
  EXPECT_STREQ(p.tkn_find_value("a"), "\xC3\xA9");
  EXPECT_EQ(p.tkn_add(new TokenPair("A", "dup")), 0);  // deleted, not leaked
  EXPECT_EQ(p.tkn_add(new TokenPair("ccc", "3")), 1);
  TokenPairs q;
  q.tkn_add("b", "other");
  q.tkn_add(&p);
  p.tkn_sort(0);
  q.tkn_sort(2);
  std::vector<std::string> names;
  for (TokenPair* t = p.GetFirstPair(); t; t = t->GetNext()) names.emplace_back(t->name());
  EXPECT_EQ(names, (Texts{"a", "b", "ccc"}));
  names.clear();
  for (TokenPair* t = q.GetFirstPair(); t; t = t->GetNext()) names.emplace_back(std::string(t->name()) + "=" + t->value());
  EXPECT_EQ(names, (Texts{"ccc=3", "b=other", "a=\xC3\xA9"}));
}

}  // namespace
