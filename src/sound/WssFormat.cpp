#include "sound/WssFormat.h"

#include <cstring>

void WssFormat::wss_Store(uint8_t* out) const {
  std::memcpy(out, &format_tag, 2);
  std::memcpy(out + 2, &channels, 2);
  std::memcpy(out + 4, &samples_per_sec, 4);
  std::memcpy(out + 8, &bytes_per_sec, 4);
  std::memcpy(out + 12, &block_align, 2);
  std::memcpy(out + 14, &bits_per_sample, 2);
}

WssFormat WssFormat::wss_Load(uint8_t const* in) {
  WssFormat f;
  std::memcpy(&f.format_tag, in, 2);
  std::memcpy(&f.channels, in + 2, 2);
  std::memcpy(&f.samples_per_sec, in + 4, 4);
  std::memcpy(&f.bytes_per_sec, in + 8, 4);
  std::memcpy(&f.block_align, in + 12, 2);
  std::memcpy(&f.bits_per_sample, in + 14, 2);
  return f;
}
