#pragma once
// The plain form of the archive compressor's scan, kept beside the tests and the benchmark as the
// yardstick the fast encoder must match byte for byte: every window position is looked at, the
// scan resumes after each candidate's match, the oldest of equal matches wins.
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

inline std::vector<uint8_t> lzss_reference_compress(std::vector<uint8_t> const& d, bool signed_sum) {
  std::vector<uint8_t> out;
  size_t flag_at = 0, items = 0;
  auto item = [&](bool literal, std::initializer_list<uint8_t> bytes) {
    if (items++ % 8 == 0) flag_at = out.size(), out.push_back(0);
    if (literal) out[flag_at] |= uint8_t(1 << ((items - 1) % 8));
    out.insert(out.end(), bytes);
  };
  size_t const n = d.size();
  for (size_t pos = 0; pos < n;) {
    size_t best = 0, best_pos = 0;
    for (size_t scan = pos > 4095 ? pos - 4095 : 0; n - pos >= 3;) {
      size_t p = scan;
      while (p < pos && !(d[p] == d[pos] && d[p + 1] == d[pos + 1] && d[p + 2] == d[pos + 2])) ++p;
      if (p >= pos) break;
      size_t len = 0;
      while (len < n - pos && d[p + len] == d[pos + len]) ++len;
      if (len > best) best = len, best_pos = p;
      scan = p + len;
    }
    if (best < 3) {
      item(true, {d[pos++]});
      continue;
    }
    size_t const dist = pos - best_pos, len = best <= 18 ? best : 18;
    for (size_t k = 0; k < (best <= 18 ? 1 : best / 18); ++k, pos += len)
      item(false, {uint8_t(dist & 0xFF), uint8_t(((dist >> 4) & 0xF0) | (len - 3))});
  }
  uint32_t sum = 0;
  for (uint8_t b : d) sum += signed_sum ? uint32_t(int32_t(int8_t(b))) : b;
  for (int i = 0; i < 4; ++i) out.push_back(uint8_t(sum >> (8 * i)));
  return out;
}
