// The nibble and byte delta codecs of WSS0 sounds, against hand-worked vectors.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "SoundFixture.h"
#include "sound/WssCodec.h"

using namespace soundtest;

namespace {
std::vector<int> decode(bool nibble, std::vector<uint8_t> const& in, int channels) {
  std::vector<uint8_t> out(in.size() * (nibble ? 4 : 2));
  if (nibble)
    WssCodec::wss_DecodeNibble(in.data(), in.size(), channels, out.data());
  else
    WssCodec::wss_DecodeByte(in.data(), in.size(), channels, out.data());
  return as_samples(out.data(), out.size());
}

TEST(WssCodec, DecodersFollowTheWorkedVectors) {
  struct Case {
    char const* what;
    bool nibble;
    int channels;
    std::vector<uint8_t> in;
    std::vector<int> want;
  } const cases[] = {
      {"nibble 14 then 0 share one running value in mono", true, 1, {0xE0}, {8192, 0}},
      {"nibble stereo: high nibble left, low right", true, 2, {0xE0, 0xE0}, {8192, -8192, 16384, -16384}},
      {"nibble clamps at the top", true, 1, {0xEE, 0xEE, 0xE7}, {8192, 16384, 24576, 32767, 32767, 32767}},
      {"nibble clamps at the bottom", true, 1, {0x00, 0x00, 0x0F}, {-8192, -16384, -24576, -32768, -32768, -32768}},
      {"nibble 15 and 7 keep the value", true, 1, {0x8F, 0x79}, {64, 64, 64, 320}},
      {"byte 127 reaches the top and stays clamped", false, 1, {127, 127}, {32767, 32767}},
      {"byte 1 is a step of 1, 0 keeps it", false, 1, {1, 0, 1}, {1, 1, 2}},
      {"byte -127 and -128", false, 1, {0x81, 0x80}, {-32767, -32768}},
      {"byte stereo keeps a value per channel", false, 2, {127, 0x81, 0xFF, 1}, {32767, -32767, 32766, -32766}},
      {"byte middle codes truncate the float", false, 1, {64, 0xC0}, {188, 0}},
  };
  for (auto const& c : cases) EXPECT_EQ(decode(c.nibble, c.in, c.channels), c.want) << c.what;
}

TEST(WssCodec, EncoderTablesAndBounds) {
  WssCodec codec;
  std::pair<int, int> const nibble_codes[] = {{-100000, -7}, {-8192, -7}, {-6144, -7}, {-6143, -6}, {-3072, -6},
                                              {-161, -2},    {-160, -2},  {-159, -1},  {-32, -1},    {-31, 0},
                                              {31, 0},       {32, 1},     {159, 1},    {160, 2},     {6143, 6},
                                              {6144, 7},     {100000, 7}};
  for (auto [d, code] : nibble_codes) EXPECT_EQ(WssCodec::wss_NibbleCode(d), code) << d;
  std::pair<int, int> const byte_codes[] = {{0, 0},     {1, 0},      {2, 8},       {-2, -8},
                                            {32767, 127}, {-32767, -127}, {100, 56}};
  for (auto [d, code] : byte_codes) EXPECT_EQ(codec.wss_ByteEncodeCode(d), code) << d;
  EXPECT_EQ(codec.wss_ByteEncodeStep(0), 0);
  EXPECT_EQ(codec.wss_ByteEncodeStep(1), 1);
  // Rounded against truncated: the two sides of the codec differ by one at the top and elsewhere.
  EXPECT_EQ(codec.wss_ByteEncodeStep(127), 32768);
  EXPECT_EQ(codec.wss_ByteEncodeStep(-127), -32768);
  EXPECT_EQ(WssCodec::wss_ByteDecodeStep(127), 32767);
  EXPECT_EQ(codec.wss_ByteEncodeStep(64), 189);
  EXPECT_EQ(WssCodec::wss_ByteDecodeStep(64), 188);
  std::string pcm = samples16({8192, 0, 32767});
  uint8_t nib[2] = {};
  WssCodec::wss_EncodeNibble(reinterpret_cast<uint8_t const*>(pcm.data()), 3, 1, nib);
  EXPECT_EQ(nib[0], 0xE0);
  EXPECT_EQ(nib[1], 0xE7);  // an odd last sample is followed by the zero step
}

// Real PCM through each encoder and back stays close to the original, in mono and stereo.
TEST(WssCodec, EncodeThenDecodeTracksTheSignal) {
  WssCodec codec;
  for (int channels : {1, 2}) {
    std::vector<int> v = sine(4410, channels, 440, 44100, 12000);
    std::string pcm = samples16(v);
    auto const* in = reinterpret_cast<uint8_t const*>(pcm.data());
    std::vector<uint8_t> nib((v.size() + 1) / 2), byte(v.size());
    WssCodec::wss_EncodeNibble(in, v.size(), channels, nib.data());
    codec.wss_EncodeByte(in, v.size(), channels, byte.data());
    for (bool nibble : {true, false}) {
      std::vector<int> back = decode(nibble, nibble ? nib : byte, channels);
      double err = 0;
      for (size_t i = 0; i < v.size(); ++i) err += std::pow(back[i] - v[i], 2);
      EXPECT_LT(std::sqrt(err / static_cast<double>(v.size())), nibble ? 200 : 120) << nibble << channels;
    }
  }
}
}  // namespace
