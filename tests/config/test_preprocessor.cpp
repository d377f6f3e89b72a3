// The preprocessor as the game runs it: a value's kind decided on the expanded text, white space
// kept as written, #if, __has_include and the built-in names. Each row is a config text and what
// the binariser makes of its entry `v`.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "DecodeHelpers.h"
#include "config/Sembric.h"

namespace {
using T = rap_entry;
constexpr int S(int n) { return RAP_STATUS + n; }

struct Binarised {
  BisDLL dll;
  Sembric* s = dll.dll_GetRap();
  int code;
  std::string messages;
  explicit Binarised(std::string const& text, char const* name = "t.cpp") {
    g_msgs.clear();
    code = s->rap_Create(name, 0, capture_msg, text.data(), static_cast<unsigned>(text.size()));
    messages = g_msgs;
  }
  rap_entry* v() const { return s->rap_get_entry("v"); }
};

struct ValueCase {
  char const* name;
  char const* text;
  int type;
  char const* value;
};

class ValueCases : public ::testing::TestWithParam<ValueCase> {};

TEST_P(ValueCases, KindAndText) {
  ValueCase const& c = GetParam();
  Binarised b(c.text);
  ASSERT_EQ(b.code, 0) << b.messages;
  ASSERT_TRUE(b.v()) << b.messages;
  EXPECT_EQ(b.v()->rpe_GetType(), c.type);
  EXPECT_EQ(std::string(b.v()->value()), c.value);
}

ValueCase const kValues[] = {
    // The kind is decided on the text after expansion.
    {"version_split_by_macros_is_float", "#define MAJOR 3\n#define MINOR 19\n#define VERSION MAJOR.MINOR\nv = VERSION;",
     T::RPE_FLOAT, "3.19"},
    {"sign_before_macro_is_integer", "#define MAJOR 3\nv = -MAJOR;", T::RPE_INT, "-3"},
    {"sign_apart_from_number_is_text", "#define MAJOR 3\nv = - MAJOR;", T::RPE_STRING, "- 3"},
    {"pasted_hex_is_integer", "#define H(a) 0x##a\nv = H(1F);", T::RPE_INT, "31"},
    {"number_glued_to_word_is_text", "#define G(a) a##x\nv = G(5);", T::RPE_STRING, "5x"},
    {"quoted_number_stays_text", "#define Q(x) #x\nv = Q(3.19);", T::RPE_STRING, "3.19"},
    // White space as written.
    {"tab_before_body_kept", "#define GRID\t\t\t(A / 25)\nv = SafeZoneY + 1.5 * GRID;", T::RPE_STRING,
     "SafeZoneY + 1.5 * \t\t\t(A / 25)"},
    {"spaces_before_body_dropped", "#define GRID     (A / 25)\nv = 1.5 * GRID;", T::RPE_STRING, "1.5 * (A / 25)"},
    {"space_then_tab_keeps_the_tab", "#define X  \tb\nv = a X;", T::RPE_STRING, "a \tb"},
    {"space_only_body_is_empty", "#define E    \nv = a E b;", T::RPE_STRING, "a  b"},
    {"body_inner_blanks_kept", "#define B a  \t b // note\nv = B;", T::RPE_STRING, "a  \t b"},
    {"stringized_argument_keeps_blanks", "#define QUOTE(x) #x\nv = QUOTE(a    b);", T::RPE_STRING, "a    b"},
    {"argument_over_lines_keeps_indentation", "#define QUOTE(x) #x\nv = QUOTE(first;\\\n        second;);",
     T::RPE_STRING, "first;        second;"},
    {"argument_over_crlf_lines", "#define QUOTE(x) #x\r\nv = QUOTE(first;\\\r\n    second;);\r\n", T::RPE_STRING,
     "first;    second;"},
    {"body_over_lines_keeps_indentation", "#define M a \\\n    b\nv = M;", T::RPE_STRING, "a     b"},
    {"padded_argument_kept", "#define PAIR(x,y) x,y\n#define QUOTE(x) #x\nv = QUOTE(PAIR(a, b));", T::RPE_STRING,
     "a, b"},
    {"unquoted_value_blanks_kept", "v = a  +\tb ;", T::RPE_STRING, "a  +\tb"},
    {"comment_leaves_its_blanks", "v = a /* c */ b;", T::RPE_STRING, "a  b"},
    // #if.
    {"if_flag", "#define FLAG 1\n#if FLAG\nv = 1;\n#else\nv = 0;\n#endif", T::RPE_INT, "1"},
    {"if_zero", "#define FLAG 0\n#if FLAG\nv = 1;\n#else\nv = 0;\n#endif", T::RPE_INT, "0"},
    {"if_operators", "#define A 1\n#define B 2\n#if B > A && !(A == 2) && (A != B || 0) && A <= 1 && B >= 2\nv = 1;\n#endif",
     T::RPE_INT, "1"},
    {"if_negative_macro", "#define Y -18\n#if 16 < Y\nv = 1;\n#else\nv = 0;\n#endif", T::RPE_INT, "0"},
    {"if_precedence", "#if 0 || 1 && 0\nv = 1;\n#else\nv = 0;\n#endif", T::RPE_INT, "0"},
    {"if_hex", "#if 0x10 == 16\nv = 1;\n#endif", T::RPE_INT, "1"},
    {"if_undefined_name_is_zero", "#if NOT_DEFINED\nv = 1;\n#else\nv = 0;\n#endif", T::RPE_INT, "0"},
    {"if_function_macro", "#define GT(a,b) a > b\n#if GT(3, 2)\nv = 1;\n#endif", T::RPE_INT, "1"},
    {"if_inside_skipped_block_not_read", "#ifdef NO\n#if 1 +\n#endif\nv = 1;\n#else\nv = 2;\n#endif",
     T::RPE_INT, "2"},
    {"if_nested_in_else", "#define C 1\n#if C == 0\nv = 0;\n#else\n#if C == 1\nv = 1;\n#else\nv = 2;\n#endif\n#endif",
     T::RPE_INT, "1"},
    {"has_include_of_nothing", "#if __has_include(\"\\nowhere\\x.hpp\")\nv = 1;\n#else\nv = 0;\n#endif", T::RPE_INT,
     "0"},
    {"has_include_negated", "#if !__has_include(<nowhere.hpp>)\nv = 1;\n#endif", T::RPE_INT, "1"},
    // Built-in names.
    {"game_names", "#ifdef __ARMA3__\nv = __ARMA__ __ARMA3__;\n#endif", T::RPE_STRING, "1 1"},
    {"own_definition_wins", "#define __ARMA__ 2\nv = __ARMA__;", T::RPE_INT, "2"},
    {"counter_and_reset", "v = __COUNTER__ __COUNTER__ __COUNTER_RESET__ __COUNTER__;", T::RPE_STRING, "0 1  0"},
    {"file_short", "v = __FILE_SHORT__;", T::RPE_STRING, "t"},
    {"file_name", "v = __FILE_NAME__;", T::RPE_STRING, "t.cpp"},
};

INSTANTIATE_TEST_SUITE_P(Preprocessor, ValueCases, ::testing::ValuesIn(kValues),
                         [](auto const& info) { return std::string(info.param.name); });

TEST(Preprocessor, ArrayElementsFollowTheSameRules) {
  Binarised b("#define MAJOR 3\n#define MINOR 19\n#define G\t(1)\nv[] = {MAJOR.MINOR, -MAJOR, MAJOR,MINOR, 2 *G};");
  ASSERT_EQ(b.code, 0) << b.messages;
  rap_entry* e = b.v()->rpe_get_first_child();
  int const types[] = {T::RPE_FLOAT, T::RPE_INT, T::RPE_INT, T::RPE_INT, T::RPE_STRING};
  char const* const values[] = {"3.19", "-3", "3", "19", "2 *\t(1)"};
  for (int i = 0; i < 5; ++i, e = e->rpe_get_next_sibling()) {
    ASSERT_TRUE(e) << i;
    EXPECT_EQ(e->rpe_GetType(), types[i]) << i;
    EXPECT_STREQ(e->value(), values[i]) << i;
  }
}

TEST(Preprocessor, FaultsOfConditions) {
  struct {
    char const* name;
    std::string text;
    int code;
    char const* message;
  } const cases[] = {
      {"elif", "#if 1\n#elif 0\n#endif\n", S(RAPMSG_UNKNOWN_DIRECTIVE), "#elif is not known to the game"},
      {"elif_in_left_out_branch", "#if 0\n#elif 1\n#endif\n", S(RAPMSG_UNKNOWN_DIRECTIVE), "#elif"},
      {"string", "#define A \"Hello\"\n#if A > 2\n#endif\n", S(RAPMSG_BAD_EVAL), "#if A > 2: a string cannot be"},
      {"float", "#if 1.5\n#endif\n", S(RAPMSG_BAD_EVAL), "'1.5' is not a whole number"},
      {"left_over", "#if 1 2\n#endif\n", S(RAPMSG_BAD_EVAL), "'2' is left over"},
      {"empty_macro", "#define E\n#if E\n#endif\n", S(RAPMSG_BAD_EVAL), "nothing to test"},
      {"open_parenthesis", "#if (1\n#endif\n", S(RAPMSG_BAD_EVAL), "a ')' is missing"},
      {"single_equals", "#if 1 = 1\n#endif\n", S(RAPMSG_BAD_EVAL), "'= 1' is left over"},
      {"operator_first", "#if == 1\n#endif\n", S(RAPMSG_BAD_EVAL), "'=' is not an operator here"},
      {"has_include_unquoted", "#if __has_include(x.hpp)\n#endif\n", S(RAPMSG_BAD_EVAL), "takes a file name"},
      {"has_include_unclosed", "#if __has_include(\"x.hpp\"\n#endif\n", S(RAPMSG_BAD_EVAL), "a ')' is missing"},
      {"deep", "#if " + std::string(5000, '(') + "1\n#endif\n", S(RAPMSG_BAD_EVAL), "nested too deep"},
      {"deep_not", "#if " + std::string(5000, '!') + "1\n#endif\n", S(RAPMSG_BAD_EVAL), "nested too deep"},
      {"endif_without_if", "#endif\n", S(RAPMSG_ENDIF_WITHOUT_IF), "#endif or #else with no #if"},
  };
  for (auto const& c : cases) {
    Binarised b(c.text);
    EXPECT_EQ(b.code, c.code) << c.name << "\n" << b.messages;
    EXPECT_NE(b.messages.find(c.message), std::string::npos) << c.name << "\n" << b.messages;
  }
}

// The clock of a reproducible build: every date and time name from SOURCE_DATE_EPOCH, in UTC.
TEST(Preprocessor, DatesFromTheSourceDateEpoch) {
  ::setenv("SOURCE_DATE_EPOCH", "1700000000", 1);  // 2023-11-14 22:13:20 UTC
  std::string text =
      "a[] = {__DATE_ARR__}; s = __DATE_STR__; iso = __DATE_STR_ISO8601__; t = __TIME__; u = __TIME_UTC__;\n"
      "d = __DAY__; m = __MONTH__; y = __YEAR__; e = __TIMESTAMP_UTC__;\n"
      "r8 = __RAND_INT8__; ru8 = __RAND_UINT8__; r64 = __RAND_INT64__;\n";
  Binarised b(text), again(text);
  ::unsetenv("SOURCE_DATE_EPOCH");
  ASSERT_EQ(b.code, 0) << b.messages;
  struct {
    char const* name;
    char const* value;
  } const want[] = {
      {"s", "2023/11/14, 22:13:20"}, {"iso", "2023-11-14T22:13:20Z"}, {"t", "22:13:20"}, {"u", "22:13:20"},
      {"d", "14"}, {"m", "11"}, {"y", "2023"}, {"e", "1700000000"},
  };
  for (auto const& w : want) EXPECT_STREQ(b.s->rap_get_entry(w.name)->value(), w.value) << w.name;
  std::string arr;
  for (rap_entry* e = b.s->rap_get_entry("a")->rpe_get_first_child(); e; e = e->rpe_get_next_sibling())
    arr += std::string(e->value()) + ",";
  EXPECT_EQ(arr, "2023,11,14,22,13,20,");
  // The dice are thrown from the same date: the same numbers each time, each in its range.
  for (char const* n : {"r8", "ru8", "r64"})
    EXPECT_STREQ(b.s->rap_get_entry(n)->value(), again.s->rap_get_entry(n)->value()) << n;
  long r8 = std::strtol(b.s->rap_get_entry("r8")->value(), nullptr, 10);
  long ru8 = std::strtol(b.s->rap_get_entry("ru8")->value(), nullptr, 10);
  EXPECT_TRUE(r8 >= -128 && r8 <= 127) << r8;
  EXPECT_TRUE(ru8 >= 0 && ru8 <= 255) << ru8;
}

// What `cfg preprocess` prints: the text the parser reads.
TEST(Preprocessor, PreprocessedText) {
  struct {
    char const* name;
    char const* text;
    char const* out;
  } const cases[] = {
      {"directives_and_comments_leave_their_line_ends", "#define A 1 // one\n/* c */ x = A; // end\n",
       "\n x = 1; \n"},
      {"crlf_line_ends_kept_whole", "#define A 1 // one\r\nx = A; // c\r\n", "\r\nx = 1; \r\n"},
      {"macro_blanks_follow_the_name_blanks", "#define G\t(2)\ny = 3 * G;\n", "\ny = 3 * \t(2);\n"},
      {"left_out_block_keeps_only_line_ends", "#if 0\na b c\n#endif\nz = 1;", "\n\n\nz = 1;"},
      {"strings_quoted_again", "s = \"say \"\"hi\"\"\"; t = \"a\" \\n \"b\";", "s = \"say \"\"hi\"\"\"; t = \"a\" \\n \"b\";"},
      {"value_checks_not_made", "a[] = {true, 1,}; scope = 9;;", "a[] = {true, 1,}; scope = 9;;"},
      {"byte_order_mark_dropped", "\xEF\xBB\xBFx = 1;", "x = 1;"},
  };
  for (auto const& c : cases) {
    BisDLL dll;
    g_msgs.clear();
    std::string out;
    Sembric* s = dll.dll_GetRap();
    s->rap_GetIO()->io_SetStdioCallBack(capture_msg);
    s->rap_GetIO()->io_SetErrCallBack(capture_msg);
    int r = s->rap_Preprocess("t.cpp", out, c.text, static_cast<unsigned>(std::strlen(c.text)));
    EXPECT_EQ(r, 0) << c.name << "\n" << g_msgs;
    EXPECT_EQ(out, c.out) << c.name;
  }
  BisDLL dll;
  dll.dll_GetRap()->rap_GetIO()->io_SetErrCallBack(capture_msg);
  g_msgs.clear();
  std::string out;
  EXPECT_EQ(dll.dll_GetRap()->rap_Preprocess("t.cpp", out, "a\n#if (\n", 8), S(RAPMSG_BAD_EVAL));
  EXPECT_NE(g_msgs.find("In File t.cpp: circa Line 2 bad eval/exec"), std::string::npos) << g_msgs;
}

}  // namespace
