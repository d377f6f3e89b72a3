// The __EVAL/__EXEC expression language.
#include <gtest/gtest.h>

#include <string>

#include "config/RapEvaluator.h"

namespace {

struct E {
  char const* expr;
  char const* text;  // the result as config text; nullptr: the expression is refused
  bool unbinarisable = false;
};

class EvalCases : public ::testing::TestWithParam<E> {};

TEST_P(EvalCases, Result) {
  E const& c = GetParam();
  RapEvaluator ev;
  RapOperand v;
  bool ok = ev.ev_Evaluate(c.expr, v);
  if (!c.text) {
    EXPECT_FALSE(ok) << c.expr << " gave " << RapEvaluator::ev_ToText(v);
    return;
  }
  ASSERT_TRUE(ok) << c.expr;
  EXPECT_EQ(RapEvaluator::ev_ToText(v), c.text) << c.expr;
  EXPECT_EQ(ev.ev_NotBinarisable(), c.unbinarisable) << c.expr;
}

E const kExprs[] = {
    // Precedence and associativity.
    {"1 + 2 * 3", "7"},
    {"(1 + 2) * 3", "9"},
    {"2 ^ 3 ^ 2", "64"},
    {"-2 ^ 2", "4"},
    {"10 - 4 - 3", "3"},
    {"7 % 4 + 9 mod 5", "7"},
    {"1 + 2 max 5", "5"},
    {"2 * 3 min 4", "4"},
    {"1 < 2 && 3 > 4 || !false", "1"},
    {"1 == 1 and not (2 != 2) or false", "1"},
    {"1 >= 2", "0"},
    {"5 / 0", "0"},
    {"0x10 + $10", "32"},
    // Functions.
    {"abs -2.7", "2"},
    {"abs 2.7", "2"},
    {"floor -2.5 + ceil 1.2 + round 2.5", "2"},
    {"sin 90 + cos 0", "2"},
    {"atan2 1", nullptr},
    {"1 atan2 1", "45"},
    {"deg pi", "180"},
    {"rad 180 - pi", "0"},
    {"sqrt 16 + log 100 + ln exp 1", "7"},
    {"acos 1 + asin 0 + atg 0 + tan 45", "1"},
    {"sin \"a\"", "\"a\""},  // the wrong kind leaves the operand as it is
    // Strings, booleans, arrays.
    {"\"a\" + 'b' + \"\"\"\"", "\"ab\"\"\""},
    {"\"ABC\" == \"abc\"", "1"},
    {"str true", "\"true\""},
    {"str 2.5", "\"2.5\""},
    {"str \"x\"", "\"\"\"x\"\"\""},
    {"count [1, 2, [3]] + count \"abcd\"", "7"},
    {"[1, [2, 3], \"a\"] select 1 select 0", "2"},
    {"[1, 2] select true", "1"},
    {"[1, 2] + [\"c\"]", "{1,2,\"c\"}"},
    {"[]", "{}"},
    // The running game's answers: placeholders, and the text cannot be binarised.
    {"random 10", "5", true},
    {"localize \"STR_X\"", "\"STR_X\"", true},
    {"selectRandom [1, 2]", "\"garbage\"", true},
    {"productversion select 2", "137", true},
    {"random \"x\"", "\"x\""},
    // Refusals.
    {"", nullptr},
    {"1 +", nullptr},
    {"(1", nullptr},
    {"unknownVar", nullptr},
    {"[1, 2] select 5", nullptr},
    {"\"a\" - 1", nullptr},
    {"\"open", nullptr},
    {"configFile >> \"x\"", nullptr},
    {"sqrt -1", nullptr},
};

INSTANTIATE_TEST_SUITE_P(Eval, EvalCases, ::testing::ValuesIn(kExprs));

TEST(Eval, ExecVariablesLastUntilReset) {
  RapEvaluator ev;
  ASSERT_TRUE(ev.ev_Execute("a = 5; B = a * 2"));
  RapOperand v;
  ASSERT_TRUE(ev.ev_Evaluate("b + A", v));
  EXPECT_EQ(RapEvaluator::ev_ToText(v), "15");
  ASSERT_TRUE(ev.ev_Evaluate("a == 5", v));  // comparison, not assignment
  EXPECT_EQ(RapEvaluator::ev_ToText(v), "1");
  ev.ev_Reset();
  EXPECT_FALSE(ev.ev_Evaluate("a", v));
}

TEST(Eval, HostileExpressionsAreRefused) {
  RapEvaluator ev;
  RapOperand v;
  EXPECT_FALSE(ev.ev_Evaluate(std::string(100000, '(') + "1" + std::string(100000, ')'), v));
  EXPECT_FALSE(ev.ev_Evaluate(std::string(100000, '-') + "1", v));
  std::string grow = "s = \"xxxxxxxxxxxxxxxx\"";
  for (int i = 0; i < 40; ++i) grow += "; s = s + s";
  EXPECT_FALSE(ev.ev_Execute(grow));
  // Many copies of a large value: the variables together are bounded too.
  std::string copies = "s = \"xxxxxxxxxxxxxxxx\"";
  for (int i = 0; i < 15; ++i) copies += "; s = s + s";
  for (int i = 0; i < 64; ++i) copies += "; c" + std::to_string(i) + " = s";
  EXPECT_FALSE(ev.ev_Execute(copies));
}

}  // namespace
