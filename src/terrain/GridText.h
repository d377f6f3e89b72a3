#pragma once
// Reading and writing the text forms that terrains are exchanged in (elevation grids, object
// listings): lines taken one at a time from a buffer, numbers read and written with
// std::from_chars and std::to_chars, so that a grid of sixteen million heights reads in seconds and
// every float comes back exactly as it was written.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

namespace grid_text {

// Lines of a text in memory, LF or CR LF, the last one with or without its end.
struct Lines {
  char const* at;
  char const* end;
  uint64_t number = 0;  // of the line last taken, from 1

  Lines(char const* begin, char const* stop) : at(begin), end(stop) {}
  bool next(std::string_view& line) {
    if (at >= end) return false;
    auto const* nl = static_cast<char const*>(std::memchr(at, '\n', size_t(end - at)));
    char const* stop = nl ? nl : end;
    char const* last = stop;
    if (last > at && last[-1] == '\r') --last;
    line = std::string_view(at, size_t(last - at));
    at = nl ? nl + 1 : end;
    ++number;
    return true;
  }
};

inline bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
// XYZ files from GIS tools separate their columns by blanks, commas or semicolons.
inline bool is_separator(char c) { return is_blank(c) || c == ',' || c == ';'; }

inline bool blank_line(std::string_view line) {
  for (char c : line)
    if (!is_blank(c)) return false;
  return true;
}

// The fields of one line, split at separators.
struct Fields {
  char const* at;
  char const* end;
  bool commas;  // commas and semicolons separate too

  Fields(std::string_view line, bool with_commas)
      : at(line.data()), end(line.data() + line.size()), commas(with_commas) {}
  bool sep(char c) const { return commas ? is_separator(c) : is_blank(c); }
  bool next(std::string_view& field) {
    while (at < end && sep(*at)) ++at;
    if (at == end) return false;
    char const* s = at;
    while (at < end && !sep(*at)) ++at;
    field = std::string_view(s, size_t(at - s));
    return true;
  }
};

// A whole field as a number; false when any of it is not. A leading '+' is accepted, as GIS tools
// write it; "nan" and "inf" read as what they say, for the caller to refuse by name.
template <class T>
bool to_number(std::string_view field, T& value) {
  char const* s = field.data();
  char const* e = s + field.size();
  if (s < e && *s == '+') ++s;
  if (s == e || *s == '+') return false;
  auto [p, ec] = std::from_chars(s, e, value);
  if (ec == std::errc::result_out_of_range && p == e) {
    if constexpr (std::is_floating_point_v<T>) {
      // Beyond the type: a negative exponent means too small to tell from zero, anything else too
      // large, which the caller refuses as out of range.
      std::string_view digits(s, size_t(e - s));
      size_t exponent = digits.find_first_of("eE");
      bool tiny = exponent != std::string_view::npos && exponent + 1 < digits.size() && digits[exponent + 1] == '-';
      T magnitude = tiny ? T(0) : T(HUGE_VAL);
      value = *s == '-' ? -magnitude : magnitude;
      return true;
    }
  }
  return ec == std::errc() && p == e;
}

// At most this much of a field in a message, so that a line of garbage stays one readable line.
inline std::string shown(std::string_view field) {
  std::string s(field.substr(0, 40));
  for (char& c : s)
    if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7F) c = '?';
  return field.size() > 40 ? s + "..." : s;
}

// The shortest text that reads back as the same float.
inline char* put_float(char* out, float v) {
  return std::to_chars(out, out + 32, v).ptr;
}

inline std::string float_text(float v) {
  char buffer[32];
  return std::string(buffer, put_float(buffer, v));
}

// A length in metres to the millimetre, without trailing zeros: "12", "12.5", "0.125".
inline char* put_metres(char* out, double v) {
  long long mm = std::llround(v * 1000);
  if (mm < 0) *out++ = '-', mm = -mm;
  out = std::to_chars(out, out + 24, mm / 1000).ptr;
  if (int frac = int(mm % 1000)) {
    *out++ = '.';
    char digits[3] = {char('0' + frac / 100), char('0' + frac / 10 % 10), char('0' + frac % 10)};
    int n = digits[2] != '0' ? 3 : digits[1] != '0' ? 2 : 1;
    std::memcpy(out, digits, size_t(n));
    out += n;
  }
  return out;
}

}  // namespace grid_text
