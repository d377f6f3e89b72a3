#include "config/RapParser.h"

#include <strings.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "config/RapMessages.h"
#include "config/RapTextReader.h"
#include "config/rap_entry.h"
#include "core/BisMessage.h"
#include "io/BisFileIO.h"
#include "text/TokenPairs.h"

namespace {
constexpr int kEof = RAP_STATUS + RAPMSG_EOF;
using RT = RapTextReader;

std::string lowered(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return s;
}

// An integer as written: decimal, or hex after "0x". False when the text is anything else.
bool parse_integer(char const* s, int64_t& value, bool& wide) {
  char const* p = s;
  bool negative = *p == '-';
  if (*p == '-' || *p == '+') ++p;
  int base = 10;
  if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
    base = 16;
    p += 2;
  }
  if (!*p) return false;
  for (char const* q = p; *q; ++q) {
    bool ok = base == 16 ? std::isxdigit(static_cast<unsigned char>(*q)) : std::isdigit(static_cast<unsigned char>(*q));
    if (!ok) return false;
  }
  errno = 0;
  unsigned long long u = std::strtoull(p, nullptr, base);
  if (errno == ERANGE) return false;
  if (base == 16 && u <= 0xFFFFFFFFull) {
    // Hex spells bit patterns: 0xFFFFFFFF is the 32-bit word, -1.
    int64_t v = static_cast<int32_t>(static_cast<uint32_t>(u));
    value = negative ? -v : v;
    wide = false;
    return true;
  }
  if (u > static_cast<unsigned long long>(INT64_MAX) + (negative ? 1 : 0)) return false;
  value = negative ? static_cast<int64_t>(0 - u) : static_cast<int64_t>(u);
  wide = value < INT32_MIN || value > INT32_MAX;
  return true;
}

// A real number: digits with a point or an exponent, nothing else.
bool parse_real(char const* s, float& value) {
  char const* p = s;
  if (*p == '-' || *p == '+') ++p;
  if (!std::isdigit(static_cast<unsigned char>(*p)) && !(*p == '.' && std::isdigit(static_cast<unsigned char>(p[1]))))
    return false;
  char* end = nullptr;
  value = std::strtof(s, &end);
  return end && !*end;
}
}  // namespace

struct RapParser::Scope {
  std::unordered_set<std::string> names;  // values and arrays of the class, lower-cased
};

RapParser::RapParser(RapTextReader& reader, BisFileIO& io) : _rd(reader), _io(io) {}

bool RapParser::_is(char symbol) const {
  return _rd.rt_TokenKind() == RT::TK_SYMBOL && _rd.rt_Token()[0] == symbol && !_rd.rt_Token()[1];
}

// A fault of the text: reported with its place, returned as a status.
int RapParser::_fail(int message) {
  int status = message >= RAP_STATUS ? message : RAP_STATUS + message;
  _line_in_error = _rd.rt_CurrentLine();
  return _rd.rt_Error(status);
}

int RapParser::_next(int mode) {
  int r = _rd.rt_NextToken(mode);
  if (r && r != kEof) return _fail(r);
  return r;
}

int RapParser::rpp_Parse(rap_entry& root, TokenPairs& enums) {
  _enums = &enums;
  _open.clear();
  _missing_parents = 0;
  _line_in_error = 0;
  // A root class with a parent: the decoder writes it as ": Parent" ahead of everything.
  int r = _next();
  if (r == kEof) return 0;
  if (r) return r;
  if (_is(':')) {
    if ((r = _next())) return r == kEof ? _fail(RAPMSG_EXPECTED_INHERIT) : r;
    if (_rd.rt_TokenKind() != RT::TK_WORD) return _fail(RAPMSG_EXPECTED_INHERIT);
    root.tkn_value() = _rd.rt_Token();
  } else {
    _rd.rt_UngetToken();
  }
  if ((r = _body(root, 0))) return r;
  if (_missing_parents) {
    GenString where;
    where.Format("In File %s: circa Line %d %s", _file_in_error.c_str(), _line_in_error,
                 rap_message_text(RAPMSG_MISSING_INHERIT));
    _io.io_callbackerr("%s\r\n", where.c_str());
    return RAP_STATUS + RAPMSG_MISSING_INHERIT;
  }
  return 0;
}

