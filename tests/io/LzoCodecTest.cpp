#include <lzo/lzo1x.h>

#include <random>

#include "io/CompressTestUtil.h"
#include "io/LzoCodec.h"

namespace {
using namespace compress_test;

TEST(LzoCodec, RoundTripReportsBytesConsumed) {
  std::mt19937 rng(7);
  std::vector<Bytes> samples = {{}, {'a'}, Bytes(5000, 0), Bytes(30000), Bytes(70000)};
  for (auto& b : samples[3]) b = uint8_t(rng());
  for (auto& b : samples[4]) b = uint8_t("class Turret {\r\n\tmodel = 0.125;"[rng() % 31]);
  std::filesystem::path paa = std::filesystem::path(VENDRAK_CORPUS) / "paa";
  if (std::filesystem::is_directory(paa))
    for (auto const& e : std::filesystem::directory_iterator(paa)) samples.push_back(read_file(e.path()));
  for (Bytes const& in : samples) {
    Bytes stream = packed(in, CT_LZO);
    Expanded e = expand_exact(cat({stream, {0x11, 0x00, 0x00, 0xAB}}), in.size(), CT_LZO);  // + the next block
    ASSERT_EQ(e.result, int64_t(stream.size())) << in.size();
    ASSERT_EQ(e.out, in);
  }
}

TEST(LzoCodec, RejectsTruncationLyingSizesAndReachingBeforeTheOutput) {
  Bytes words;
  for (int i = 0; i < 300; ++i) words.push_back(uint8_t("configs and models "[i % 19] + i / 50));
  Bytes stream = packed(words, CT_LZO);
  for (size_t cut = 0; cut < stream.size(); ++cut)
    EXPECT_EQ(expand_exact(Bytes(stream.begin(), stream.begin() + cut), words.size(), CT_LZO).result, -1) << cut;
  for (uint64_t size : {words.size() - 1, words.size() + 1, size_t(0)})
    EXPECT_EQ(expand_exact(stream, size, CT_LZO).message, "lzo compression error") << size;
  // Two literals, then a 3-byte match at distance 2 (overlapping what it writes), or 3 with one literal.
  EXPECT_EQ(expand_exact({0x13, 'a', 'b', 0x44, 0, 0x11, 0, 0}, 5, CT_LZO).out, Bytes({'a', 'b', 'a', 'b', 'a'}));
  EXPECT_EQ(expand_exact({0x12, 'a', 0x44, 0x00, 0x11, 0, 0}, 4, CT_LZO).result, -1);
  EXPECT_EQ(expand_exact({0x00, 0x01, 'x'}, 19, CT_LZO).result, -1);  // a long literal run cut short
}

// The library's own bounded decoder as a second opinion on damaged streams: both must agree on
// which are good and on what they hold.
TEST(LzoCodec, AgreesWithLibraryDecoderOnDamagedStreams) {
  std::mt19937 rng(11);
  Bytes text;
  while (text.size() < 3000) text.push_back(uint8_t("abcabdabeab  \r\n"[rng() % 15]));
  Bytes base = packed(text, CT_LZO);
  int good = 0;
  for (int round = 0; round < 4000; ++round) {
    Bytes s = base;
    for (int k = rng() % 3 + 1; k; --k) s[rng() % s.size()] = uint8_t(rng());
    Expanded ours = expand_exact(s, text.size(), CT_LZO);
    Bytes theirs(text.size());
    lzo_uint len = theirs.size();
    int lr = lzo1x_decompress_safe(s.data(), s.size(), theirs.data(), &len, nullptr);
    bool library_ok = (lr == LZO_E_OK || lr == LZO_E_INPUT_NOT_CONSUMED) && len == text.size();
    ASSERT_EQ(ours.result >= 0, library_ok) << round;
    if (ours.result < 0) continue;
    ++good;
    ASSERT_EQ(ours.out, theirs);
    ASSERT_TRUE(lr != LZO_E_OK || ours.result == int64_t(s.size()));
  }
  EXPECT_GT(good, 0);
}

}  // namespace
