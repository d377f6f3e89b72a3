#include <random>

#include "io/CompressTestUtil.h"

namespace {
using namespace compress_test;

TEST(RleCodec, Encodings) {
  Bytes counting(130);
  for (size_t i = 0; i < counting.size(); ++i) counting[i] = uint8_t(i);
  std::pair<Bytes, Bytes> cases[] = {
      {{}, {}},
      {{7, 7, 7}, {0x02, 7, 7, 7}},  // the final two bytes never join a run
      {Bytes(6, 9), {0x83, 9, 0x01, 9, 9}},
      {{1, 2, 5, 5, 5, 5, 3, 4}, {0x01, 1, 2, 0x83, 5, 0x01, 3, 4}},
      {cat({Bytes(300, 4), {1, 2}}), {0xFF, 4, 0xFF, 4, 0xAB, 4, 0x01, 1, 2}},  // runs split at 128
      {counting, cat({{0x7F}, Bytes(counting.begin(), counting.begin() + 128), {0x01, 128, 129}})},
  };
  for (auto const& [in, out] : cases) EXPECT_EQ(packed(in, CT_RLE), out) << in.size();
}

TEST(RleCodec, ExpandBoundsAndRoundTrip) {
  struct { Bytes stream; uint64_t size; int64_t result; } cases[] = {
      {{0x83, 9}, 4, 2},         {{0x83, 9}, 3, -1},  // a run exactly fills, overruns
      {{0x02, 1, 2, 3}, 2, -1},  {{0x02, 1, 2}, 3, -1},  // literals overrun, are missing
      {{0x83}, 4, -1},           {{}, 1, -1},          {{}, 0, 0},
  };
  for (auto const& c : cases) {
    Expanded e = expand_exact(c.stream, c.size, CT_RLE | CT_LZSS);  // run-length takes precedence
    EXPECT_EQ(e.result, c.result) << c.stream.size() << " into " << c.size;
    EXPECT_EQ(e.message, "");  // failures are returned, not thrown
  }
  std::mt19937 rng(3);
  for (int round = 0; round < 200; ++round) {
    Bytes in;
    while (in.size() < size_t(round * 7)) in.insert(in.end(), rng() % 6 ? 1 : rng() % 300, uint8_t(rng() % 4));
    Bytes stream = packed(in, CT_RLE);
    Expanded e = expand_exact(stream, in.size(), CT_RLE);
    ASSERT_EQ(e.result, int64_t(stream.size()));
    ASSERT_EQ(e.out, in);
  }
}

}  // namespace