int RapParser::_body(rap_entry& cls, int depth) {
  Scope scope;
  for (;;) {
    int r = _next();
    if (r == kEof) {
      if (depth == 0) return 0;
      _line_in_error = _rd.rt_CurrentLine();
      _io.io_callbackerr("Truncated file. Missing one or more};. Error starts near token '%s' : %s\r\n",
                         _open.back().c_str(), rap_message_text(RAPMSG_EOF));
      return kEof;
    }
    if (r) return r;
    if (_is('}')) return depth ? 0 : _fail(RAPMSG_EXTRANEOUS);
    if (_is(';')) continue;  // an empty statement; the reader has said what it thinks of ";;"
    if ((r = _statement(cls, scope, depth))) return r;
  }
}

int RapParser::_statement(rap_entry& cls, Scope& scope, int depth) {
  RT::TokenKind kind = _rd.rt_TokenKind();
  // A macro may expand to nothing: an empty word names nothing.
  if ((kind != RT::TK_WORD && kind != RT::TK_NUMBER) || !_rd.rt_TokenLength()) return _fail(RAPMSG_EXTRANEOUS);
  std::string name = _rd.rt_Token();
  int r = _next();
  if (r) return r == kEof ? _fail(RAPMSG_EXPECTED_SEMICOLON) : r;
  // Keywords are words like any other when a value of that name follows.
  bool value_follows = _is('=') || _is('[') || _is('+');
  if (!value_follows && kind == RT::TK_WORD) {
    if (!strcasecmp(name.c_str(), "class")) return _class(cls, depth);
    if (!strcasecmp(name.c_str(), "enum")) return _is('{') ? _enum(*_enums) : _fail(RAPMSG_EXPECTED_CLASS_BRACE);
    if (!strcasecmp(name.c_str(), "delete")) {
      if (_rd.rt_TokenKind() != RT::TK_WORD && _rd.rt_TokenKind() != RT::TK_NUMBER)
        return _fail(RAPMSG_EXPECTED_CLASS_NAME);
      if (_no_delete) return _fail(RAPMSG_DELETE_IN_MODELCFG);
      cls.rpe_add_delete(_rd.rt_Token());
      return _end_of_statement();
    }
  }
  if (!value_follows) return _fail(RAPMSG_EXTRANEOUS);
  if (!scope.names.insert(lowered(name)).second) return _fail(RAPMSG_DUPLICATE);
  if (_is('=')) return _value(cls, name);
  bool append = false;
  if (!_is('[') || (r = _next()) || !_is(']') || (r = _next()))
    return r && r != kEof ? r : _fail(RAPMSG_EXPECTED_ARRAY);
  if (_is('+')) {
    append = true;
    if ((r = _next())) return r == kEof ? _fail(RAPMSG_EXPECTED_ARRAY) : r;
  }
  if (!_is('=') || (r = _next()) || !_is('{')) return r && r != kEof ? r : _fail(RAPMSG_EXPECTED_ARRAY);
  if ((r = _array(*cls.rpe_add_array(name.c_str(), append), depth + 1))) return r;
  return _end_of_statement();
}

