#pragma once
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

// Integer PCM samples of 1 to 4 bytes (8-bit unsigned, wider signed, little-endian) as floats in
// -1..1 and back, for the float-based work on sounds: Vorbis encoding and resampling.

inline float wss_pcm_to_float(uint8_t const* p, int bytes) {
  switch (bytes) {
    case 1: return (static_cast<int>(p[0]) - 128) * (1.0f / 128);
    case 2: {
      int16_t s;
      std::memcpy(&s, p, 2);
      return s * (1.0f / 32768);
    }
    case 3: {
      int32_t s = static_cast<int32_t>(static_cast<uint32_t>(p[0]) << 8 | static_cast<uint32_t>(p[1]) << 16 |
                                       static_cast<uint32_t>(p[2]) << 24);
      return static_cast<float>(s / 256) * (1.0f / 8388608);
    }
    default: {
      int32_t s;
      std::memcpy(&s, p, 4);
      return static_cast<float>(static_cast<double>(s) * (1.0 / 2147483648.0));
    }
  }
}

// Rounds to the nearest level and saturates at full scale.
inline void wss_float_to_pcm(float f, uint8_t* p, int bytes) {
  double x = std::clamp(static_cast<double>(f), -1.0, 1.0);
  switch (bytes) {
    case 1: p[0] = static_cast<uint8_t>(std::clamp(std::lround(x * 128.0) + 128, 0L, 255L)); return;
    case 2: {
      int16_t s = static_cast<int16_t>(std::clamp(std::lround(x * 32768.0), -32768L, 32767L));
      std::memcpy(p, &s, 2);
      return;
    }
    case 3: {
      long s = std::clamp(std::lround(x * 8388608.0), -8388608L, 8388607L);
      uint32_t u = static_cast<uint32_t>(s);
      p[0] = static_cast<uint8_t>(u), p[1] = static_cast<uint8_t>(u >> 8), p[2] = static_cast<uint8_t>(u >> 16);
      return;
    }
    default: {
      int32_t s = static_cast<int32_t>(std::clamp(std::llround(x * 2147483648.0), -2147483648LL, 2147483647LL));
      std::memcpy(p, &s, 4);
      return;
    }
  }
}
