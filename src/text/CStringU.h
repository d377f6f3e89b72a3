#pragma once
#include <string>

// Wide text built from UTF-8 or wide text. A malformed UTF-8 byte becomes U+FFFD.
class CStringU {
 public:
  CStringU() = default;
  CStringU(char const* text);  // NOLINT
  CStringU(unsigned char const* text) : CStringU(reinterpret_cast<char const*>(text)) {}  // NOLINT
  CStringU(wchar_t const* text) : _text(text ? text : L"") {}  // NOLINT

  wchar_t const* c_str() const { return _text.c_str(); }
  operator wchar_t const*() const { return c_str(); }  // NOLINT
  size_t length() const { return _text.size(); }
  std::wstring const& str() const { return _text; }

  static std::wstring from_utf8(char const* text);

 private:
  std::wstring _text;
};
