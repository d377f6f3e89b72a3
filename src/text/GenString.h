#pragma once
#include <cstdarg>
#include <cstddef>
#include <cstdint>

class BisFileIO;
struct XYZTriplet;

// The owned, growable 8-bit string of the library. Its text may instead be a placeholder that
// points into a BisFileIO memory buffer (not owned, never freed). A null text counts as empty.
class GenString {
 public:
  GenString() = default;
  GenString(char const* text);  // NOLINT: implicit on purpose, as a string type
  GenString(GenString const& other);
  GenString(GenString&& other) noexcept;
  GenString& operator=(GenString const& other);
  GenString& operator=(GenString&& other) noexcept;
  GenString& operator=(char const* text);
  virtual ~GenString();

  // Never null: an empty string yields "".
  char const* c_str() const { return _text ? _text : ""; }
  operator char const*() const { return c_str(); }
  char* str_GetBuffer() { return _text; }
  bool str_IsPlaceholder() const { return _text && !_owned; }

  // Replace or extend the text.
  void Format(char const* format, ...) __attribute__((format(printf, 2, 3)));
  void str_FormatV(char const* format, va_list ap);
  void str_Add(char const* format, ...) __attribute__((format(printf, 2, 3)));
  void str_cat(char const* text);
  void str_ncat(char const* text, size_t n);
  void str_dup(char const* text);
  void str_cpy(char const* text) { str_dup(text); }
  void str_MemDup(void const* data, size_t len);  // owned copy of len bytes, then a terminator
  void str_SetMem(char* text);                     // point at text without owning it (placeholder)
  void Clear();

  bool str_IsEmpty() const { return !_text || !*_text; }
  size_t str_len() const;
  size_t str_GetSize() const { return _text ? str_len() + 1 : 0; }
  char str_last_char() const;
  void str_ToLower();
  void str_replace_char(char from, char to);
  bool str_HasUpperCase() const;
  bool str_HasLowerCase() const;
  bool str_IsAlpha() const;
  bool str_IsDigit() const;
  bool str_IsAlphaNumeric() const;
  bool str_IsInteger() const;
  bool str_IsFloat() const;
  int str_atoi() const;
  int str_GetInt() const { return str_atoi(); }
  long long str_GetLongLong() const;
  float str_GetFloat() const;
  double str_GetDouble() const;
  void str_SetNumber(long long n);
  long long str_ToNumber() const { return str_GetLongLong(); }

  // Equal texts: strcmp when case-sensitive, strcasecmp otherwise. An empty string equals only a
  // null or empty text.
  bool Compare(char const* text, bool case_sensitive = false) const;

  char const* str_FindQuoteAndStrip();
  void str_trim();

  // The shortest text that reads back to the identical bits.
  char const* str_FloatToStr(float value, bool integers_allowed = false);
  char const* str_FloatToStr(double value, bool integers_allowed = false);
  char const* str_FloatToStr(XYZTriplet const& value, bool integers_allowed = false);

  // Strings as files store them.
  void str_Read(BisFileIO& io, int count = 0);
  void str_ReadSizedString(BisFileIO& io, bool terminated);
  void str_WriteSizedString(BisFileIO& io, bool terminated) const;
  void str_WriteString(BisFileIO& io) const;

  // Line counters used by line-by-line readers.
  int str_get_line_count() const { return _lines; }
  void str_set_line_count(int n) { _lines = n; }
  int str_get_unprocessed_lines() const { return _unprocessed; }
  char const* str_GetNextLine(GenString& line);

 protected:
  void _reserve(size_t len);  // make the text owned with room for len characters plus terminator
  char* _text = nullptr;
  bool _owned = true;
  size_t _cap = 0;
  int _lines = 0;
  int _unprocessed = 0;
  size_t _cursor = 0;  // str_GetNextLine position
};
