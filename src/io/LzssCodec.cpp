#include "io/LzssCodec.h"

#include <array>
#include <cstring>
#include <memory>
#include <vector>

namespace {

void sums(uint8_t const* data, uint64_t size, uint32_t& unsigned_sum, uint32_t& signed_sum) {
  // The signed sum differs from the unsigned one by 256 for every byte of 0x80 or more.
  uint32_t u = 0, high = 0;
  for (uint64_t i = 0; i < size; ++i) {
    u += data[i];
    high += data[i] >> 7;
  }
  unsigned_sum = u;
  signed_sum = u - (high << 8);
}

uint32_t load_le32(uint8_t const* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// How many bytes from `a` and `b` agree, up to `limit`. `b` lies after `a`, so the run may read
// bytes the match itself covers.
uint64_t common_length(uint8_t const* a, uint8_t const* b, uint64_t limit) {
  uint64_t n = 0;
  while (limit - n >= 8) {
    uint64_t x, y;
    std::memcpy(&x, a + n, 8);
    std::memcpy(&y, b + n, 8);
    if (uint64_t diff = x ^ y) return n + (__builtin_ctzll(diff) >> 3);
    n += 8;
  }
  while (n < limit && a[n] == b[n]) ++n;
  return n;
}

// Chains of earlier positions sharing a hash of their first three bytes, oldest first, holding
// exactly the positions of the window. Walking a chain in position order visits the candidates in
// the same order as a plain scan from the window start, so the chosen match is the same.
class WindowChains {
 public:
  static constexpr uint32_t kNone = UINT32_MAX;
  static constexpr uint32_t kRing = 4096;  // > window, so a live position never shares a slot

  // Small blocks get small tables: clearing them would otherwise cost more than the search.
  WindowChains(uint8_t const* data, uint64_t size) : _data(data) {
    while (_bits < 15 && (uint64_t(1) << _bits) < size) ++_bits;
    _head.assign(size_t(1) << _bits, kNone);
    _tail.assign(size_t(1) << _bits, kNone);
  }
  uint32_t hash(uint64_t p) const {
    uint32_t key = uint32_t(_data[p]) << 16 | uint32_t(_data[p + 1]) << 8 | _data[p + 2];
    return (key * 0x9E3779B1u) >> (32 - _bits);
  }
  void insert(uint32_t p) {
    uint32_t h = hash(p);
    _hash[p & (kRing - 1)] = h;
    _next[p & (kRing - 1)] = kNone;
    if (_tail[h] == kNone)
      _head[h] = p;
    else
      _next[_tail[h] & (kRing - 1)] = p;
    _tail[h] = p;
  }
  // Positions leave in increasing order, so the one leaving is always its chain's oldest.
  void expire(uint32_t p) {
    uint32_t h = _hash[p & (kRing - 1)];
    _head[h] = _next[p & (kRing - 1)];
    if (_head[h] == kNone) _tail[h] = kNone;
  }
  uint32_t first(uint32_t h) const { return _head[h]; }
  uint32_t next(uint32_t p) const { return _next[p & (kRing - 1)]; }

 private:
  uint8_t const* _data;
  int _bits = 8;
  std::vector<uint32_t> _head, _tail;
  std::array<uint32_t, kRing> _next;
  std::array<uint32_t, kRing> _hash;  // each live position's chain, so that leaving costs no hashing
};

}  // namespace

uint32_t LzssCodec::lzss_Checksum(uint8_t const* data, uint64_t size, bool signed_sum) {
  uint32_t u, s;
  sums(data, size, u, s);
  return signed_sum ? s : u;
}

int64_t LzssCodec::lzss_Expand(uint8_t const* source, uint64_t source_size, uint8_t* dest,
                               uint64_t expanded_size, bool signed_first) {
  uint64_t in = 0, out = 0;
  while (out < expanded_size) {
    if (in >= source_size) return -1;
    unsigned flags = source[in++];
    for (int item = 0; item < 8 && out < expanded_size; ++item, flags >>= 1) {
      if (flags & 1) {
        if (in >= source_size) return -1;
        dest[out++] = source[in++];
        continue;
      }
      if (source_size - in < 2) return -1;
      unsigned b0 = source[in], b1 = source[in + 1];
      in += 2;
      uint64_t distance = b0 | (b1 & 0xF0) << 4;
      if (distance == 0) return -1;
      uint64_t length = (b1 & 0x0F) + kMinMatch;
      if (length > expanded_size - out) length = expanded_size - out;
      if (distance > out) {
        // The output is taken as preceded by endless spaces.
        uint64_t spaces = distance - out < length ? distance - out : length;
        std::memset(dest + out, ' ', spaces);
        out += spaces;
        length -= spaces;
      }
      uint8_t* d = dest + out;
      uint8_t const* s = d - distance;
      for (uint64_t k = 0; k < length; ++k) d[k] = s[k];  // byte by byte: runs overlap themselves
      out += length;
    }
  }
  if (source_size - in < 4) return -1;
  uint32_t stored = load_le32(source + in);
  in += 4;
  uint32_t u, s;
  sums(dest, expanded_size, u, s);
  (void)signed_first;  // both sums come from one pass; the order cannot change the verdict
  if (stored == u || stored == s) return static_cast<int64_t>(in);
  return -static_cast<int64_t>(in);
}

uint64_t LzssCodec::lzss_Compress(uint8_t const* source, uint64_t size, uint8_t* dest, bool signed_sum) {
  uint8_t* o = dest;
  uint8_t* flag = nullptr;
  int items = 0;
  auto begin_item = [&]() {
    if (items == 0) {
      flag = o++;
      *flag = 0;
    }
  };
  auto end_item = [&]() {
    if (++items == 8) items = 0;
  };

  auto chains = std::make_unique<WindowChains>(source, size);
  uint64_t inserted = 0;  // positions below this are in the chains (or have left them)
  uint64_t pos = 0;
  while (pos < size) {
    for (; inserted < pos; ++inserted) {
      if (inserted >= kWindow) chains->expire(static_cast<uint32_t>(inserted - kWindow));
      if (inserted + kMinMatch <= size) chains->insert(static_cast<uint32_t>(inserted));
    }
    uint64_t const remaining = size - pos;
    uint64_t best = 0, best_pos = 0;
    if (remaining >= kMinMatch) {
      uint8_t const* cur = source + pos;
      // The scan resumes after each candidate's match, never at the next byte: candidates that
      // start inside an earlier match are passed over even when they would match longer.
      uint64_t scan = 0;
      for (uint32_t p = chains->first(chains->hash(pos)), after; p != WindowChains::kNone; p = after) {
        after = chains->next(p);
        if (p < scan) continue;
        // A candidate that differs where the best match so far ends cannot beat it, and its
        // exact length only matters if it could reach the next candidate or the current
        // position (where it would end the scan): otherwise it is passed over unmeasured.
        if (best && source[p + best] != cur[best] && uint64_t{p} + best < pos &&
            (after == WindowChains::kNone || uint64_t{p} + best <= after))
          continue;
        // One pass from the first byte both tells a hash neighbour (fewer than three bytes in
        // common) from a candidate and measures the candidate's match.
        uint64_t len = common_length(source + p, cur, remaining);
        if (len < kMinMatch) continue;
        if (len > best) {
          best = len;
          best_pos = p;
          if (best == remaining) break;  // nothing later can be strictly longer
        }
        scan = p + len;
        if (scan >= pos) break;
      }
    }
    if (best < kMinMatch) {
      begin_item();
      *flag |= uint8_t(1u << items);
      *o++ = source[pos++];
      end_item();
      continue;
    }
    uint64_t const distance = pos - best_pos;
    uint8_t const b0 = uint8_t(distance & 0xFF);
    uint8_t const high = uint8_t((distance >> 4) & 0xF0);
    if (best <= kMaxMatch) {
      begin_item();
      *o++ = b0;
      *o++ = uint8_t(high | (best - kMinMatch));
      end_item();
      pos += best;
      continue;
    }
    // A long match goes out as whole maximal references; what is left over is searched again.
    for (uint64_t k = best / kMaxMatch; k; --k) {
      begin_item();
      *o++ = b0;
      *o++ = uint8_t(high | (kMaxMatch - kMinMatch));
      end_item();
      pos += kMaxMatch;
    }
  }
  uint32_t const sum = lzss_Checksum(source, size, signed_sum);
  for (int i = 0; i < 4; ++i) *o++ = uint8_t(sum >> (8 * i));
  return static_cast<uint64_t>(o - dest);
}
