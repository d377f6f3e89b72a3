#include "sound/WssCodec.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {
inline int clamp16(int v) { return std::clamp(v, -32768, 32767); }

inline void put16(uint8_t* out, size_t i, int v) {
  int16_t s = static_cast<int16_t>(v);
  std::memcpy(out + 2 * i, &s, 2);
}

inline int get16(uint8_t const* in, size_t i) {
  int16_t s;
  std::memcpy(&s, in + 2 * i, 2);
  return s;
}

// The decoder's step for every byte value, indexed by the byte as stored (unsigned).
struct ByteDecodeSteps {
  int step[256];
  ByteDecodeSteps() {
    for (int b = 0; b < 256; ++b) step[b] = WssCodec::wss_ByteDecodeStep(static_cast<int8_t>(b));
  }
};

ByteDecodeSteps const& byte_decode_steps() {
  static ByteDecodeSteps const table;
  return table;
}

// Differences at or below each bound take codes -7 to -1; below each upper bound, 0 to 6.
constexpr int kNegativeBounds[7] = {-6144, -3072, -1536, -768, -384, -160, -32};
constexpr int kPositiveBounds[7] = {32, 160, 384, 768, 1536, 3072, 6144};
}  // namespace

WssCodec::WssCodec() {
  _steps[127] = 0;
  for (int k = 1; k <= 127; ++k) {
    int s = static_cast<int>(std::lround(std::pow(1.0853122970142959, k)));
    _steps[static_cast<size_t>(127 + k)] = s;
    _steps[static_cast<size_t>(127 - k)] = -s;
  }
  _codes[32768] = 0;
  for (int d = 1; d <= 32768; ++d) {
    long c = std::min(std::lround(std::log(static_cast<double>(d)) * 12.214818058363635), 127L);
    _codes[static_cast<size_t>(32768 + d)] = static_cast<int8_t>(c);
    _codes[static_cast<size_t>(32768 - d)] = static_cast<int8_t>(-c);
  }
}

int WssCodec::wss_NibbleCode(int d) {
  d = std::clamp(d, -8192, 8192);
  for (int i = 0; i < 7; ++i)
    if (d <= kNegativeBounds[i]) return i - 7;
  for (int i = 0; i < 7; ++i)
    if (d < kPositiveBounds[i]) return i;
  return 7;
}

int WssCodec::wss_ByteDecodeStep(int code) {
  if (code == 0) return 0;
  int magnitude = code < 0 ? -code : code;
  // The float conversion comes before the truncation: it decides steps such as 32767.
  float f = static_cast<float>(std::pow(2.0, magnitude * 0.1181098895414926));
  int step = static_cast<int>(f);
  return code < 0 ? -step : step;
}

void WssCodec::wss_DecodeNibble(uint8_t const* in, size_t bytes, int channels, uint8_t* out) {
  auto const& t = kNibbleSteps;
  if (channels == 2) {
    // One byte is one frame: the high nibble is the first channel, the low the second.
    int l = 0, r = 0;
    for (size_t i = 0; i < bytes; ++i) {
      l = clamp16(l + t[in[i] >> 4]);
      r = clamp16(r + t[in[i] & 15]);
      put16(out, 2 * i, l);
      put16(out, 2 * i + 1, r);
    }
    return;
  }
  if (channels <= 1) {
    int v = 0;
    for (size_t i = 0; i < bytes; ++i) {
      v = clamp16(v + t[in[i] >> 4]);
      put16(out, 2 * i, v);
      v = clamp16(v + t[in[i] & 15]);
      put16(out, 2 * i + 1, v);
    }
    return;
  }
  int run[256] = {};
  size_t ch = static_cast<size_t>(std::min(channels, 256));
  for (size_t i = 0; i < 2 * bytes; ++i) {
    uint8_t b = in[i / 2];
    int& v = run[i % ch];
    v = clamp16(v + t[(i & 1) ? (b & 15) : (b >> 4)]);
    put16(out, i, v);
  }
}

void WssCodec::wss_DecodeByte(uint8_t const* in, size_t bytes, int channels, uint8_t* out) {
  int const* s = byte_decode_steps().step;
  if (channels <= 1) {
    int v = 0;
    for (size_t i = 0; i < bytes; ++i) {
      v = clamp16(v + s[in[i]]);
      put16(out, i, v);
    }
    return;
  }
  if (channels == 2) {
    int l = 0, r = 0;
    size_t i = 0;
    for (; i + 1 < bytes; i += 2) {
      l = clamp16(l + s[in[i]]);
      r = clamp16(r + s[in[i + 1]]);
      put16(out, i, l);
      put16(out, i + 1, r);
    }
    if (i < bytes) put16(out, i, clamp16(l + s[in[i]]));
    return;
  }
  int run[256] = {};
  size_t ch = static_cast<size_t>(std::min(channels, 256));
  for (size_t i = 0; i < bytes; ++i) {
    int& v = run[i % ch];
    v = clamp16(v + s[in[i]]);
    put16(out, i, v);
  }
}

void WssCodec::wss_EncodeNibble(uint8_t const* in, size_t samples, int channels, uint8_t* out) {
  int run[256] = {};
  size_t ch = static_cast<size_t>(std::clamp(channels, 1, 256));
  for (size_t i = 0; i < samples; ++i) {
    int& v = run[i % ch];
    int nibble = wss_NibbleCode(get16(in, i) - v) + 7;
    // Track what the decoder will hold, clamping included, so that errors do not accumulate.
    v = clamp16(v + kNibbleSteps[static_cast<size_t>(nibble)]);
    if (i & 1)
      out[i / 2] = static_cast<uint8_t>(out[i / 2] | nibble);
    else
      out[i / 2] = static_cast<uint8_t>(nibble << 4);
  }
  if (samples & 1) out[samples / 2] = static_cast<uint8_t>(out[samples / 2] | 7);
}

void WssCodec::wss_EncodeByte(uint8_t const* in, size_t samples, int channels, uint8_t* out) const {
  int run[256] = {};
  size_t ch = static_cast<size_t>(std::clamp(channels, 1, 256));
  for (size_t i = 0; i < samples; ++i) {
    int& v = run[i % ch];
    int code = wss_ByteEncodeCode(std::clamp(get16(in, i) - v, -32767, 32767));
    v = clamp16(v + wss_ByteEncodeStep(code));
    out[i] = static_cast<uint8_t>(static_cast<int8_t>(code));
  }
}
