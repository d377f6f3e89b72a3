// The reader on texts held in memory: tokens, macros, directives, value checks and hostile text.
#include <gtest/gtest.h>

#include <ctime>
#include <cstring>
#include <string>

#include "config/RapDefList.h"
#include "config/RapMessages.h"
#include "test_reader_support.h"

namespace {

constexpr int S(int n) { return RAP_STATUS + n; }

struct Case {
  char const* name;
  char const* text;
  char const* tokens;
  int status = kReadWhole;
};

class ReaderCases : public ::testing::TestWithParam<Case> {};

TEST_P(ReaderCases, Tokens) {
  Case const& c = GetParam();
  ReaderFixture f;
  ReadResult r = f.read(c.text);
  EXPECT_EQ(r.status, c.status) << r.place << "\n" << r.messages;
  EXPECT_EQ(r.tokens, c.tokens) << r.messages;
}

Case const kCases[] = {
    // Lexing.
    {"comments", "a /* x /* y */ b // c\n\\\nd", "a b d"},
    {"numbers", "x = -0.5; y = 1.5e-005; z = 0x1F; w = .5;", "x = -0.5 ; y = 1.5e-005 ; z = 0x1F ; w = .5 ;"},
    {"bare_value_pieces", "s[] = {db-10, \\ca\\x.p3d};", "s [ ] = { db - 10 , \\ ca \\ x . p3d } ;"},
    {"strings", "a = \"say \"\"hi\"\"\"; b = \"\";", "a = \"say \"hi\"\" ; b = \"\" ;"},
    {"newline_token", "t = \"a\" \\n \"b\";", "t = \"a\nb\" ;"},
    {"slash_n_not_string", "t = \"a\" \\n x;", "t = \"a\" \\ n x ;"},
    {"decoder_float_comment", "f = 1.4013e-045/*#DEN*/;", "f = 1.4013e-045 ;"},
    // Macros.
    {"object_macro", "#define N 5\nx = N;", "x = 5 ;"},
    {"params", "#define P(a,b) a+b\nP(1, 2)", "1 + 2"},
    {"stringize_expanded_arg", "#define Q(x) #x\n#define V 3\nQ(V)", "\"3\""},
    {"paste_expanded_args", "#define PREFIX cba\n#define DOUBLES(a,b) a##_##b\nDOUBLES(PREFIX,main)", "cba_main"},
    {"nested_calls", "#define Q(x) #x\n#define D(a,b) a##_##b\nQ(D(x,D(y,z)))", "\"x_y_z\""},
    {"args_keep_parens_and_strings", "#define F(a) [a]\nF((1,2)) F(\"a,b\")", "[ ( 1 , 2 ) ] [ \"a,b\" ]"},
    {"call_spans_lines", "#define F(a,b) a b\nF(1,\n 2)", "1 2"},
    {"name_from_expansion_takes_args", "#define F(a) <a>\n#define G F\nG(7)", "< 7 >"},
    {"empty_macro", "#define E\na E b", "a b"},
    {"lone_quote_macro", "#define QT \"\nQT", "\""},
    {"self_recursive", "#define A A\nA x", "A x"},
    {"mutual_recursion", "#define A B\n#define B A\nA B", "A B"},
    {"recursive_with_args", "#define F(x) F(x)\nF(1)", "F ( 1 )"},
    {"paste_keeps_strings", "#define S(x) \"x\" x\nS(1)", "\"x\" 1"},
    {"line_and_file_unexpanded_in_strings", "a\n\"__LINE__\" __LINE__", "a \"__LINE__\" 2"},
    {"same_integer_redefinition", "#define V 010\n#define V 10\nV", "010"},
    {"too_few_args", "#define F(a,b) a\nF(1)", "", S(RAPMSG_TOO_FEW_PARMS)},
    {"missing_parens", "#define F(a) a\nF x", "", S(RAPMSG_EXPECTED_PARMS)},
    {"altered_define", "#define V 1\n#define V 2\n", "", S(RAPMSG_DEFINE_ALTERED)},
    {"bad_define_name", "#define 9x 1\n", "", S(RAPMSG_BAD_DEFINE)},
    {"bad_param_list", "#define F(a,) a\n", "", S(RAPMSG_EXPECTED_PARMS)},
    // Directives.
    {"ifdef_else", "#define X\n#ifdef X\na\n#else\nb\n#endif\n#ifndef X\nc\n#else\nd\n#endif", "a d"},
    {"nested_skip", "#ifdef NO\n#ifdef ALSO\na\n#else\nb\n#endif\nc\n#else\nd\n#endif", "d"},
    {"skipped_directives_dropped", "#ifdef NO\n#include \"nowhere.h\"\n#bogus\n#endif\nok", "ok"},
    {"stray_quote_in_left_out_text", "#ifdef NO\nsay \"hi\n#endif\nok", "ok"},
    {"undef", "#define X 1\n#undef X\nX", "X"},
    {"undef_unknown", "#undef NOPE\n", "", S(RAPMSG_UNKNOWN_UNDEF)},
    {"else_without_if", "#else\n", "", S(RAPMSG_ENDIF_WITHOUT_IF)},
    {"endif_without_if", "#endif\n", "", S(RAPMSG_ENDIF_WITHOUT_IF)},
    {"ifdef_without_name", "#ifdef\n", "", S(RAPMSG_UNEXPECTED_EOL)},
    {"unknown_directive", "#iff X\n", "", S(RAPMSG_UNKNOWN_DIRECTIVE)},
    {"pragma_skipped", "#pragma once\na", "a"},
    {"uninclude_with_nothing", "#uninclude\n", "", S(RAPMSG_NO_UNINCLUDE)},
    {"define_continuation_and_comment", "#define M a \\\n b // c\nM", "a b"},
    {"define_url_not_comment", "#define U \"http://x\"\nU", "\"http://x\""},
    {"continuation_at_eof", "a \\", "a", S(RAPMSG_CONTINUATION_AT_EOF)},
    {"drive_include", "#include \"c:\\x.h\"\n", "", S(RAPMSG_DRIVE)},
    // __EVAL and __EXEC.
    {"eval", "x = __EVAL(1 + 2 * 3);", "x = 7 ;"},
    {"eval_macro_arg", "#define W 4\nx = __EVAL(W / 8);", "x = 0.5 ;"},
    {"exec_then_eval", "__EXEC(a = 5);\nx = __EVAL(a * 2);", "x = 10 ;"},
    {"eval_string", "x = __EVAL(\"a\" + \"b\");", "x = \"ab\" ;"},
    {"eval_array", "x[] = __EVAL([1, 2] + [3]);", "x [ ] = { 1 , 2 , 3 } ;"},
    {"bad_eval", "x = __EVAL(1 +);", "x =", S(RAPMSG_BAD_EVAL)},
    {"eval_without_parens", "x = __EVAL;", "x =", S(RAPMSG_BAD_EVAL)},
    // Value checks.
    {"true_false", "a = true; b = FALSE; c[] = {true, false}; class true {};", "a = 1 ; b = 0 ; c [ ] = { 1 , 0 } ; class true { } ;"},
    {"semicolons_in_array", "a[] = {x; y; };", "a [ ] = { x , y } ;"},
    {"trailing_comma", "a[] = {1, {2, }, };", "a [ ] = { 1 , { 2 } } ;"},
    {"double_semicolon", "a = 1;; b = 2;", "a = 1 ; b = 2 ;"},
    {"append_array", "a[] += {1,};", "a [ ] + = { 1 } ;"},
    {"scope_ok", "scope = 2; access = 0;", "scope = 2 ; access = 0 ;"},
    {"scope_out_of_range", "scope = 3;", "scope =", S(RAPMSG_ILLEGAL_VALUE)},
    {"access_string", "access = \"1\";", "access =", S(RAPMSG_ILLEGAL_VALUE)},
    // Unterminated text.
    {"unterminated_string", "a = \"abc", "a =", S(RAPMSG_MISMATCHED_QUOTES)},
    {"unterminated_comment", "a /* abc", "a", kReadWhole},
};

INSTANTIATE_TEST_SUITE_P(Reader, ReaderCases, ::testing::ValuesIn(kCases),
                         [](auto const& info) { return std::string(info.param.name); });

TEST(Reader, NulBytesAreBlanks) {
  ReaderFixture f;
  std::string text("a\0b\0\0c", 6);
  ReadResult r = f.read(text);
  EXPECT_EQ(r.status, kReadWhole);
  EXPECT_EQ(r.tokens, "a b c");
}

TEST(Reader, WarningsGoToTheCallbackOrFailWhenTheyAreErrors) {
  struct W {
    char const* text;
    int number;
  } const cases[] = {
      {"a[] = {1,};", RAPMSG_TRAILING_COMMA},
      {"a[] = {1;};", RAPMSG_SPURIOUS_SEMICOLON},
      {"a = 1;;", RAPMSG_DOUBLE_SEMICOLON},
      {"access = 1;", RAPMSG_ACCESS},
      {"/* a /* b */", RAPMSG_RECURSIVE_COMMENT},
      {"#include \" x.h \"\n", RAPMSG_FILENAME_SPACES},
  };
  for (W const& w : cases) {
    ReaderFixture f;
    ReadResult r = f.read(w.text);
    std::string want = std::string("warning :In File test.cpp: circa Line 1 ") + rap_message_text(w.number);
    EXPECT_NE(r.messages.find(want), std::string::npos) << w.text << "\n" << r.messages;
    ReaderFixture strict;
    strict.io.io_set_warnings_are_errors(true);
    EXPECT_EQ(strict.read(w.text).status, S(w.number)) << w.text;
  }
  ReaderFixture f;
  f.reader.rt_SetAccessWarning(false);
  EXPECT_EQ(f.read("access = 1;").messages, "");
}

TEST(Reader, LineAndEndOfLineTokens) {
  ReaderFixture f;
  ReadResult r = f.read("a\n/* x\ny */ b \\\n c\n#define L __LINE__\nL", RapTextReader::RT_EOL_TOKEN);
  EXPECT_EQ(r.status, kReadWhole);
  EXPECT_EQ(r.tokens, "a $ b c $ $ 6");
  ReaderFixture g;
  EXPECT_EQ(g.read("#define A x\nA __LINE__", RapTextReader::RT_NO_EXPAND).tokens, "A __LINE__");
}

TEST(Reader, SpaceBeforeTellsGluedPiecesApart) {
  ReaderFixture f;
  f.read("");
  ASSERT_EQ(f.reader.rt_OpenText("v = \\ca\\a b;", 12, "t.cpp"), 0);
  std::string glued;
  while (f.reader.rt_NextToken() == 0) {
    if (f.reader.rt_SpaceBefore()) glued += ' ';
    glued += f.reader.rt_Token();
  }
  EXPECT_EQ(glued, "v = \\ca\\a b;");
}

TEST(Reader, UngetReturnsTheSameTokenAgain) {
  ReaderFixture f;
  ASSERT_EQ(f.reader.rt_OpenText("a \"b\" c", 7, "t.cpp"), 0);
  ASSERT_EQ(f.reader.rt_NextToken(), 0);
  ASSERT_EQ(f.reader.rt_NextToken(), 0);
  f.reader.rt_UngetToken();
  ASSERT_EQ(f.reader.rt_NextToken(), 0);
  EXPECT_EQ(f.reader.rt_TokenKind(), RapTextReader::TK_STRING);
  EXPECT_STREQ(f.reader.rt_Token(), "b");
}

TEST(Reader, NamesDefinedBeforeTheFirstToken) {
  ReaderFixture f;
  ASSERT_EQ(f.reader.rt_OpenText("#ifdef _ARMA_\nV\n#endif", 21, "t.cpp"), 0);
  ASSERT_EQ(f.reader.rt_Define("_ARMA_"), 0);
  ASSERT_EQ(f.reader.rt_Define("V 5"), 0);
  EXPECT_EQ(f.drain(0).tokens, "5");
}

TEST(Reader, AlteredDefineReportsBothBodies) {
  ReaderFixture f;
  ReadResult r = f.read("#define V 1\n#define V 2\n");
  EXPECT_EQ(r.messages, "\r\n//#define V\r\n\r\n//is: 2\r\n\r\n//was: 1\r\n\r\n");
  EXPECT_EQ(r.place, "In File test.cpp: circa Line 2 #define altered without a #undef");
}

TEST(Reader, EvalOfGameOnlyFunctionMarksTheText) {
  ReaderFixture f;
  ReadResult r = f.read("x = __EVAL(random 10);");
  EXPECT_EQ(r.tokens, "x = 5 ;");
  EXPECT_TRUE(r.not_binarisable);
  EXPECT_NE(r.messages.find("/*WARNING*/ eval/exec 'random' is not binarisable"), std::string::npos);
  EXPECT_FALSE(f.read("x = __EVAL(10);").not_binarisable);  // a new text starts clean
}

TEST(Reader, DecoderTextReadsBack) {
  // The shape of the decoder's output: banner, dialect line, enums, classes, arrays, strings.
  std::string text =
      "////////////////////////////////////////////////////////////////////\r\n"
      "//Kaltor: config.bin\r\n"
      "////////////////////////////////////////////////////////////////////\r\n\r\n"
      "#define _ARMA_\r\n\r\n"
      "enum {\r\n\tdestructengine = 2,\r\n\tdestructno = 0\r\n};\r\n"
      "class CfgPatches\r\n{\r\n\tclass a\r\n\t{\r\n\t\tunits[] = {};\r\n"
      "\t\ttext = \"line \"\"one\"\"\" \\n \"two\";\r\n\t\tf = 1.5e-005;\r\n\t\tv = 1e-045/*#DEN*/;\r\n"
      "\t\tlist[] += {1,{\"x\",2.5}};\r\n\t};\r\n\tclass b: a {};\r\n\tdelete c;\r\n};\r\n";
  ReaderFixture f;
  ReadResult r = f.read(text);
  EXPECT_EQ(r.status, kReadWhole) << r.place;
  EXPECT_EQ(r.tokens,
            "enum { destructengine = 2 , destructno = 0 } ; class CfgPatches { class a { units [ ] = { } ; "
            "text = \"line \"one\"\ntwo\" ; f = 1.5e-005 ; v = 1e-045 ; list [ ] + = { 1 , { \"x\" , 2.5 } } ; } ; "
            "class b : a { } ; delete c ; } ;");
  EXPECT_NE(f.reader.rt_Defines().def_Find("_ARMA_"), nullptr);
  EXPECT_EQ(r.messages, "");
}

TEST(Reader, DecorationAndMessageTable) {
  EXPECT_STREQ(rap_message_text(S(RAPMSG_RECURSIVE_COMMENT)), "Recursive comment /*");
  EXPECT_STREQ(rap_message_text(RAPMSG_MISSING_INHERIT), "rap: missing inheritence class(es)");
  EXPECT_STREQ(rap_message_text(3), "invalid file");
  EXPECT_STREQ(rap_message_text(33), "dll Unknown throw Error");  // generic table
  EXPECT_STREQ(rap_message_text(58), "Invalid error status. internal error of status return");
  ReaderFixture f;
  EXPECT_STREQ(f.reader.rt_Decorate(S(RAPMSG_EOF)).c_str(), ": EOF encountered");  // nothing open yet
  f.read("a\nb");
  EXPECT_STREQ(f.reader.rt_Decorate(S(RAPMSG_MISSING_FILES)).c_str(), rap_message_text(RAPMSG_MISSING_FILES));
  EXPECT_STREQ(f.reader.rt_Decorate(0).c_str(), "No Error(s)");
  EXPECT_STREQ(f.reader.rt_Decorate(S(RAPMSG_EOF)).c_str(), "In File test.cpp: circa Line 2 EOF encountered");
}

// ---- hostile text: a status, promptly, never a crash or a hang ----------------------------

TEST(ReaderHostile, BoundedExpansion) {
  struct H {
    char const* name;
    std::string text;
  };
  std::string doubling;
  for (int i = 0; i < 40; ++i) doubling += "#define M" + std::to_string(i + 1) + " M" + std::to_string(i) + " M" + std::to_string(i) + "\n";
  doubling += "M40";
  std::string nested_calls = "#define F(x) x\n";
  for (int i = 0; i < 5000; ++i) nested_calls += "F(";
  nested_calls += "1" + std::string(5000, ')');
  std::string doubling_args = "#define D(x) x x\n";
  for (int i = 0; i < 40; ++i) doubling_args += "D(";
  doubling_args += "1" + std::string(40, ')');
  std::string chain;
  for (int i = 0; i < 1000; ++i) chain += "#define C" + std::to_string(i) + " C" + std::to_string(i + 1) + "\n";
  chain += "C0";
  H const cases[] = {
      {"doubling", doubling},
      {"nested_calls", nested_calls},
      {"doubling_args", doubling_args},
      {"chain", chain},
  };
  for (H const& h : cases) {
    ReaderFixture f;
    f.reader.rt_SetExpansionAllowance(size_t{4} << 20);  // the default budget, only quicker to spend
    std::clock_t t0 = std::clock();  // processor time: the machine may be busy with other work
    ReadResult r = f.read(h.text);
    double secs = static_cast<double>(std::clock() - t0) / CLOCKS_PER_SEC;
    EXPECT_EQ(r.status, S(RAPMSG_BAD_DEFINE)) << h.name << ": " << r.place;
    EXPECT_LT(secs, 20.0) << h.name;
  }
}

TEST(ReaderHostile, DeepConditionalsAndLongLines) {
  std::string text;
  for (int i = 0; i < 10000; ++i) text += "#ifdef X" + std::to_string(i % 2) + "\n";
  text += "a\n";
  for (int i = 0; i < 10000; ++i) text += "#endif\n";
  text += "b";
  ReaderFixture f;
  ReadResult r = f.read(text);
  EXPECT_EQ(r.status, kReadWhole);
  EXPECT_EQ(r.tokens, "b");

  std::string line(100u << 20, 'x');  // one 100 MB word
  line += " = \"";
  ReaderFixture g;
  ASSERT_EQ(g.reader.rt_OpenText(line.data(), line.size(), "big.cpp"), 0);
  ASSERT_EQ(g.reader.rt_NextToken(), 0);
  EXPECT_EQ(g.reader.rt_TokenLength(), 100u << 20);
  ASSERT_EQ(g.reader.rt_NextToken(), 0);
  EXPECT_EQ(g.reader.rt_NextToken(), S(RAPMSG_MISMATCHED_QUOTES));
}

}  // namespace
