#include <set>
#include <random>

#include "io/LzssCodec.h"
#include "io/CompressTestUtil.h"
#include "support/LzssReference.h"

namespace {
using namespace compress_test;

Bytes compress(Bytes const& in, bool signed_sum) {
  Bytes out(LzssCodec::lzss_MaxCompressedSize(in.size()));
  out.resize(LzssCodec::lzss_Compress(in.data(), in.size(), out.data(), signed_sum));
  return out;
}

// Random bytes from a small alphabet, or (alphabet 0) phrases repeated at random with random bytes
// sprinkled in: many candidates of mixed lengths.
Bytes generated(size_t n, unsigned alphabet, uint32_t seed) {
  std::mt19937 rng(seed);
  char const* words[] = {"class ", "cfgVehicles", " {\r\n", "\t\t", "displayName = \"", "0.5",
                         "aaaaaaaaaaaaaaaaaaaaaaaaa", "ababababab", "};\r\n", "scope = 2;"};
  Bytes b;
  while (b.size() < n) {
    std::string w(1, char(rng() % (alphabet ? alphabet : 256)));
    if (!alphabet && rng() % 4) w = words[rng() % 10];
    b.insert(b.end(), w.begin(), w.end());
  }
  b.resize(n);
  return b;
}

void expect_same_as_reference(Bytes const& in, std::string const& what) {
  for (bool signed_sum : {false, true}) {
    Bytes fast = compress(in, signed_sum);
    ASSERT_EQ(fast, lzss_reference_compress(in, signed_sum)) << what << " size " << in.size() << " signed " << signed_sum;
    Expanded back = expand_exact(fast, in.size(), signed_sum ? CT_LZSS_SIGNED : CT_LZSS);
    ASSERT_EQ(back.result, int64_t(fast.size())) << what;
    ASSERT_EQ(back.out, in) << what;
  }
}

TEST(LzssCodec, EncoderMatchesPlainScan) {
  for (uint32_t seed = 1; seed <= 24; ++seed) {
    size_t n = (seed * 997u) % 7000 + seed % 7;
    for (unsigned alphabet : {256u, 2 + seed % 5, 0u}) expect_same_as_reference(generated(n, alphabet, seed), "seeded");
  }
  // Lengths around the group and window boundaries.
  for (size_t n : {0u, 1u, 2u, 3u, 4u, 17u, 18u, 19u, 21u, 36u, 37u, 4095u, 4096u, 4097u, 8200u})
    expect_same_as_reference(generated(n, 3, uint32_t(n)), "boundary");
  Bytes zeros(20000, 0), period(20000);
  for (size_t i = 0; i < period.size(); ++i) period[i] = uint8_t(i % 4093 % 251);
  expect_same_as_reference(zeros, "zeros");
  expect_same_as_reference(period, "period near the window");
  // The first small file of each kind in the corpus: text, models, textures, sounds...
  namespace fs = std::filesystem;
  if (!fs::is_directory(VENDRAK_CORPUS)) return;
  for (auto const& kind : fs::directory_iterator(VENDRAK_CORPUS)) {
    std::set<fs::path> files;
    if (kind.is_directory())
      for (auto const& e : fs::recursive_directory_iterator(kind))
        if (e.is_regular_file() && e.file_size() > 0 && e.file_size() <= 40000) files.insert(e.path());
    if (!files.empty()) expect_same_as_reference(read_file(*files.begin()), *files.begin());
  }
}

TEST(LzssCodec, KnownStreams) {
  // A literal, five maximal references running on from the first byte, then the last nine bytes
  // searched anew: the oldest of the equal matches is at the very start, 91 back.
  Bytes expected = {0x01, 'x', 0x01, 0x0F, 0x01, 0x0F, 0x01, 0x0F, 0x01, 0x0F, 0x01, 0x0F, 91, 0x06};
  EXPECT_EQ(compress(Bytes(100, 'x'), false), cat({expected, le32(100 * 'x')}));
}

TEST(LzssCodec, ExpandEdgeCases) {
  // 0xC8 is -56 as a signed byte: the signed sum of "\xC8" is 0xFFFFFFC8.
  // `output` holds the bytes expanded, or the message thrown.
  struct { char const* name; Bytes stream; uint64_t size; CompressType type; int64_t result; std::string output; }
  const cases[] = {
      {"empty block with a sum", {1, 0, 0, 0}, 0, CT_LZSS, -1, "lzss compression error"},
      {"reference before the output gives spaces", {0x00, 5, 0x00, 0x60, 0, 0, 0}, 3, CT_LZSS, 7, "   "},
      {"reference straddling the start", {0x01, 'a', 0x03, 0x01, 0xA1, 0, 0, 0}, 3, CT_LZSS, 8, "a  "},
      {"zero distance", {0x00, 0x00, 0x00, 0, 0, 0, 0}, 3, CT_LZSS_SIGNED, -1, "lzss compression error"},
      {"signed sum under the unsigned type", {0x01, 0xC8, 0xC8, 0xFF, 0xFF, 0xFF}, 1, CT_LZSS, 6, "\xC8"},
      {"unsigned sum under the signed type", {0x01, 0xC8, 0xC8, 0, 0, 0}, 1, CT_LZSS_SIGNED, 6, "\xC8"},
      {"wrong sum", {0x01, 'a', 0x62, 0, 0, 0}, 1, CT_LZSS, -1, "lzss compression error"},
      {"stops inside a reference", {0x01, 'a', 0x01, 0x0F, 0x23, 0x01, 0, 0}, 3, CT_LZSS, 8, "aaa"},
      {"truncated group", {0x00, 0x01}, 3, CT_LZSS, -1, "lzss compression error"},
      {"truncated checksum", {0x01, 'a', 0x61, 0, 0}, 1, CT_LZSS, -1, "lzss compression error"},
      {"expected size beyond the stream", {0x01, 'a', 0x61, 0, 0, 0}, 2, CT_LZSS, -1, "lzss compression error"},
      {"LZO takes precedence over LZSS", {0x00, 0x00, 0x00}, 3, CT_LZO | CT_LZSS, -1, "lzo compression error"},
      {"no method", {0, 0, 0, 0}, 0, 0x40010, -1, "unknown compression type"},
  };
  for (auto const& c : cases) {
    Expanded e = expand_exact(c.stream, c.size, c.type);
    EXPECT_EQ(e.result, c.result) << c.name;
    EXPECT_EQ(e.result < 0 ? e.message : std::string(e.out.begin(), e.out.end()), c.output) << c.name;
  }
  // Called directly, the codec reports a wrong sum as the bytes consumed, negated.
  uint8_t wrong[] = {0x01, 'a', 0x62, 0, 0, 0}, out[1];
  EXPECT_EQ(LzssCodec::lzss_Expand(wrong, sizeof wrong, out, 1, false), -6);
}

}  // namespace
