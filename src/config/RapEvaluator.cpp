#include "config/RapEvaluator.h"

#include <strings.h>

#include <cctype>
#include <cmath>
#include <cstring>
#include <cstdint>
#include <cstdlib>

#include "io/BisFileIO.h"

namespace {
constexpr float kPi = 3.14159265358979323846f;
constexpr float kDegToRad = kPi / 180.0f;

bool ieq(std::string_view a, char const* b) {
  size_t n = std::strlen(b);
  return a.size() == n && strncasecmp(a.data(), b, n) == 0;
}

void to_lower(std::string& s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
}

size_t text_size(RapOperand const& v) {
  size_t n = v.text.size() + 8;
  for (RapOperand const& i : v.items) n += text_size(i);
  return n;
}

struct Fail {};
}  // namespace

// A recursive-descent parser that evaluates as it goes.
struct RapExprParser {
  RapEvaluator& ev;
  std::string_view s;
  size_t p = 0;
  int depth = 0;

  [[noreturn]] static void fail() { throw Fail{}; }

  void blanks() {
    while (p < s.size() && (s[p] == ' ' || s[p] == '\t' || s[p] == '\r' || s[p] == '\n' || s[p] == 0)) ++p;
  }
  bool at_end() {
    blanks();
    return p >= s.size();
  }
  bool eat(char const* op) {
    blanks();
    size_t n = std::strlen(op);
    if (s.compare(p, n, op) != 0) return false;
    p += n;
    return true;
  }
  // A word operator ("and", "mod" ...) that is not the start of a longer name.
  bool eat_word(char const* w) {
    blanks();
    size_t n = std::strlen(w);
    if (p + n > s.size() || strncasecmp(s.data() + p, w, n) != 0) return false;
    if (p + n < s.size() && (std::isalnum(static_cast<unsigned char>(s[p + n])) || s[p + n] == '_')) return false;
    p += n;
    return true;
  }
  std::string_view peek_name() {
    blanks();
    size_t q = p;
    if (q < s.size() && (std::isalpha(static_cast<unsigned char>(s[q])) || s[q] == '_'))
      while (q < s.size() && (std::isalnum(static_cast<unsigned char>(s[q])) || s[q] == '_')) ++q;
    return s.substr(p, q - p);
  }

  struct Guard {
    int& d;
    explicit Guard(int& depth) : d(depth) {
      if (++d > RapEvaluator::kMaxDepth) fail();
    }
    ~Guard() { --d; }
  };

  static float num(RapOperand const& v) {
    if (v.kind != RapOperand::NUMBER && v.kind != RapOperand::BOOLEAN) fail();
    return v.value;
  }
  static bool truth(RapOperand const& v) {
    if (v.kind != RapOperand::NUMBER && v.kind != RapOperand::BOOLEAN) fail();
    return v.value != 0;
  }
  static void limit(RapOperand const& v) {
    if (text_size(v) > RapEvaluator::kMaxText) fail();
  }

  // statements: [name =] expr { ; [name =] expr }
  RapOperand statements() {
    RapOperand last;
    for (;;) {
      if (at_end()) break;
      if (eat(";")) continue;
      last = statement();
      if (!at_end() && !eat(";")) fail();
    }
    return last;
  }

  RapOperand statement() {
    size_t save = p;
    eat_word("private");
    std::string_view n = peek_name();
    if (!n.empty()) {
      size_t after = p + n.size();
      size_t q = after;
      while (q < s.size() && (s[q] == ' ' || s[q] == '\t')) ++q;
      if (q < s.size() && s[q] == '=' && (q + 1 >= s.size() || s[q + 1] != '=')) {
        std::string key(n);
        to_lower(key);
        p = q + 1;
        RapOperand v = expr();
        auto it = ev._vars.find(key);
        size_t total = ev._var_bytes - (it == ev._vars.end() ? 0 : text_size(it->second)) + text_size(v);
        if (total > RapEvaluator::kMaxVariables) fail();
        ev._var_bytes = total;
        ev._vars[key] = v;
        return v;
      }
    }
    p = save;
    return expr();
  }

