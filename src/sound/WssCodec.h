#pragma once
#include <array>
#include <cstddef>
#include <cstdint>

// The two delta codecs of WSS0 sounds. Both keep one running 16-bit value per channel, starting at
// 0, and store the step from it to the next sample: the nibble codec picks one of 15 fixed steps
// (two samples per byte, the first in the high nibble), the byte codec a step on a logarithmic
// scale (one sample per signed byte). Samples are interleaved by channel; the decoders clamp the
// running value to the 16-bit range. Output samples are little-endian 16-bit.
//
// The encoder rounds its logarithmic steps while the decoder truncates them from a float: the two
// disagree by at most one per step, and files in the wild were made that way, so it stays.
class WssCodec {
 public:
  // Nibble steps; index 15 holds 0 and is never produced by the encoder.
  static constexpr std::array<int16_t, 16> kNibbleSteps = {-8192, -4096, -2048, -1024, -512, -256, -64, 0,
                                                           64,    256,   512,   1024,  2048, 4096, 8192, 0};

  // Builds the byte encoder's step and code tables.
  WssCodec();

  // `bytes` nibble-coded bytes into 2 × bytes samples (4 × bytes output bytes).
  static void wss_DecodeNibble(uint8_t const* in, size_t bytes, int channels, uint8_t* out);
  // `bytes` byte-coded bytes into as many samples (2 × bytes output bytes).
  static void wss_DecodeByte(uint8_t const* in, size_t bytes, int channels, uint8_t* out);
  // `samples` 16-bit samples into (samples + 1) / 2 bytes; an odd last sample is followed by the
  // zero step.
  static void wss_EncodeNibble(uint8_t const* in, size_t samples, int channels, uint8_t* out);
  // `samples` 16-bit samples into as many bytes.
  void wss_EncodeByte(uint8_t const* in, size_t samples, int channels, uint8_t* out) const;

  // The nibble code (-7..7) of a difference, and the decoder's step for a byte code.
  static int wss_NibbleCode(int difference);
  static int wss_ByteDecodeStep(int code);
  // The encoder's step (rounded) and code for a difference (-32767..32767).
  int wss_ByteEncodeStep(int code) const { return _steps[static_cast<size_t>(code + 127)]; }
  int wss_ByteEncodeCode(int difference) const { return _codes[static_cast<size_t>(difference + 32768)]; }

 private:
  std::array<int32_t, 255> _steps{};  // the top step rounds to 32768
  std::array<int8_t, 65537> _codes{};
};
