#pragma once
// A bounded cursor over a model held in memory. Every step checks what remains first and throws
// the generic "premature EOF" code before it would cross the end, so that no count read from the
// file is trusted before the bytes behind it are known to exist.
#include <cstdint>
#include <strings.h>

#include <cstring>
#include <string_view>

#include "core/Generic_Errors.h"

class P3dCursor {
 public:
  P3dCursor(uint8_t const* begin, uint8_t const* end) : _begin(begin), _p(begin), _end(end) {}

  uint64_t remaining() const { return static_cast<uint64_t>(_end - _p); }
  bool at_end() const { return _p == _end; }
  uint64_t offset() const { return static_cast<uint64_t>(_p - _begin); }
  uint8_t const* here() const { return _p; }
  uint8_t const* end() const { return _end; }

  void require(uint64_t n) const {
    if (n > remaining()) throw GE_EOF;
  }
  uint8_t const* take(uint64_t n) {
    require(n);
    uint8_t const* at = _p;
    _p += n;
    return at;
  }
  void skip(uint64_t n) { take(n); }
  void seek(uint64_t offset) {
    if (offset > static_cast<uint64_t>(_end - _begin)) throw GE_EOF;
    _p = _begin + offset;
  }
  uint8_t u8() { return *take(1); }
  uint16_t u16() {
    uint16_t v;
    std::memcpy(&v, take(2), 2);
    return v;
  }
  uint32_t u32() {
    uint32_t v;
    std::memcpy(&v, take(4), 4);
    return v;
  }
  int32_t i32() { return static_cast<int32_t>(u32()); }
  float f32() {
    float v;
    std::memcpy(&v, take(4), 4);
    return v;
  }
  // A zero-terminated text; the view excludes the terminator.
  std::string_view asciiz() {
    auto const* z = static_cast<uint8_t const*>(std::memchr(_p, 0, remaining()));
    if (!z) throw GE_EOF;
    std::string_view s(reinterpret_cast<char const*>(_p), static_cast<size_t>(z - _p));
    _p = z + 1;
    return s;
  }
  // A text in a fixed field of n bytes, up to its first zero.
  std::string_view fixed(uint64_t n) {
    auto const* at = reinterpret_cast<char const*>(take(n));
    return std::string_view(at, strnlen(at, n));
  }
  // Room for `count` records of at least `each` bytes: the check before trusting a count.
  void require_records(uint64_t count, uint64_t each) const {
    if (each && count > remaining() / each) throw GE_EOF;
  }

 private:
  uint8_t const* _begin;
  uint8_t const* _p;
  uint8_t const* _end;
};

// Four characters of magic, compared without regard to case.
inline bool p3d_magic_is(uint8_t const* p, char const* magic) {
  return strncasecmp(reinterpret_cast<char const*>(p), magic, 4) == 0;
}