  RapOperand expr() {
    Guard g(depth);
    RapOperand a = conj();
    for (;;) {
      if (eat("||") || eat_word("or")) {
        RapOperand b = conj();
        a = RapOperand::boolean(truth(a) || truth(b));
      } else {
        return a;
      }
    }
  }

  RapOperand conj() {
    RapOperand a = comparison();
    while (eat("&&") || eat_word("and")) {
      RapOperand b = comparison();
      a = RapOperand::boolean(truth(a) && truth(b));
    }
    return a;
  }

  static bool equal(RapOperand const& a, RapOperand const& b) {
    if (a.kind == RapOperand::STRING && b.kind == RapOperand::STRING)
      return a.text.size() == b.text.size() && strncasecmp(a.text.data(), b.text.data(), a.text.size()) == 0;
    return num(a) == num(b);
  }

  RapOperand comparison() {
    RapOperand a = binary();
    for (;;) {
      if (eat("==")) a = RapOperand::boolean(equal(a, binary()));
      else if (eat("!=")) a = RapOperand::boolean(!equal(a, binary()));
      else if (eat(">=")) { float x = num(a); a = RapOperand::boolean(x >= num(binary())); }
      else if (eat("<=")) { float x = num(a); a = RapOperand::boolean(x <= num(binary())); }
      else if (eat(">>")) fail();  // config paths need the running game
      else if (eat(">")) { float x = num(a); a = RapOperand::boolean(x > num(binary())); }
      else if (eat("<")) { float x = num(a); a = RapOperand::boolean(x < num(binary())); }
      else return a;
    }
  }

  RapOperand binary() {
    RapOperand a = additive();
    while (eat_word("select")) {
      RapOperand i = additive();
      if (a.kind != RapOperand::ARRAY) fail();
      long idx;
      if (i.kind == RapOperand::BOOLEAN) idx = i.value != 0 ? 0 : 1;  // select true is the first
      else idx = std::lround(num(i));
      if (idx < 0 || static_cast<size_t>(idx) >= a.items.size()) fail();
      RapOperand v = a.items[static_cast<size_t>(idx)];
      a = std::move(v);
    }
    return a;
  }

  RapOperand additive() {
    RapOperand a = multiplicative();
    for (;;) {
      if (eat("+")) {
        RapOperand b = multiplicative();
        if (a.kind == RapOperand::STRING && b.kind == RapOperand::STRING) {
          a.text += b.text;
        } else if (a.kind == RapOperand::ARRAY && b.kind == RapOperand::ARRAY) {
          for (RapOperand& x : b.items) a.items.push_back(std::move(x));
        } else {
          a = RapOperand::number(num(a) + num(b));
        }
        limit(a);
      } else if (eat("-")) {
        float x = num(a);
        a = RapOperand::number(x - num(multiplicative()));
      } else if (eat_word("max")) {
        float x = num(a);
        a = RapOperand::number(std::fmax(x, num(multiplicative())));
      } else if (eat_word("min")) {
        float x = num(a);
        a = RapOperand::number(std::fmin(x, num(multiplicative())));
      } else {
        return a;
      }
    }
  }

  RapOperand multiplicative() {
    RapOperand a = power();
    for (;;) {
      if (eat("*")) {
        float x = num(a);
        a = RapOperand::number(x * num(power()));
      } else if (eat("/")) {
        float x = num(a), y = num(power());
        a = RapOperand::number(y == 0 ? 0 : x / y);  // the game yields 0 rather than stopping
      } else if (eat("%") || eat_word("mod")) {
        float x = num(a), y = num(power());
        a = RapOperand::number(y == 0 ? 0 : std::fmod(x, y));
      } else if (eat_word("atan2")) {
        float y = num(a), x = num(power());
        a = RapOperand::number(std::atan2(y, x) / kDegToRad);
      } else {
        return a;
      }
    }
  }

  RapOperand power() {
    RapOperand a = unary();
    while (eat("^")) {
      float x = num(a);
      a = RapOperand::number(std::pow(x, num(unary())));
    }
    return a;
  }

