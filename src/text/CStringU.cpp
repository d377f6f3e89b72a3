#include "text/CStringU.h"

CStringU::CStringU(char const* text) : _text(from_utf8(text)) {}

std::wstring CStringU::from_utf8(char const* text) {
  std::wstring out;
  if (!text) return out;
  auto const* p = reinterpret_cast<unsigned char const*>(text);
  while (*p) {
    unsigned char b = *p;
    char32_t c;
    int more;
    char32_t least;
    if (b < 0x80) {
      c = b, more = 0, least = 0;
    } else if (b >= 0xC2 && b <= 0xDF) {
      c = b & 0x1F, more = 1, least = 0x80;
    } else if (b >= 0xE0 && b <= 0xEF) {
      c = b & 0x0F, more = 2, least = 0x800;
    } else if (b >= 0xF0 && b <= 0xF4) {
      c = b & 0x07, more = 3, least = 0x10000;
    } else {
      out.push_back(static_cast<wchar_t>(0xFFFD));
      ++p;
      continue;
    }
    int i = 1;
    for (; i <= more; ++i) {
      if ((p[i] & 0xC0) != 0x80) break;
      c = (c << 6) | (p[i] & 0x3F);
    }
    if (i <= more || c < least || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
      out.push_back(static_cast<wchar_t>(0xFFFD));
      p += i;  // skip the lead and the continuation bytes that did belong to it
      continue;
    }
    p += more + 1;
    if constexpr (sizeof(wchar_t) == 2) {
      if (c >= 0x10000) {
        c -= 0x10000;
        out.push_back(static_cast<wchar_t>(0xD800 + (c >> 10)));
        out.push_back(static_cast<wchar_t>(0xDC00 + (c & 0x3FF)));
        continue;
      }
    }
    out.push_back(static_cast<wchar_t>(c));
  }
  return out;
}
