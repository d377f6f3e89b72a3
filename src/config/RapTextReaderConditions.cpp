// #if: a condition over whole numbers, macros and __has_include.
//
// The line is read in three steps: each __has_include("file") becomes 1 or 0 (found by the same
// search as #include, include folders and all), the macros are expanded, and what is left is
// worked out with == != < > <= >= && || ! unary minus and parentheses. A name that is still there
// is a macro the text never defined: it counts 0, as in the C preprocessor (the game's own
// __A3_DEBUG__ is such a name outside a debugging game).
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "config/RapTextReaderImpl.h"
#include "io/BisFileIO.h"

namespace {
constexpr int kMaxDepth = 200;  // parentheses and '!' nested within one condition

// A piece of the condition for a message, cut short when it is long.
std::string quoted(std::string_view piece) {
  constexpr size_t kShown = 40;
  return "'" + std::string(piece.substr(0, kShown)) + (piece.size() > kShown ? "...'" : "'");
}

struct Expr {
  std::string_view s;
  size_t at = 0;
  int depth = 0;
  std::string fault;

  void blanks() {
    while (at < s.size() && (s[at] == ' ' || s[at] == '\t' || s[at] == '\r' || s[at] == '\n')) ++at;
  }
  bool take(std::string_view op) {
    blanks();
    if (s.compare(at, op.size(), op) != 0) return false;
    // "<" is not the start of "<=", nor "!" of "!=", nor "=" anything on its own.
    if (op.size() == 1 && at + 1 < s.size() && s[at + 1] == '=' && (op == "<" || op == ">" || op == "!")) return false;
    at += op.size();
    return true;
  }
  bool fail(std::string why) {
    if (fault.empty()) fault = std::move(why);
    return false;
  }

  bool primary(int64_t& v) {
    blanks();
    if (at >= s.size()) return fail("a number or a name is missing");
    char c = s[at];
    if (c == '(') {
      ++at;
      if (!nested(v)) return false;
      if (!take(")")) return fail("a ')' is missing");
      return true;
    }
    if (rap_is_name_start(static_cast<unsigned char>(c))) {
      while (at < s.size() && rap_is_name_char(static_cast<unsigned char>(s[at]))) ++at;
      v = 0;
      return true;
    }
    if (c >= '0' && c <= '9') {
      size_t b = at;
      while (at < s.size() && (rap_is_name_char(static_cast<unsigned char>(s[at])) || s[at] == '.')) ++at;
      std::string digits(s.substr(b, at - b));
      bool hex = digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X');
      char* end = nullptr;
      unsigned long long u = std::strtoull(digits.c_str() + (hex ? 2 : 0), &end, hex ? 16 : 10);
      if (*end || u > static_cast<unsigned long long>(INT64_MAX)) return fail(quoted(digits) + " is not a whole number");
      v = static_cast<int64_t>(u);
      return true;
    }
    if (c == '"') return fail("a string cannot be compared");
    return fail(std::string("'") + c + "' is not an operator here");
  }
  bool nested(int64_t& v) {
    if (++depth > kMaxDepth) return fail("nested too deep");
    bool ok = either(v);
    --depth;
    return ok;
  }
  bool unary(int64_t& v) {
    if (take("!") || take("-") || take("+")) {
      char op = s[at - 1];
      if (++depth > kMaxDepth) return fail("nested too deep");
      bool ok = unary(v);
      --depth;
      if (!ok) return false;
      v = op == '!' ? !v : op == '-' ? static_cast<int64_t>(0 - static_cast<uint64_t>(v)) : v;
      return true;
    }
    return primary(v);
  }
  bool relational(int64_t& v) {
    if (!unary(v)) return false;
    for (;;) {
      int64_t w;
      if (take("<=")) {
        if (!unary(w)) return false;
        v = v <= w;
      } else if (take(">=")) {
        if (!unary(w)) return false;
        v = v >= w;
      } else if (take("<")) {
        if (!unary(w)) return false;
        v = v < w;
      } else if (take(">")) {
        if (!unary(w)) return false;
        v = v > w;
      } else {
        return true;
      }
    }
  }
  bool equality(int64_t& v) {
    if (!relational(v)) return false;
    for (;;) {
      int64_t w;
      if (take("==")) {
        if (!relational(w)) return false;
        v = v == w;
      } else if (take("!=")) {
        if (!relational(w)) return false;
        v = v != w;
      } else {
        return true;
      }
    }
  }
  bool both(int64_t& v) {
    if (!equality(v)) return false;
    while (take("&&")) {
      int64_t w;
      if (!equality(w)) return false;
      v = v && w;
    }
    return true;
  }
  bool either(int64_t& v) {
    if (!both(v)) return false;
    while (take("||")) {
      int64_t w;
      if (!both(w)) return false;
      v = v || w;
    }
    return true;
  }
};
}  // namespace