  RapOperand unary() {
    Guard g(depth);
    if (eat("-")) return RapOperand::number(-num(unary()));
    if (eat("+")) return RapOperand::number(num(unary()));
    if (eat("!") || eat_word("not")) {
      RapOperand v = unary();
      if (v.kind != RapOperand::BOOLEAN && v.kind != RapOperand::NUMBER) return v;
      return RapOperand::boolean(v.value == 0);
    }
    std::string_view n = peek_name();
    if (!n.empty()) {
      if (RapOperand v; function(n, v)) return v;
    }
    return primary();
  }

  // The named unary functions. False when `n` is not one.
  bool function(std::string_view n, RapOperand& out) {
    using F = float (*)(float);
    struct Math {
      char const* name;
      F f;
    };
    static Math const maths[] = {
        {"acos", [](float x) { return std::acos(x) / kDegToRad; }},
        {"asin", [](float x) { return std::asin(x) / kDegToRad; }},
        {"atan", [](float x) { return std::atan(x) / kDegToRad; }},
        {"atg", [](float x) { return std::atan(x) / kDegToRad; }},
        {"cos", [](float x) { return std::cos(x * kDegToRad); }},
        {"sin", [](float x) { return std::sin(x * kDegToRad); }},
        {"tan", [](float x) { return std::tan(x * kDegToRad); }},
        {"ceil", [](float x) { return std::ceil(x); }},
        {"floor", [](float x) { return std::floor(x); }},
        {"round", [](float x) { return std::round(x); }},
        {"deg", [](float x) { return x * 180.0f / kPi; }},
        {"rad", [](float x) { return x * kPi / 180.0f; }},
        {"exp", [](float x) { return std::exp(x); }},
        {"ln", [](float x) { return std::log(x); }},
        {"log", [](float x) { return std::log10(x); }},
        {"sqrt", [](float x) { return std::sqrt(x); }},
        {"abs", [](float x) {  // an integer absolute value: abs -2.7 is 2
           double t = std::trunc(static_cast<double>(x));
           if (!(t > -2147483648.0 && t < 2147483648.0)) return std::fabs(x);
           return static_cast<float>(std::abs(static_cast<int32_t>(t)));
         }},
    };
    if (ieq(n, "productversion")) {
      p += n.size();
      ev._unbinarisable("productversion");
      out = {RapOperand::ARRAY, {}, 0, {}};
      for (char const* t : {"Arma 3", "Arma3"}) out.items.push_back(RapOperand::string(t));
      out.items.push_back(RapOperand::number(137));
      out.items.push_back(RapOperand::number(128764));
      out.items.push_back(RapOperand::string("Development"));
      out.items.push_back(RapOperand::boolean(false));
      out.items.push_back(RapOperand::string("Windows"));
      return true;
    }
    for (Math const& m : maths) {
      if (!ieq(n, m.name)) continue;
      p += n.size();
      out = unary();
      if (out.kind == RapOperand::NUMBER) out.value = m.f(out.value);
      return true;
    }
    auto game_only = [&](char const* name, RapOperand::Kind want) {
      p += n.size();
      out = unary();
      if (out.kind != want) return;
      ev._unbinarisable(name);
      return;
    };
    if (ieq(n, "random")) {
      game_only("random", RapOperand::NUMBER);
      if (out.kind == RapOperand::NUMBER) out.value *= 0.5f;  // the middle of the range
      return true;
    }
    if (ieq(n, "selectRandom")) {
      game_only("selectRandom", RapOperand::ARRAY);
      if (out.kind == RapOperand::ARRAY) out = RapOperand::string("garbage");
      return true;
    }
    if (ieq(n, "localize")) {
      game_only("localize", RapOperand::STRING);
      return true;
    }
    if (ieq(n, "str")) {
      p += n.size();
      out = unary();
      if (out.kind == RapOperand::NUMBER) out = RapOperand::string(RapEvaluator::ev_ToText(out));
      else if (out.kind == RapOperand::BOOLEAN) out = RapOperand::string(out.value != 0 ? "true" : "false");
      else if (out.kind == RapOperand::STRING) out = RapOperand::string("\"" + out.text + "\"");
      return true;
    }
    if (ieq(n, "count")) {
      p += n.size();
      out = unary();
      if (out.kind == RapOperand::ARRAY) out = RapOperand::number(static_cast<float>(out.items.size()));
      else if (out.kind == RapOperand::STRING) out = RapOperand::number(static_cast<float>(out.text.size()));
      return true;
    }
    return false;
  }

