#include "text/GenString.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include <algorithm>
#include <new>
#include <utility>

#include "core/Generic_Errors.h"

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
