#include "io/LzoCodec.h"

#include <lzo/lzo1x.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace {
constexpr uint64_t kWorkSize = 0x80000;  // more than the level-999 compressor asks for
static_assert(LZO1X_999_MEM_COMPRESS <= kWorkSize);

constexpr uint64_t kFarBase = 0x4000;  // distances of the long-distance match code start here
constexpr uint64_t kNearMax = 0x800;   // largest distance of the two-byte match code

// The instruction that follows decides how a code below 16 is read.
enum class After {
  Match,        // a match without trailing literals, or the stream start: a literal run
  LiteralRun,   // a run of 4 or more literals: a 3-byte match beyond the short range
  FewLiterals,  // 1 to 3 literals trailing a match: a 2-byte match in the short range
};

class Reader {
 public:
  Reader(uint8_t const* begin, uint64_t size) : _p(begin), _end(begin + size) {}
  bool has(uint64_t n) const { return uint64_t(_end - _p) >= n; }
  uint8_t const* pos() const { return _p; }
  void skip(uint64_t n) { _p += n; }
  bool byte(unsigned& v) {
    if (_p == _end) return false;
    v = *_p++;
    return true;
  }
  bool le16(unsigned& v) {
    if (!has(2)) return false;
    v = unsigned(_p[0]) | unsigned(_p[1]) << 8;
    _p += 2;
    return true;
  }
  // A length field of zero continues in the following bytes: each zero byte adds 255, the first
  // non-zero byte ends the field. `base` is the largest length the instruction itself can hold.
  bool extended(uint64_t base, uint64_t& length) {
    uint64_t add = 0;
    while (_p != _end && *_p == 0) {
      add += 255;
      ++_p;
    }
    if (_p == _end) return false;
    length = add + base + *_p++;
    return true;
  }

 private:
  uint8_t const* _p;
  uint8_t const* _end;
};
}  // namespace

LzoCodec::LzoCodec() = default;
LzoCodec::~LzoCodec() = default;

int64_t LzoCodec::lzo_Compress(uint8_t const* source, uint64_t size, uint8_t* dest) {
  _work.reset();
  _work.reset(new (std::nothrow) uint8_t[kWorkSize]);
  if (!_work) return -1;
  lzo_uint out = 0;
  int r = lzo1x_999_compress(source, static_cast<lzo_uint>(size), dest, &out, _work.get());
  return r == LZO_E_OK ? static_cast<int64_t>(out) : -1;
}

int64_t LzoCodec::lzo_Expand(uint8_t const* source, uint64_t source_size, uint8_t* dest,
                             uint64_t expanded_size) {
  Reader in(source, source_size);
  uint8_t* op = dest;
  uint8_t* const op_end = dest + expanded_size;

  auto literals = [&](uint64_t n) {
    if (!in.has(n) || uint64_t(op_end - op) < n) return false;
    // Most runs are short: one fixed 16-byte copy is cheaper than a sized one, where both sides
    // have the room (what lands beyond the run is overwritten by what follows).
    if (n <= 16 && in.has(16) && op_end - op >= 16)
      std::memcpy(op, in.pos(), 16);
    else
      std::memcpy(op, in.pos(), n);
    in.skip(n);
    op += n;
    return true;
  };

  After state = After::Match;
  unsigned t;
  if (!in.has(1)) return -1;
  if (*in.pos() > 17) {
    // A stream may open with a literal run counted in its first byte.
    t = *in.pos() - 17u;
    in.skip(1);
    if (!literals(t)) return -1;
    state = t < 4 ? After::FewLiterals : After::LiteralRun;
  }

  for (;;) {
    if (!in.byte(t)) return -1;
    uint64_t distance, length;
    unsigned trailing;
    if (t < 16) {
      if (state == After::Match) {
        uint64_t run = t;
        if (t == 0 && !in.extended(15, run)) return -1;
        if (!literals(run + 3)) return -1;
        state = After::LiteralRun;
        continue;
      }
      unsigned b;
      if (!in.byte(b)) return -1;
      distance = 1 + (t >> 2) + (uint64_t(b) << 2);
      length = 2;
      if (state == After::LiteralRun) {
        distance += kNearMax;
        length = 3;
      }
      trailing = t & 3;
    } else if (t >= 64) {
      unsigned b;
      if (!in.byte(b)) return -1;
      distance = 1 + ((t >> 2) & 7) + (uint64_t(b) << 3);
      length = (t >> 5) + 1;
      trailing = t & 3;
    } else if (t >= 32) {
      length = t & 31;
      if (length == 0 && !in.extended(31, length)) return -1;
      length += 2;
      unsigned v;
      if (!in.le16(v)) return -1;
      distance = 1 + (v >> 2);
      trailing = v & 3;
    } else {
      length = t & 7;
      if (length == 0 && !in.extended(7, length)) return -1;
      length += 2;
      unsigned v;
      if (!in.le16(v)) return -1;
      distance = (uint64_t(t & 8) << 11) + (v >> 2);
      if (distance == 0) {
        // End of stream: the block must have produced exactly what was announced.
        if (op != op_end) return -1;
        return static_cast<int64_t>(in.pos() - source);
      }
      distance += kFarBase;
      trailing = v & 3;
    }
    if (distance > uint64_t(op - dest) || length > uint64_t(op_end - op)) return -1;
    uint8_t const* from = op - distance;
    if (distance >= 16 && length <= 16 && op_end - op >= 16) {
      std::memcpy(op, from, 16);  // as for literals: a fixed copy, the surplus overwritten later
    } else if (distance >= length) {
      std::memcpy(op, from, length);
    } else {
      // An overlapping run repeats the last `distance` bytes: copy the pattern in doubling steps.
      uint8_t* to = op;
      for (uint64_t left = length; left;) {
        uint64_t n = std::min<uint64_t>(left, uint64_t(to - from));
        std::memcpy(to, from, n);
        to += n;
        left -= n;
      }
    }
    op += length;
    if (trailing) {
      if (!literals(trailing)) return -1;
      state = After::FewLiterals;
    } else {
      state = After::Match;
    }
  }
}
