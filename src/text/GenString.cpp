#include "text/GenString.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <new>
#include <string>
#include <utility>

#include "anim/XYZTriplet.h"
#include "core/Generic_Errors.h"
#include "io/BisFileIO.h"
#include "io/BisFunion.h"

GenString::GenString(char const* text) { str_dup(text); }

GenString::GenString(GenString const& other) { str_dup(other._text); }

GenString::GenString(GenString&& other) noexcept
    : _text(std::exchange(other._text, nullptr)),
      _owned(std::exchange(other._owned, true)),
      _cap(std::exchange(other._cap, 0)),
      _lines(other._lines),
      _unprocessed(other._unprocessed),
      _cursor(other._cursor) {}

GenString& GenString::operator=(GenString const& other) {
  if (this != &other) str_dup(other._text);
  return *this;
}

GenString& GenString::operator=(GenString&& other) noexcept {
  if (this != &other) {
    Clear();
    _text = std::exchange(other._text, nullptr);
    _owned = std::exchange(other._owned, true);
    _cap = std::exchange(other._cap, 0);
    _lines = other._lines;
    _unprocessed = other._unprocessed;
    _cursor = other._cursor;
  }
  return *this;
}

GenString& GenString::operator=(char const* text) {
  str_dup(text);
  return *this;
}

GenString::~GenString() { Clear(); }

void GenString::Clear() {
  if (_owned) std::free(_text);
  _text = nullptr;
  _owned = true;
  _cap = 0;
  _cursor = 0;
}

void GenString::_reserve(size_t len) {
  if (_owned && _text && _cap >= len + 1) return;
  size_t cap = len + 1;
  if (_owned && _cap) cap = std::max(cap, _cap * 2);
  char* p = static_cast<char*>(std::malloc(cap));
  if (!p) throw GE_NO_MEMORY;
  size_t old = _text ? std::strlen(_text) : 0;
  if (old > len) old = len;
  if (_text) std::memcpy(p, _text, old);
  p[old] = 0;
  if (_owned) std::free(_text);
  _text = p;
  _owned = true;
  _cap = cap;
}

void GenString::str_FormatV(char const* format, va_list ap) {
  va_list ap2;
  va_copy(ap2, ap);
  int n = std::vsnprintf(nullptr, 0, format ? format : "", ap2);
  va_end(ap2);
  if (n < 0) n = 0;
  char* p = static_cast<char*>(std::malloc(static_cast<size_t>(n) + 1));
  if (!p) throw GE_NO_MEMORY;
  std::vsnprintf(p, static_cast<size_t>(n) + 1, format ? format : "", ap);
  Clear();
  _text = p;
  _cap = static_cast<size_t>(n) + 1;
}

void GenString::Format(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  str_FormatV(format, ap);
  va_end(ap);
}

void GenString::str_Add(char const* format, ...) {
  va_list ap;
  va_start(ap, format);
  GenString piece;
  piece.str_FormatV(format, ap);
  va_end(ap);
  str_cat(piece._text);
}

void GenString::str_cat(char const* text) {
  if (!text) return;
  str_ncat(text, std::strlen(text));
}

void GenString::str_ncat(char const* text, size_t n) {
  if (!text) return;
  n = strnlen(text, n);
  size_t old = str_len();
  if (text >= _text && _text && text < _text + old + 1) {  // appending part of itself
    GenString copy;
    copy.str_MemDup(text, n);
    str_ncat(copy._text, n);
    return;
  }
  _reserve(old + n);
  std::memcpy(_text + old, text, n);
  _text[old + n] = 0;
}

void GenString::str_dup(char const* text) {
  if (text == _text && _owned) return;
  if (!text) {
    Clear();
    return;
  }
  str_MemDup(text, std::strlen(text));
}

void GenString::str_MemDup(void const* data, size_t len) {
  char* p = static_cast<char*>(std::malloc(len + 1));
  if (!p) throw GE_NO_MEMORY;
  if (len) std::memcpy(p, data, len);
  p[len] = 0;
  Clear();
  _text = p;
  _cap = len + 1;
}

void GenString::str_SetMem(char* text) {
  Clear();
  _text = text;
  _owned = false;
}