int RapParser::_class(rap_entry& cls, int depth) {
  RT::TokenKind kind = _rd.rt_TokenKind();
  if ((kind != RT::TK_WORD && kind != RT::TK_NUMBER) || !_rd.rt_TokenLength())
    return _fail(RAPMSG_EXPECTED_CLASS_NAME);
  std::string name = _rd.rt_Token();
  int r = _next();
  if (r) return r == kEof ? _fail(RAPMSG_EXPECTED_AFTER_CLASSNAME) : r;
  if (_is(';') || _is('}')) {
    // A declaration of a class that another addon defines.
    cls.rpe_add_extern(name.c_str());
    if (_is(';')) return 0;
    _rd.rt_UngetToken();
    return _end_of_statement();
  }
  std::string parent;
  if (_is(':')) {
    if ((r = _next())) return r == kEof ? _fail(RAPMSG_EXPECTED_INHERIT) : r;
    if (_rd.rt_TokenKind() != RT::TK_WORD && _rd.rt_TokenKind() != RT::TK_NUMBER)
      return _fail(RAPMSG_EXPECTED_INHERIT);
    parent = _rd.rt_Token();
    if ((r = _next())) return r == kEof ? _fail(RAPMSG_EXPECTED_CLASS_BRACE) : r;
    if (!_is('{')) return _fail(RAPMSG_EXPECTED_CLASS_BRACE);
  } else if (!_is('{')) {
    return _fail(RAPMSG_EXPECTED_AFTER_CLASSNAME);
  }
  if (cls.rpe_get_class(name.c_str())) return _fail(RAPMSG_DUPLICATE);
  if (depth >= kMaxDepth) {
    _line_in_error = _rd.rt_CurrentLine();
    bis_throw_message("%s(%d): classes and arrays nest deeper than %d levels\n", _rd.rt_CurrentFile(),
                      _line_in_error, kMaxDepth);
  }
  rap_entry* node = cls.rpe_add_class(name.c_str(), parent.c_str());
  // The parent must be known here: defined before, or declared as living in another addon.
  if (!parent.empty() && !node->rpe_find_inherited_class() && !node->rpe_find_nearest_extern(parent.c_str())) {
    _io.io_callbackerr("inherit class '%s' does not exist\n", parent.c_str());
    if (!_missing_parents++) {
      _line_in_error = _rd.rt_CurrentLine();
      _file_in_error = _rd.rt_CurrentFile();
    }
  }
  _open.push_back(name);
  if ((r = _body(*node, depth + 1))) return r;
  _open.pop_back();
  // Macros that write several classes often drop the ';' between "}" and the next "class".
  return _end_of_statement(true);
}

// After a value, an array or a class: the ';'. One missing before a '}', at the end of a line or
// behind a class's '}' is what the game forgives, with a warning.
int RapParser::_end_of_statement(bool after_class) {
  int r = _next(RT::RT_EOL_TOKEN);
  bool forgiven = after_class;
  if (r == 0 && _rd.rt_TokenKind() == RT::TK_EOL) {
    r = _next();
    forgiven = true;
  }
  if (r == kEof) return _rd.rt_Warning(RAPMSG_EXPECTED_SEMICOLON) ? _fail(RAPMSG_EXPECTED_SEMICOLON) : 0;
  if (r) return r;
  if (_is(';')) return 0;
  if (!forgiven && !_is('}')) return _fail(RAPMSG_EXPECTED_SEMICOLON);
  _rd.rt_UngetToken();
  if (int w = _rd.rt_Warning(RAPMSG_EXPECTED_SEMICOLON)) return _fail(w);
  return 0;
}

int RapParser::_value(rap_entry& cls, std::string const& name) {
  _text.clear();
  int count = 0, braces = 0;
  bool quoted = false, strings = false;
  for (;;) {
    int r = _next(RT::RT_EOL_TOKEN);
    if (r == kEof) break;
    if (r) return r;
    RT::TokenKind kind = _rd.rt_TokenKind();
    if (kind == RT::TK_EOL) {
      if (!count) continue;  // the value may start on the next line
      _rd.rt_UngetToken();
      break;
    }
    // Old sources quote script text with braces: init = _this exec {\x\y.sqs};
    if (_is('{') && count) ++braces;
    if ((_is(';') && !braces) || (_is('}') && !braces--)) {
      braces = 0;
      _rd.rt_UngetToken();
      break;
    }
    // Unquoted script text may hold quoted pieces: they keep their quotes.
    if (count == 1 && quoted) _text = _quoted(_text);
    if (count) _text += _rd.rt_Gap();
    if (count && kind == RT::TK_STRING)
      _text += _quoted(_rd.rt_Token());
    else
      _text.append(_rd.rt_Token(), _rd.rt_TokenLength());
    quoted = !count && kind == RT::TK_STRING;
    strings = strings || kind == RT::TK_STRING;
    ++count;
  }
  if (!count) return _fail(RAPMSG_ILLEGAL_VALUE);
  _add_scalar(cls, name.c_str(), strings);
  return _end_of_statement();
}

std::string RapParser::_quoted(std::string const& text) {
  std::string q = "\"";
  for (char c : text) {
    q += c;
    if (c == '"') q += c;
  }
  return q += '"';
}

