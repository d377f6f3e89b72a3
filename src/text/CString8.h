#pragma once
#include <string>

#include "text/GenString.h"

// UTF-8 text built from 8-bit, unsigned 8-bit or wide text. Wide text is converted; a unit that is
// no character (a lone surrogate, a value beyond U+10FFFF) becomes U+FFFD.
class CString8 : public GenString {
 public:
  CString8() = default;
  CString8(char const* text) : GenString(text) {}  // NOLINT
  CString8(unsigned char const* text) : GenString(reinterpret_cast<char const*>(text)) {}  // NOLINT
  CString8(wchar_t const* text);  // NOLINT

  static std::string from_wide(wchar_t const* text);
  static std::string from_wide(std::wstring const& text) { return from_wide(text.c_str()); }
  // UTF-16 code units (as a file marked FF FE holds them) to UTF-8; surrogate pairs are joined.
  static std::string from_utf16(char16_t const* units, size_t count);
};
