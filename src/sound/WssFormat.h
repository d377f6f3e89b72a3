#pragma once
#include <cstdint>

// The PCM format record of WAVE and WSS0 files (16 bytes on disk, plus the u16 extra size that
// WSS0 files carry behind it).
struct WssFormat {
  uint16_t format_tag = 1;  // 1: integer PCM, the only kind the engine plays
  uint16_t channels = 0;
  uint32_t samples_per_sec = 0;
  uint32_t bytes_per_sec = 0;
  uint16_t block_align = 0;  // bytes of one frame (one sample of every channel)
  uint16_t bits_per_sample = 0;
  uint16_t extra_size = 0;

  // The 16 bytes of the record as stored.
  void wss_Store(uint8_t* out) const;
  static WssFormat wss_Load(uint8_t const* in);
};
