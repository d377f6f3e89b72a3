#pragma once
// The expressions of __EVAL(...) and __EXEC(...), reduced to a constant while a config is read.
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "text/GenString.h"

class BisFileIO;

// A value of the expression language.
struct RapOperand {
  enum Kind : int { NONE = 0, STRING = 1, NUMBER = 2, BOOLEAN = 3, ARRAY = 4 };
  Kind kind = NONE;
  std::string text;   // STRING: the text without quotes
  float value = 0;    // NUMBER and BOOLEAN (0 or 1)
  std::vector<RapOperand> items;  // ARRAY

  static RapOperand number(float v) { return {NUMBER, {}, v, {}}; }
  static RapOperand boolean(bool b) { return {BOOLEAN, {}, b ? 1.0f : 0.0f, {}}; }
  static RapOperand string(std::string s) { return {STRING, std::move(s), 0, {}}; }
};

// Operators from loosest to tightest binding:
//   = (assignment, __EXEC only)   or ||   and &&   == != < > <= >= (and >> as greater-than)
//   select  max min mod atan2 (named binary functions, left to right)   + -   * / %   ^
//   unary: - + ! not, and the named unary functions (sin, str, count ...)
// Angles are in degrees, as the game's script language takes them.
class RapEvaluator {
 public:
  // Expressions nested deeper than this are refused rather than exhausting the stack.
  static constexpr int kMaxDepth = 200;
  // Strings and arrays an expression may build (repeated '+' doubles a text each time).
  static constexpr size_t kMaxText = size_t{1} << 20;
  // All variables together.
  static constexpr size_t kMaxVariables = size_t{16} << 20;

  explicit RapEvaluator(BisFileIO* io = nullptr) : _io(io) {}

  // Evaluates `expr` into `out`; false when the text is not an expression the evaluator knows.
  bool ev_Evaluate(std::string_view expr, RapOperand& out);
  // Runs `expr` for its effect ("a = 5; b = a * 2"): assignments keep their variables for later
  // expressions until ev_Reset.
  bool ev_Execute(std::string_view expr);
  // The result as config text: numbers the way the decoder writes them, strings quoted with their
  // quotes doubled, booleans as 1 or 0, arrays as "{a,b}".
  static std::string ev_ToText(RapOperand const& v);

  // Set when a function whose value only the running game knows was met (the value produced is a
  // placeholder); a warning naming it went to the message callback.
  bool ev_NotBinarisable() const { return _not_binarisable; }
  void ev_ClearNotBinarisable() { _not_binarisable = false; }
  void ev_Reset() {
    _vars.clear();
    _var_bytes = 0;
    _not_binarisable = false;
  }

 private:
  friend struct RapExprParser;
  void _unbinarisable(char const* name);
  BisFileIO* _io;
  bool _not_binarisable = false;
  std::unordered_map<std::string, RapOperand> _vars;  // lower-case names: the language ignores case
  size_t _var_bytes = 0;
};