size_t GenString::str_len() const { return _text ? std::strlen(_text) : 0; }

char GenString::str_last_char() const {
  size_t n = str_len();
  return n ? _text[n - 1] : 0;
}

void GenString::str_ToLower() {
  if (str_IsEmpty()) return;
  if (!_owned) str_dup(_text);
  for (char* p = _text; *p; ++p) *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
}

void GenString::str_replace_char(char from, char to) {
  if (str_IsEmpty()) return;
  if (!_owned) str_dup(_text);
  for (char* p = _text; *p; ++p)
    if (*p == from) *p = to;
}

namespace {
template <class Pred>
bool any_of(char const* t, Pred pred) {
  for (; t && *t; ++t)
    if (pred(static_cast<unsigned char>(*t))) return true;
  return false;
}
template <class Pred>
bool all_of(char const* t, Pred pred) {
  if (!t || !*t) return false;
  for (; *t; ++t)
    if (!pred(static_cast<unsigned char>(*t))) return false;
  return true;
}
}  // namespace

bool GenString::str_HasUpperCase() const { return any_of(_text, [](int c) { return std::isupper(c); }); }
bool GenString::str_HasLowerCase() const { return any_of(_text, [](int c) { return std::islower(c); }); }
bool GenString::str_IsAlpha() const { return all_of(_text, [](int c) { return std::isalpha(c); }); }
bool GenString::str_IsDigit() const { return all_of(_text, [](int c) { return std::isdigit(c); }); }
bool GenString::str_IsAlphaNumeric() const { return all_of(_text, [](int c) { return std::isalnum(c); }); }

bool GenString::str_IsInteger() const {
  if (str_IsEmpty()) return false;
  char const* p = _text;
  if (*p == '-' || *p == '+') ++p;
  return all_of(p, [](int c) { return std::isdigit(c); });
}

bool GenString::str_IsFloat() const {
  if (str_IsEmpty()) return false;
  char* end = nullptr;
  std::strtod(_text, &end);
  return end != _text && *end == 0;
}

int GenString::str_atoi() const { return std::atoi(c_str()); }
long long GenString::str_GetLongLong() const { return std::strtoll(c_str(), nullptr, 0); }
float GenString::str_GetFloat() const { return std::strtof(c_str(), nullptr); }
double GenString::str_GetDouble() const { return std::strtod(c_str(), nullptr); }
void GenString::str_SetNumber(long long n) { Format("%lld", n); }

bool GenString::Compare(char const* text, bool case_sensitive) const {
  bool mine_empty = str_IsEmpty();
  bool theirs_empty = !text || !*text;
  if (mine_empty || theirs_empty) return mine_empty && theirs_empty;
  return case_sensitive ? std::strcmp(_text, text) == 0 : strcasecmp(_text, text) == 0;
}

void GenString::str_trim() {
  if (str_IsEmpty()) return;
  char const* b = _text;
  while (*b == ' ') ++b;
  size_t n = std::strlen(b);
  while (n && b[n - 1] == ' ') --n;
  GenString t;
  t.str_MemDup(b, n);
  *this = std::move(t);
}

char const* GenString::str_FindQuoteAndStrip() {
  if (str_IsEmpty()) return nullptr;
  char const* q = std::strchr(_text, '"');
  if (!q) return nullptr;
  char const* e = std::strchr(q + 1, '"');
  if (!e) throw "missing quote\r\n";
  GenString t;
  t.str_MemDup(q + 1, static_cast<size_t>(e - q - 1));
  *this = std::move(t);
  return c_str();
}

char const* GenString::str_GetNextLine(GenString& line) {
  if (!_text || !_text[_cursor]) return nullptr;
  char const* start = _text + _cursor;
  char const* nl = std::strchr(start, '\n');
  size_t len = nl ? static_cast<size_t>(nl - start) : std::strlen(start);
  size_t cut = len;
  if (cut && start[cut - 1] == '\r') --cut;
  line.str_MemDup(start, cut);
  _cursor += len + (nl ? 1 : 0);
  ++_lines;
  if (_unprocessed > 0) --_unprocessed;
  return line.c_str();
}

// ===== numbers as text =========================================================