int RapTextReader::Impl::has_includes(std::string_view line, std::string& out) {
  // Only the name as written counts: a macro cannot stand for __has_include, nor for its file.
  static constexpr std::string_view kName = "__has_include";
  out.clear();
  size_t i = 0;
  while (i < line.size()) {
    char c = line[i];
    if (c == '"') {  // quoted text is copied whole
      size_t q = line.find('"', i + 1);
      q = q == std::string_view::npos ? line.size() : q + 1;
      out.append(line.substr(i, q - i));
      i = q;
      continue;
    }
    if (!rap_is_name_start(static_cast<unsigned char>(c))) {
      out.push_back(c);
      ++i;
      continue;
    }
    size_t e = i;
    while (e < line.size() && rap_is_name_char(static_cast<unsigned char>(line[e]))) ++e;
    std::string_view word = line.substr(i, e - i);
    i = e;
    if (word != kName) {
      out.append(word);
      continue;
    }
    auto skip = [&] {
      while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
    };
    skip();
    size_t close = std::string_view::npos;
    char quote = 0;
    if (i < line.size() && line[i] == '(') {
      ++i;
      skip();
      if (i < line.size() && (line[i] == '"' || line[i] == '<')) {
        quote = line[i] == '"' ? '"' : '>';
        close = line.find(quote, i + 1);
      }
    }
    if (close == std::string_view::npos) {
      r._io.io_callbackerr("#if: __has_include takes a file name in quotes: __has_include(\"\\x\\y\\file.hpp\")\r\n");
      return RAP_STATUS + RAPMSG_BAD_EVAL;
    }
    std::string name(line.substr(i + 1, close - i - 1));
    i = close + 1;
    skip();
    if (i >= line.size() || line[i] != ')') {
      r._io.io_callbackerr("#if: a ')' is missing after __has_include(%c%s%c\r\n", quote == '>' ? '<' : '"',
                           name.c_str(), quote);
      return RAP_STATUS + RAPMSG_BAD_EVAL;
    }
    ++i;
    std::string found;
    bool there = !name.empty() && resolve(name, found, true) == 0;
    out.append(there ? " 1 " : " 0 ");
  }
  return 0;
}

int RapTextReader::Impl::condition(std::string_view line, bool& truth) {
  std::string plain, expanded;
  if (int e = has_includes(line, plain)) return e;
  Hidden const none;
  if (int e = expand_text(plain, expanded, stack, none)) return e;
  Expr x;
  x.s = expanded;
  int64_t v = 0;
  bool ok = expanded.find_first_not_of(" \t\r\n") == std::string::npos ? x.fail("there is nothing to test")
                                                                         : x.either(v);
  x.blanks();
  if (ok && x.at < expanded.size()) ok = x.fail(quoted(std::string_view(expanded).substr(x.at)) + " is left over");
  if (!ok) {
    // A line long enough to be hostile is shown by its start.
    constexpr size_t kShown = 80;
    std::string shown(line.substr(0, kShown));
    if (line.size() > kShown) shown += "...";
    r._io.io_callbackerr("#if%s: %s\r\n", shown.c_str(), x.fault.c_str());
    return RAP_STATUS + RAPMSG_BAD_EVAL;
  }
  truth = v != 0;
  return 0;
}