// Strings stay strings. Anything else is a number when its whole text reads as one, however many
// tokens made it: the game expands macros first and reads the value after, so MAJOR.MINOR
// (3 and 19) is the float 3.19 and -MAJOR the integer -3.
void RapParser::_add_scalar(rap_entry& into, char const* name, bool text) {
  if (!text) {
    int64_t i;
    bool wide;
    float f;
    if (parse_integer(_text.c_str(), i, wide)) {
      wide ? into.rpe_add_int64(name, i) : into.rpe_add_int(name, static_cast<int32_t>(i));
      return;
    }
    if (parse_real(_text.c_str(), f)) {
      into.rpe_add_float(name, f);
      return;
    }
  }
  into.rpe_add_string(name, _text.c_str());
}

int RapParser::_array(rap_entry& array, int depth) {
  if (depth >= kMaxDepth) {
    _line_in_error = _rd.rt_CurrentLine();
    bis_throw_message("%s(%d): classes and arrays nest deeper than %d levels\n", _rd.rt_CurrentFile(),
                      _line_in_error, kMaxDepth);
  }
  for (;;) {
    int r = _next();
    if (r) return r == kEof ? _fail(RAPMSG_EOF) : r;
    if (_is('}')) return 0;
    if (_is('{')) {
      if ((r = _array(*array.rpe_add_array(nullptr, false), depth + 1))) return r;
    } else if ((r = _element(array))) {
      return r;
    }
    if ((r = _next())) return r == kEof ? _fail(RAPMSG_EOF) : r;
    if (_is('}')) return 0;
    if (!_is(',')) return _fail(RAPMSG_MISMATCHED_QUOTES);
  }
}

// One element, its first token read: a string, a number, or unquoted text up to the ',' or '}'.
int RapParser::_element(rap_entry& array) {
  _text.clear();
  bool quoted = _rd.rt_TokenKind() == RT::TK_STRING;
  if (_is(',')) {
    // An element left out ({,db-15,1}): the game reads an empty string.
    if (int w = _rd.rt_Warning(RAPMSG_ILLEGAL_VALUE)) return _fail(w);
    _rd.rt_UngetToken();
    array.rpe_add_string(nullptr, "");
    return 0;
  }
  _text.append(_rd.rt_Token(), _rd.rt_TokenLength());
  for (int count = 1;; ++count) {
    int r = _next();
    if (r) return r == kEof ? _fail(RAPMSG_EOF) : r;
    if (_is(',') || _is('}')) {
      _rd.rt_UngetToken();
      _add_scalar(array, nullptr, quoted);
      return 0;
    }
    // Unquoted elements are expressions the game works out: (138 / 256), \ca\x.paa, db-10.
    if (quoted || _rd.rt_TokenKind() == RT::TK_STRING || _is('{')) return _fail(RAPMSG_MISMATCHED_QUOTES);
    _text += _rd.rt_Gap();
    _text.append(_rd.rt_Token(), _rd.rt_TokenLength());
  }
}

// enum { a, b = 5, c }: a value continues from the one before; an enumerator with no name is
// kept as "OrdinalEnum".
int RapParser::_enum(TokenPairs& enums) {
  int64_t next = 0;
  for (;;) {
    int r = _next();
    if (r) return r == kEof ? _fail(RAPMSG_EOF) : r;
    if (_is('}')) break;
    std::string name;
    if (_rd.rt_TokenKind() == RT::TK_WORD) {
      name = _rd.rt_Token();
      if ((r = _next())) return r == kEof ? _fail(RAPMSG_EOF) : r;
    }
    if (_is('=')) {
      bool wide;
      if ((r = _next())) return r == kEof ? _fail(RAPMSG_EOF) : r;
      if (_rd.rt_TokenKind() != RT::TK_NUMBER || !parse_integer(_rd.rt_Token(), next, wide) || wide)
        return _fail(RAPMSG_ILLEGAL_VALUE);
      if ((r = _next())) return r == kEof ? _fail(RAPMSG_EOF) : r;
    }
    GenString value;
    value.str_SetNumber(static_cast<int32_t>(next++));
    enums.AddChain(new TokenPair(name.empty() ? "OrdinalEnum" : name.c_str(), value.c_str()));
    if (_is('}')) break;
    if (!_is(',')) return _fail(RAPMSG_MISMATCHED_QUOTES);
  }
  return _end_of_statement();
}