  RapOperand primary() {
    Guard g(depth);
    blanks();
    if (p >= s.size()) fail();
    char c = s[p];
    if (c == '(') {
      ++p;
      RapOperand v = expr();
      if (!eat(")")) fail();
      return v;
    }
    if (c == '[') {
      ++p;
      RapOperand a{RapOperand::ARRAY, {}, 0, {}};
      if (eat("]")) return a;
      for (;;) {
        a.items.push_back(expr());
        limit(a);
        if (eat("]")) return a;
        if (!eat(",")) fail();
      }
    }
    if (c == '"' || c == '\'') {
      RapOperand v{RapOperand::STRING, {}, 0, {}};
      ++p;
      for (;;) {
        if (p >= s.size()) fail();
        if (s[p] == c) {
          if (p + 1 < s.size() && s[p + 1] == c) {
            v.text.push_back(c);
            p += 2;
            continue;
          }
          ++p;
          return v;
        }
        v.text.push_back(s[p++]);
      }
    }
    if (std::isdigit(static_cast<unsigned char>(c)) || c == '.' || c == '$') {
      // Only the number's own characters are copied, so that a long expression stays linear.
      size_t q = p + 1;
      while (q < s.size() && q - p < 64 &&
             (std::isalnum(static_cast<unsigned char>(s[q])) || s[q] == '.' ||
              ((s[q] == '-' || s[q] == '+') && (s[q - 1] == 'e' || s[q - 1] == 'E'))))
        ++q;
      std::string t(s.substr(p, q - p));
      char* end = nullptr;
      double v;
      if (c == '$') {
        v = static_cast<double>(std::strtoll(t.c_str() + 1, &end, 16));
        if (end == t.c_str() + 1) fail();
      } else if (t.size() > 1 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
        v = static_cast<double>(std::strtoll(t.c_str(), &end, 16));
      } else {
        v = std::strtod(t.c_str(), &end);
      }
      if (end == t.c_str()) fail();
      p += static_cast<size_t>(end - t.c_str());
      return RapOperand::number(static_cast<float>(v));
    }
    std::string_view n = peek_name();
    if (n.empty()) fail();
    p += n.size();
    if (ieq(n, "true")) return RapOperand::boolean(true);
    if (ieq(n, "false")) return RapOperand::boolean(false);
    if (ieq(n, "pi")) return RapOperand::number(kPi);
    std::string key(n);
    to_lower(key);
    auto it = ev._vars.find(key);
    if (it == ev._vars.end()) fail();
    return it->second;
  }
};

void RapEvaluator::_unbinarisable(char const* name) {
  _not_binarisable = true;
  if (_io) _io->io_callback("\r\n/*WARNING*/ eval/exec '%s' is not binarisable\r\n", name);
}

bool RapEvaluator::ev_Evaluate(std::string_view expr, RapOperand& out) {
  RapExprParser ps{*this, expr};
  try {
    out = ps.statements();
  } catch (Fail const&) {
    return false;
  }
  if (out.kind == RapOperand::NONE) return false;
  if ((out.kind == RapOperand::NUMBER) && !std::isfinite(out.value)) return false;
  return true;
}

bool RapEvaluator::ev_Execute(std::string_view expr) {
  RapExprParser ps{*this, expr};
  try {
    ps.statements();
  } catch (Fail const&) {
    return false;
  }
  return true;
}

std::string RapEvaluator::ev_ToText(RapOperand const& v) {
  switch (v.kind) {
    case RapOperand::NUMBER: {
      if (!std::isfinite(v.value)) return "0";
      GenString g;
      return g.str_FloatToStr(v.value, true);
    }
    case RapOperand::BOOLEAN: return v.value != 0 ? "1" : "0";
    case RapOperand::STRING: {
      std::string t = "\"";
      for (char c : v.text) {
        if (c == '"') t.push_back('"');
        t.push_back(c);
      }
      return t + "\"";
    }
    case RapOperand::ARRAY: {
      std::string t = "{";
      for (size_t i = 0; i < v.items.size(); ++i) {
        if (i) t.push_back(',');
        t += ev_ToText(v.items[i]);
      }
      return t + "}";
    }
    default: return {};
  }
}
