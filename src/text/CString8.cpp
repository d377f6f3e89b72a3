#include "text/CString8.h"

namespace {

void put_utf8(std::string& out, char32_t c) {
  if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

}  // namespace

CString8::CString8(wchar_t const* text) {
  if (text) str_dup(from_wide(text).c_str());
}

std::string CString8::from_wide(wchar_t const* text) {
  std::string out;
  if (!text) return out;
  for (; *text; ++text) {
    char32_t c = static_cast<char32_t>(*text);
    if constexpr (sizeof(wchar_t) == 2) {
      if (c >= 0xD800 && c <= 0xDBFF && text[1] >= 0xDC00 && text[1] <= 0xDFFF) {
        c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[1]) - 0xDC00);
        ++text;
      }
    }
    put_utf8(out, c);
  }
  return out;
}

std::string CString8::from_utf16(char16_t const* units, size_t count) {
  std::string out;
  out.reserve(count * 3);
  for (size_t i = 0; i < count; ++i) {
    char32_t c = units[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(units[i + 1]) - 0xDC00);
      ++i;
    }
    put_utf8(out, c);
  }
  return out;
}
