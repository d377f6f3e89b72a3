#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "io/CompressionEngine.h"
#include "io/RleCodec.h"

namespace {
using Bytes = std::vector<uint8_t>;

Bytes rle(Bytes const& in) {
  Bytes out(RleCodec::rle_MaxCompressedSize(in.size()));
  out.resize(RleCodec::rle_Compress(in.data(), in.size(), out.data()));
  return out;
}

Bytes repeat(size_t n, uint8_t b) { return Bytes(n, b); }
Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes r;
  for (auto const& p : parts) r.insert(r.end(), p.begin(), p.end());
  return r;
}

TEST(RleCodec, Encodings) {
  struct Case {
    char const* name;
    Bytes in, out;
  };
  std::vector<Case> cases = {
      {"empty", {}, {}},
      {"one byte", {7}, {0x00, 7}},
      {"two equal bytes are literals", {7, 7}, {0x01, 7, 7}},
      {"a run needs two bytes after it", {7, 7, 7}, {0x02, 7, 7, 7}},
      {"run then the final two as literals", repeat(6, 9), {0x83, 9, 0x01, 9, 9}},
      {"literals before a run", {1, 2, 5, 5, 5, 5, 3, 4}, {0x01, 1, 2, 0x83, 5, 0x01, 3, 4}},
      {"run split at 128", cat({repeat(300, 4), {1, 2}}), {0xFF, 4, 0xFF, 4, 0xAB, 4, 0x01, 1, 2}},
  };
  Bytes literals(130);
  for (size_t i = 0; i < literals.size(); ++i) literals[i] = uint8_t(i);
  Bytes split = cat({{0x7F}, Bytes(literals.begin(), literals.begin() + 128), {0x01, 128, 129}});
  cases.push_back({"literals split at 128", literals, split});
  for (auto const& c : cases) EXPECT_EQ(rle(c.in), c.out) << c.name;
}

TEST(RleCodec, ExpandBoundsAndRoundTrip) {
  struct Case {
    char const* name;
    Bytes stream;
    uint64_t size;
    int64_t result;
  };
  std::vector<Case> cases = {
      {"run exactly fills", {0x83, 9}, 4, 2},
      {"run overruns", {0x83, 9}, 3, -1},
      {"literals overrun", {0x02, 1, 2, 3}, 2, -1},
      {"literals missing", {0x02, 1, 2}, 3, -1},
      {"run byte missing", {0x83}, 4, -1},
      {"nothing to read", {}, 1, -1},
      {"nothing wanted", {}, 0, 0},
  };
  CompressionEngine engine;
  for (auto const& c : cases) {
    auto src = std::make_unique<uint8_t[]>(c.stream.size());
    if (!c.stream.empty()) std::memcpy(src.get(), c.stream.data(), c.stream.size());
    auto dst = std::make_unique<uint8_t[]>(c.size);
    EXPECT_EQ(cmp_Expand(engine, src.get(), c.stream.size(), dst.get(), c.size, CT_RLE), c.result) << c.name;
  }
  std::mt19937 rng(3);
  for (int round = 0; round < 200; ++round) {
    Bytes in;
    while (in.size() < size_t(round * 7)) in.insert(in.end(), rng() % 6 ? 1 : rng() % 300, uint8_t(rng() % 4));
    Bytes stream = rle(in);
    Bytes out(in.size());
    ASSERT_EQ(RleCodec::rle_Expand(stream.data(), stream.size(), out.data(), out.size()), int64_t(stream.size()));
    ASSERT_EQ(out, in);
    // Decoded streams written again come out the same.
    ASSERT_EQ(rle(out), stream);
  }
}

}  // namespace