namespace {

// Widens a two-digit exponent to three digits (1.5e-05 -> 1.5e-005), the form the family's own
// tools write. The sign looked at is the first '+', else the first '-': a negative number with a
// negative exponent therefore keeps its two digits, which older files show and readers expect.
void widen_exponent(GenString& s) {
  char const* t = s.c_str();
  char const* sign = std::strchr(t, '+');
  if (!sign) sign = std::strchr(t, '-');
  if (!sign || std::strlen(sign + 1) != 2) return;
  GenString out;
  out.str_ncat(t, static_cast<size_t>(sign - t) + 1);
  out.str_Add("%03d", std::atoi(sign + 1));
  s = std::move(out);
}

// Removes trailing zeros behind the point, keeping one digit after it (2.500 -> 2.5, 2.000 -> 2.0).
void strip_zeros(GenString& s) {
  char* t = s.str_GetBuffer();
  char* point = std::strchr(t, '.');
  if (!point) return;
  size_t n = std::strlen(t);
  char* keep = point + 2 <= t + n ? point + 2 : t + n;  // at least one digit after the point
  char* end = t + n;
  while (end > keep && end[-1] == '0') --end;
  *end = 0;
}

void post_process(GenString& s, bool integers_allowed) {
  char const* t = s.c_str();
  bool has_e = std::strchr(t, 'e') != nullptr;
  bool has_point = std::strchr(t, '.') != nullptr;
  if (!has_e && !has_point) {
    if (!integers_allowed) s.str_cat(".0");
  } else if (!has_e) {
    strip_zeros(s);
  } else {
    widen_exponent(s);
  }
}

// The shortest %.pg (p from `from` to 21) whose text reads back, narrowed to float, as the
// identical float. False when none does. The conversions are the locale-free ones of <charconv>,
// which write and read exactly what printf's %g and strtod do, at a fraction of their cost: every
// float of a big config passes through here.
bool shortest_float(GenString& s, float value, int from) {
  char buf[64];
  for (int p = from; p <= 21; ++p) {
    auto end = std::to_chars(buf, buf + sizeof buf - 1, static_cast<double>(value), std::chars_format::general, p).ptr;
    *end = 0;
    double wide = 0;
    std::from_chars(buf, end, wide);
    float back = static_cast<float>(wide);
    if (std::memcmp(&back, &value, sizeof value) == 0) {
      s.str_MemDup(buf, static_cast<size_t>(end - buf));
      return true;
    }
  }
  return false;
}

bool shortest_double_g(GenString& s, double value) {
  char buf[64];
  for (int p = 1; p <= 21; ++p) {
    auto end = std::to_chars(buf, buf + sizeof buf - 1, value, std::chars_format::general, p).ptr;
    *end = 0;
    double back = 0;
    std::from_chars(buf, end, back);
    if (std::memcmp(&back, &value, sizeof value) == 0) {
      s.str_MemDup(buf, static_cast<size_t>(end - buf));
      return true;
    }
  }
  return false;
}

}  // namespace

char const* GenString::str_FloatToStr(float value, bool integers_allowed) {
  switch (BisFunion::IsFaulty(value)) {
    case 1:
      std::fputs("Warning: NAN detected\n", stderr);
      str_dup("0.0/*NAN*/");
      return c_str();
    case 2:
      std::fputs("Warning: Infinity detected\n", stderr);
      str_dup("-0.0/*INFINITY*/");  // the same text for either sign, as readers expect
      return c_str();
    case -1: {
      // Denormals and the smallest normals are flagged so that a reader sees them. Plain %g keeps
      // six digits, too few for some of them: then the shortest exact precision is used instead,
      // so that the text still reads back to the same bits.
      Format("%g", static_cast<double>(value));
      float back = static_cast<float>(std::strtod(c_str(), nullptr));
      if (std::memcmp(&back, &value, sizeof value) != 0 && !shortest_float(*this, value, 7))
        throw "Warning: exact float match not found\n";
      str_cat("/*#DEN*/");
      std::fprintf(stderr, "Warning: Denormalized number %s\n", c_str());
      break;
    }
    default:
      if (!shortest_float(*this, value, 6)) throw "Warning: exact float match not found\n";
      break;
  }
  post_process(*this, integers_allowed);
  return c_str();
}

