#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DecodeHelpers.h"
#include "config/Sembric.h"

namespace {
using T = rap_entry;

struct Built {
  BisDLL dll;
  Sembric* s = dll.dll_GetRap();
  int code;
  std::string messages;
  Built(std::string const& text, int flags = 0, char const* name = "t.cpp") {
    g_msgs.clear();
    code = s->rap_Create(name, flags, capture_msg, text.data(), static_cast<unsigned>(text.size()));
    messages = g_msgs;
  }
  // The decoder's text of what the tree writes, from behind the #define line.
  std::string body() {
    Bytes out;
    EXPECT_EQ(s->rap_Output(out, Sembric::RAPO_ARMA), 0);
    return decode(out).body;
  }
};

TEST(BinariseText, ValuesAreTypedByHowTheyAreWritten) {
  Built b(
      "i = 42; h = 0x1F; word = 0xFFFFFFFF; n = -7; big = 3000000000; f = 1.5; e = 1e3; neg = -0.0;\n"
      "s = \"q\"\"uote\"; w = some words; p = \\ca\\data\\x.paa; db = db-10; t = true; no = FALSE;\n"
      "script = _this exec {\\x\\y.sqs}; mixed = [_x, \"a\"] call f; hex = 0x1g;\n"
      "a[] = {1, 2.5, \"s\", bare, {}, {-1, {0x10}}, (138 / 256)};\n");
  ASSERT_EQ(b.code, 0) << b.messages;
  struct {
    char const* name;
    int type;
    char const* text;
  } const want[] = {
      {"i", T::RPE_INT, "42"},          {"h", T::RPE_INT, "31"},
      {"word", T::RPE_INT, "-1"},       {"n", T::RPE_INT, "-7"},
      {"big", T::RPE_INT64, "3000000000"}, {"f", T::RPE_FLOAT, "1.5"},
      {"e", T::RPE_FLOAT, "1000.0"},    {"neg", T::RPE_FLOAT, "-0.0"},
      {"s", T::RPE_STRING, "q\"uote"},  {"w", T::RPE_STRING, "some words"},
      {"p", T::RPE_STRING, "\\ca\\data\\x.paa"}, {"db", T::RPE_STRING, "db-10"},
      {"t", T::RPE_INT, "1"},           {"no", T::RPE_INT, "0"},
      {"script", T::RPE_STRING, "_this exec {\\x\\y.sqs}"},
      {"mixed", T::RPE_STRING, "[_x, \"a\"] call f"},
      {"hex", T::RPE_STRING, "0x1g"},
  };
  for (auto const& w : want) {
    T* e = b.s->rap_get_entry(w.name);
    ASSERT_TRUE(e) << w.name;
    EXPECT_EQ(e->rpe_GetType(), w.type) << w.name;
    EXPECT_STREQ(e->value(), w.text) << w.name;
  }
  EXPECT_NE(b.body().find("a[] = {1,2.5,\"s\",\"bare\",{},{-1,{16}},\"(138 / 256)\"};"), std::string::npos) << b.body();
}

TEST(BinariseText, StructureEnumsAndTheDecodersOwnText) {
  Built b(
      ": Base\n"
      "enum { a, b = 5, c, OrdinalEnum = -2 };\n"
      "class Outside;\n"
      "class Mine: Outside { class Inner {}; delete Old; list[] += {\"x\"}; };\n"
      "class Other: Mine { class Inner: Inner { v = 1; }; };\n"
      "class = 3;\n");
  ASSERT_EQ(b.code, 0) << b.messages;
  EXPECT_STREQ(b.s->rap_get_root()->value(), "Base");
  std::vector<std::string> enums;
  for (TokenPair* p = b.s->rap_get_enums().GetFirstPair(); p; p = p->GetNext())
    enums.push_back(std::string(p->name()) + "=" + p->value());
  EXPECT_EQ(enums, (std::vector<std::string>{"a=0", "b=5", "c=6", "OrdinalEnum=-2"}));
  // Only ordinals fit the OFP dialect.
  Bytes ofp;
  EXPECT_EQ(b.s->rap_Output(ofp, 0), Sembric::kDetectedError);
  EXPECT_NE(g_msgs.find("enum b = 5: the OFP dialect holds each ordinal 0 to 3 once"), std::string::npos);
  EXPECT_EQ(b.body(),
            "//(4 Enums)\r\nenum {\r\n\ta = 0,\r\n\tb = 5,\r\n\tc = 6,\r\n\tOrdinalEnum = -2\r\n};\r\n\r\n"
            ": Base\r\nclass Outside;\r\nclass Mine: Outside\r\n{\r\n\tclass Inner{};\r\n\tdelete Old;\r\n"
            "\tlist[] += {\"x\"};\r\n};\r\nclass Other: Mine\r\n{\r\n\tclass Inner: Inner\r\n\t{\r\n\t\tv = 1;\r\n"
            "\t};\r\n};\r\nclass = 3;\r\n");
}

TEST(BinariseText, FaultsAndTheirMessages) {
  struct {
    char const* text;
    int code;
    char const* message;
  } const cases[] = {
      {"class A {};\nclass a {};", RAP_STATUS + RAPMSG_DUPLICATE, "circa Line 2 Rap: duplicated token or class"},
      {"class A { x = 1; X[] = {}; };", RAP_STATUS + RAPMSG_DUPLICATE, "duplicated"},
      {"class A: Nope {};\nclass B: A {};", RAP_STATUS + RAPMSG_MISSING_INHERIT,
       "inherit class 'Nope' does not exist\r\nIn File t.cpp: circa Line 1 rap: missing inheritence class(es)"},
      {"class A {\n class B {\n", RAP_STATUS + RAPMSG_EOF,
       "Truncated file. Missing one or more};. Error starts near token 'B' : EOF encountered"},
      {"};", RAP_STATUS + RAPMSG_EXTRANEOUS, "extraneous character"},
      {"class ;", RAP_STATUS + RAPMSG_EXPECTED_CLASS_NAME, "Expected class name"},
      {"class A: {};", RAP_STATUS + RAPMSG_EXPECTED_INHERIT, "Expected Inherit"},
      {"class A: B C", RAP_STATUS + RAPMSG_EXPECTED_CLASS_BRACE, "Expected class {"},
      {"class A B", RAP_STATUS + RAPMSG_EXPECTED_AFTER_CLASSNAME, "after classname"},
      {"a[] = 5;", RAP_STATUS + RAPMSG_EXPECTED_ARRAY, "Expected ]={"},
      {"a[ = {};", RAP_STATUS + RAPMSG_EXPECTED_ARRAY, "Expected ]={"},
      {"a += {};", RAP_STATUS + RAPMSG_EXPECTED_ARRAY, "Expected ]={"},
      {"a = ;", RAP_STATUS + RAPMSG_ILLEGAL_VALUE, "illegal value"},
      {"a[] = {\"x\" \"y\"};", RAP_STATUS + RAPMSG_MISMATCHED_QUOTES, "missing ','"},
      {"a[] = {1, 2", RAP_STATUS + RAPMSG_EOF, "EOF encountered"},
      {"enum { a = x };", RAP_STATUS + RAPMSG_ILLEGAL_VALUE, "illegal value"},
      {"enum a;", RAP_STATUS + RAPMSG_EXPECTED_CLASS_BRACE, "Expected class {"},
  };
  for (auto const& c : cases) {
    Built b(c.text);
    EXPECT_EQ(b.code, c.code) << c.text << "\n" << b.messages;
    EXPECT_NE(b.messages.find(c.message), std::string::npos) << c.text << "\n" << b.messages;
    EXPECT_EQ(b.s->rap_get_root(), nullptr) << c.text;
  }
  Built model("class CfgModels { delete Old; };", 0, "x\\model.cfg");
  EXPECT_EQ(model.code, RAP_STATUS + RAPMSG_DELETE_IN_MODELCFG);
}

// What the game forgives is a warning; with warnings as errors it is the failure.
TEST(BinariseText, ForgivenSemicolonsAndTheWarningPolicy) {
  struct {
    char const* text;
    char const* body;
  } const cases[] = {
      {"class A { x = 1 };", "class A\r\n{\r\n\tx = 1;\r\n};\r\n"},
      {"x = 1\ny = 2;", "x = 1;\r\ny = 2;\r\n"},
      {"class A {}\nclass B {};", "class A{};\r\nclass B{};\r\n"},
      {"class A {} class B {};", "class A{};\r\nclass B{};\r\n"},
      {"class Ext\n}", nullptr},
      {"a[] = {,db-10,1};", "a[] = {\"\",\"db-10\",1};\r\n"},
  };
  for (auto const& c : cases) {
    Built lenient(c.text);
    if (!c.body) {
      EXPECT_NE(lenient.code, 0) << c.text;
      continue;
    }
    ASSERT_EQ(lenient.code, 0) << c.text << "\n" << lenient.messages;
    EXPECT_NE(lenient.messages.find("warning :In File t.cpp: circa Line"), std::string::npos) << c.text;
    EXPECT_EQ(lenient.body(), c.body) << c.text;
    Built strict(c.text, Sembric::RAPF_WARNINGS_ARE_ERRORS);
    EXPECT_GT(strict.code, RAP_STATUS) << c.text;
    EXPECT_EQ(strict.s->rap_get_root(), nullptr);
  }
}

TEST(BinariseText, DeepNestingEndsWithAStatus) {
  std::string classes, arrays = "a[] = ";
  for (int i = 0; i < 2000; ++i) classes += "class A {", arrays += "{";
  for (std::string const& text : {classes, arrays}) {
    Built b(text);
    EXPECT_EQ(b.code, Sembric::kDetectedError) << text.substr(0, 20);
    EXPECT_NE(b.messages.find("nest deeper than 256 levels"), std::string::npos) << b.messages;
    EXPECT_EQ(b.s->rap_get_root(), nullptr);
  }
}

}  // namespace
