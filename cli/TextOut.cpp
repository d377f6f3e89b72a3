#include "TextOut.h"

#include <cstdint>
#include <vector>

namespace {

// The characters of 0x80-0x9F in Windows-1252. The five bytes the code page leaves undefined map
// to the C1 controls of the same number, as the system's own conversion does, so every byte
// converts and converts back.
char16_t const kHigh1252[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
                                0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
                                0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void put_utf8(std::string& out, uint32_t c) {
  if (c < 0x80) {
    out += char(c);
  } else if (c < 0x800) {
    out += char(0xC0 | (c >> 6));
    out += char(0x80 | (c & 0x3F));
  } else {
    out += char(0xE0 | (c >> 12));
    out += char(0x80 | ((c >> 6) & 0x3F));
    out += char(0x80 | (c & 0x3F));
  }
}

template <class Json>
void make_text(Json& j) {
  if (j.is_string()) {
    auto& s = j.template get_ref<std::string&>();
    if (!text_is_utf8(s)) s = text_to_utf8(s);
    return;
  }
  if (j.is_array()) {
    for (auto& e : j) make_text(e);
    return;
  }
  if (!j.is_object()) return;
  bool clean = true;
  for (auto it = j.begin(); it != j.end(); ++it)
    clean = clean && text_is_utf8(it.key()) && !(it->is_string() && !text_is_utf8(it->template get_ref<std::string const&>()));
  if (clean) {
    for (auto& e : j) make_text(e);
    return;
  }
  // Rebuilt in order, so that a value's bytes stand next to it.
  Json rebuilt = Json::object();
  for (auto it = j.begin(); it != j.end(); ++it) {
    std::string key = text_to_utf8(it.key());
    Json value = std::move(*it);
    if (value.is_string() && !text_is_utf8(value.template get_ref<std::string const&>())) {
      std::string bytes = value.template get<std::string>();
      rebuilt[key] = text_to_utf8(bytes);
      rebuilt[key + "_bytes"] = text_hex(bytes);
    } else {
      make_text(value);
      rebuilt[key] = std::move(value);
    }
  }
  j = std::move(rebuilt);
}

}  // namespace

bool text_is_utf8(std::string_view s) {
  size_t i = 0, n = s.size();
  while (i < n) {
    auto c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t len;
    uint32_t cp;
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2, cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3, cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4, cp = c & 0x07;
    } else {
      return false;
    }
    if (n - i < len) return false;
    for (size_t k = 1; k < len; ++k) {
      auto d = static_cast<unsigned char>(s[i + k]);
      if ((d & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (d & 0x3F);
    }
    // Overlong forms, surrogates and code points past U+10FFFF are not UTF-8.
    if ((len == 3 && cp < 0x800) || (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)) || (cp >= 0xD800 && cp <= 0xDFFF))
      return false;
    i += len;
  }
  return true;
}

std::string text_to_utf8(std::string_view s) {
  if (text_is_utf8(s)) return std::string(s);
  std::string out;
  out.reserve(s.size() + s.size() / 2);
  for (char ch : s) {
    auto c = static_cast<unsigned char>(ch);
    put_utf8(out, c >= 0x80 && c < 0xA0 ? kHigh1252[c - 0x80] : c);
  }
  return out;
}

bool text_to_1252(std::string_view utf8, std::string& out) {
  out.clear();
  if (!text_is_utf8(utf8)) return false;
  bool changed = false;
  for (size_t i = 0; i < utf8.size();) {
    auto c = static_cast<unsigned char>(utf8[i]);
    uint32_t cp = c;
    size_t len = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    if (len > 1) {
      cp = c & (0xFF >> (len + 1));
      for (size_t k = 1; k < len; ++k) cp = (cp << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
      changed = true;
    }
    i += len;
    if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) {
      out += char(cp);
      continue;
    }
    int found = -1;
    for (int k = 0; k < 32; ++k)
      if (kHigh1252[k] == cp) found = k;
    if (found < 0) return false;
    out += char(0x80 + found);
  }
  return changed;
}

std::string text_for_display(std::string_view bytes) {
  std::string out = text_to_utf8(bytes);
  for (char& c : out)
    if ((static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') || c == 0x7F) c = '?';
  return out;
}

std::string text_hex(std::string_view bytes) {
  static char const kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (char ch : bytes) {
    auto c = static_cast<unsigned char>(ch);
    out += kHex[c >> 4];
    out += kHex[c & 15];
  }
  return out;
}

void json_make_text(nlohmann::json& j) { make_text(j); }
void json_make_text(nlohmann::ordered_json& j) { make_text(j); }

std::string json_text(nlohmann::json j, int indent) {
  make_text(j);
  return j.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string json_text(nlohmann::ordered_json j, int indent) {
  make_text(j);
  return j.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}