char const* GenString::str_FloatToStr(double value, bool integers_allowed) {
  if (std::isnan(value)) {
    std::fputs("Warning: NAN detected\n", stderr);
    str_dup("0.0/*NAN*/");
    return c_str();
  }
  if (std::fabs(value) > 1.7976931348623157e308) {
    std::fputs("Warning: Infinity detected\n", stderr);
    str_dup("-0.0/*INFINITY*/");
    return c_str();
  }
  char buf[400];  // %.21f of the largest double: 309 digits, the point and 21 decimals
  for (int p = 1; p <= 21; ++p) {
    std::snprintf(buf, sizeof buf, "%.*f", p, value);
    double back = std::strtod(buf, nullptr);
    if (std::memcmp(&back, &value, sizeof value) == 0) {
      str_dup(buf);
      if (!std::strchr(c_str(), '.')) str_cat(".0");
      strip_zeros(*this);
      return c_str();
    }
  }
  // Fixed point with 21 decimals cannot hold a small magnitude (1e-30 would print as 0.0): write
  // the shortest exact exponent form rather than lose the value.
  if (shortest_double_g(*this, value)) {
    post_process(*this, integers_allowed);
    return c_str();
  }
  std::fputs("Warning: exact float match not found\r\n", stderr);
  Format("%.*f", 21, value);
  strip_zeros(*this);
  return c_str();
}

char const* GenString::str_FloatToStr(XYZTriplet const& value, bool integers_allowed) {
  GenString x, y, z;
  x.str_FloatToStr(value.x, integers_allowed);
  y.str_FloatToStr(value.y, integers_allowed);
  z.str_FloatToStr(value.z, integers_allowed);
  Format("%s,%s,%s", x.c_str(), y.c_str(), z.c_str());
  return c_str();
}

// ===== strings as files store them ============================================

void GenString::str_Read(BisFileIO& io, int count) {
  if (count == 0) {
    if (io.io_IsHuge()) {
      std::string s;
      io.io_ReadAsciizHuge(s);
      str_MemDup(s.data(), s.size());
    } else {
      // In place: the text stays in the reader's buffer and is not freed by this string.
      str_SetMem(const_cast<char*>(io.io_ReadAsciiz()));
    }
    return;
  }
  uint64_t n = count > 0 ? static_cast<uint64_t>(count) : static_cast<uint64_t>(-static_cast<int64_t>(count));
  io.io_Require(n);
  if (count > 0 && !io.io_IsHuge()) {
    char* p = reinterpret_cast<char*>(io.io_GetAddressAndUpdate(n));
    // A fixed field that fills all its bytes has no terminator of its own: copy it, so that the
    // text does not run on into whatever follows.
    if (std::memchr(p, 0, n))
      str_SetMem(p);
    else
      str_MemDup(p, n);
    return;
  }
  char* p = static_cast<char*>(std::malloc(n + 1));
  if (!p) throw GE_NO_MEMORY;
  try {
    io.io_ReadBlock(p, n);
  } catch (...) {
    std::free(p);
    throw;
  }
  p[n] = 0;
  Clear();
  _text = p;
  _cap = n + 1;
}

void GenString::str_ReadSizedString(BisFileIO& io, bool terminated) {
  uint32_t len = io.io_ReadUlong();
  if (len == 0) {
    Clear();
    return;
  }
  if (terminated) {
    str_Read(io, 0);
    if (str_len() + 1 != len) io.io_throw(GE_CODE_BUG, "\r\nDebug: GenString::str_ReadSizedString\r\n");
    return;
  }
  if (len > INT32_MAX) throw GE_EOF;
  io.io_Require(len);
  str_Read(io, -static_cast<int>(len));
}

void GenString::str_WriteSizedString(BisFileIO& io, bool terminated) const {
  size_t n = str_len();
  if (!terminated) {
    io.io_WriteAsciiz(c_str(), 2);
    return;
  }
  if (!n) {
    io.io_WriteUlong(0);
    return;
  }
  io.io_WriteUlong(static_cast<uint32_t>(n + 1));
  io.io_WriteBlock(c_str(), n + 1, 1);
}

void GenString::str_WriteString(BisFileIO& io) const { io.io_WriteAsciiz(c_str(), 0); }
