#include <random>

#include "io/CompressTestUtil.h"

namespace {
using namespace compress_test;

TEST(RleCodec, Encodings) {
  Bytes counting(130);
  for (size_t i = 0; i < counting.size(); ++i) counting[i] = uint8_t(i);
  struct Case {
    char const* name;
    Bytes in, out;
  };
  std::vector<Case> cases = {
      {"empty", {}, {}},
      {"one byte", {7}, {0x00, 7}},
      {"the final two bytes never join a run", {7, 7, 7}, {0x02, 7, 7, 7}},
      {"run then the final two", Bytes(6, 9), {0x83, 9, 0x01, 9, 9}},
      {"literals before a run", {1, 2, 5, 5, 5, 5, 3, 4}, {0x01, 1, 2, 0x83, 5, 0x01, 3, 4}},
      {"run split at 128", cat({Bytes(300, 4), {1, 2}}), {0xFF, 4, 0xFF, 4, 0xAB, 4, 0x01, 1, 2}},
      {"literals split at 128", counting, cat({{0x7F}, Bytes(counting.begin(), counting.begin() + 128), {0x01, 128, 129}})},
  };
  for (auto const& c : cases) EXPECT_EQ(packed(c.in, CT_RLE), c.out) << c.name;
}

TEST(RleCodec, ExpandBoundsAndRoundTrip) {
  struct Case {
    char const* name;
    Bytes stream;
    uint64_t size;
    int64_t result;
  };
  std::vector<Case> cases = {
      {"run exactly fills", {0x83, 9}, 4, 2},       {"run overruns", {0x83, 9}, 3, -1},
      {"literals overrun", {0x02, 1, 2, 3}, 2, -1}, {"literals missing", {0x02, 1, 2}, 3, -1},
      {"run byte missing", {0x83}, 4, -1},          {"nothing to read", {}, 1, -1},
      {"nothing wanted", {}, 0, 0},
  };
  for (auto const& c : cases) {
    Expanded e = expand_exact(c.stream, c.size, CT_RLE | CT_LZSS);  // run-length takes precedence
    EXPECT_EQ(e.result, c.result) << c.name;
    EXPECT_EQ(e.message, "") << c.name;  // failures are returned, not thrown
  }
  std::mt19937 rng(3);
  for (int round = 0; round < 200; ++round) {
    Bytes in;
    while (in.size() < size_t(round * 7)) in.insert(in.end(), rng() % 6 ? 1 : rng() % 300, uint8_t(rng() % 4));
    Bytes stream = packed(in, CT_RLE);
    Expanded e = expand_exact(stream, in.size(), CT_RLE);
    ASSERT_EQ(e.result, int64_t(stream.size()));
    ASSERT_EQ(e.out, in);
    ASSERT_EQ(packed(e.out, CT_RLE), stream);
  }
}

}  // namespace
