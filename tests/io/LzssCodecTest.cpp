#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "io/CompressionEngine.h"
#include "io/LzssCodec.h"

namespace {
using Bytes = std::vector<uint8_t>;

// The plain form of the archive compressor's scan: every window position is looked at, the scan
// resumes after each candidate's match, the oldest of equal matches wins.
Bytes reference_compress(Bytes const& in, bool signed_sum) {
  Bytes out;
  size_t flag_at = 0;
  int items = 0;
  auto item = [&](bool literal, std::initializer_list<uint8_t> bytes) {
    if (items == 0) {
      flag_at = out.size();
      out.push_back(0);
    }
    if (literal) out[flag_at] |= uint8_t(1 << items);
    out.insert(out.end(), bytes);
    items = (items + 1) % 8;
  };
  size_t const n = in.size();
  size_t window = 0, pos = 0;
  while (pos < n) {
    if (pos - window > 4095) window = pos - 4095;
    size_t const remaining = n - pos;
    size_t best = 0, best_pos = 0;
    if (remaining >= 3) {
      size_t scan = window;
      for (;;) {
        size_t p = scan;
        while (p < pos && !(in[p] == in[pos] && in[p + 1] == in[pos + 1] && in[p + 2] == in[pos + 2])) ++p;
        if (p >= pos) break;
        size_t len = 0;
        while (len < remaining && in[p + len] == in[pos + len]) ++len;
        if (len > best) {
          best = len;
          best_pos = p;
        }
        scan = p + len;
      }
    }
    if (best < 3) {
      item(true, {in[pos++]});
      continue;
    }
    size_t const d = pos - best_pos;
    size_t const pieces = best <= 18 ? 1 : best / 18;
    size_t const len = best <= 18 ? best : 18;
    for (size_t k = 0; k < pieces; ++k) {
      item(false, {uint8_t(d & 0xFF), uint8_t(((d >> 4) & 0xF0) | (len - 3))});
      pos += len;
    }
  }
  uint32_t sum = 0;
  for (uint8_t b : in) sum += signed_sum ? uint32_t(int32_t(int8_t(b))) : b;
  for (int i = 0; i < 4; ++i) out.push_back(uint8_t(sum >> (8 * i)));
  return out;
}

Bytes compress(Bytes const& in, bool signed_sum) {
  Bytes out(LzssCodec::lzss_MaxCompressedSize(in.size()));
  out.resize(LzssCodec::lzss_Compress(in.data(), in.size(), out.data(), signed_sum));
  return out;
}

Bytes random_bytes(size_t n, unsigned alphabet, uint32_t seed) {
  std::mt19937 rng(seed);
  Bytes b(n);
  for (auto& x : b) x = uint8_t(rng() % alphabet);
  return b;
}

// Phrases repeated at random, with random bytes sprinkled in: many candidates of mixed lengths.
Bytes structured_bytes(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<std::string> words = {"class ", "cfgVehicles", " {\r\n", "\t\t", "displayName = \"", "0.5",
                                    "aaaaaaaaaaaaaaaaaaaaaaaaa", "ababababab", "};\r\n", "scope = 2;"};
  Bytes b;
  while (b.size() < n) {
    if (rng() % 4 == 0) {
      b.push_back(uint8_t(rng()));
    } else {
      auto const& w = words[rng() % words.size()];
      b.insert(b.end(), w.begin(), w.end());
    }
  }
  b.resize(n);
  return b;
}

void expect_same_as_reference(Bytes const& in, char const* what) {
  for (bool signed_sum : {false, true}) {
    Bytes fast = compress(in, signed_sum);
    Bytes ref = reference_compress(in, signed_sum);
    ASSERT_EQ(fast, ref) << what << " size " << in.size() << " signed " << signed_sum;
    Bytes back(in.size());
    ASSERT_EQ(LzssCodec::lzss_Expand(fast.data(), fast.size(), back.data(), back.size(), signed_sum),
              int64_t(fast.size()))
        << what;
    ASSERT_EQ(back, in) << what;
  }
}

TEST(LzssCodec, EncoderMatchesPlainScanOnGeneratedData) {
  for (uint32_t seed = 1; seed <= 60; ++seed) {
    size_t n = (seed * 997u) % 9000 + seed % 7;
    expect_same_as_reference(random_bytes(n, 256, seed), "random");
    expect_same_as_reference(random_bytes(n, 2 + seed % 5, seed), "small alphabet");
    expect_same_as_reference(structured_bytes(n, seed), "structured");
  }
  // Lengths around the group and window boundaries.
  for (size_t n : {0u, 1u, 2u, 3u, 4u, 17u, 18u, 19u, 21u, 36u, 37u, 4095u, 4096u, 4097u, 8200u})
    expect_same_as_reference(random_bytes(n, 3, uint32_t(n)), "boundary");
  Bytes zeros(20000, 0);
  expect_same_as_reference(zeros, "zeros");
  Bytes period(20000);
  for (size_t i = 0; i < period.size(); ++i) period[i] = uint8_t(i % 4093 % 251);
  expect_same_as_reference(period, "period near the window");
}

TEST(LzssCodec, EncoderMatchesPlainScanOnCorpusFiles) {
  namespace fs = std::filesystem;
  fs::path root(VENDRAK_CORPUS);
  if (!fs::is_directory(root)) GTEST_SKIP() << "no corpus";
  int files = 0;
  for (auto const& entry : fs::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file() || entry.file_size() == 0 || entry.file_size() > 200000) continue;
    std::ifstream f(entry.path(), std::ios::binary);
    Bytes data((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    expect_same_as_reference(data, entry.path().c_str());
    if (++files == 12) break;
  }
}

TEST(LzssCodec, KnownStreams) {
  EXPECT_EQ(compress({}, false), (Bytes{0, 0, 0, 0}));
  // A literal, five maximal references running on from the first byte, then the last nine bytes
  // searched anew: the oldest of the equal matches is at the very start, 91 back.
  Bytes hundred(100, 'x');
  Bytes expected = {0x01, 'x', 0x01, 0x0F, 0x01, 0x0F, 0x01, 0x0F, 0x01, 0x0F, 0x01, 0x0F, 91, 0x06};
  uint32_t sum = 100 * 'x';
  for (int i = 0; i < 4; ++i) expected.push_back(uint8_t(sum >> (8 * i)));
  EXPECT_EQ(compress(hundred, false), expected);
}

struct ExpandCase {
  char const* name;
  Bytes stream;
  uint64_t expanded_size;
  CompressType type;
  int64_t result;  // 0: throws
  std::string output;
};

TEST(LzssCodec, ExpandEdgeCases) {
  // 0xC8 as a signed byte is -56: the signed sum of "\xC8" is 0xFFFFFFC8.
  std::vector<ExpandCase> cases = {
      {"empty block", {0, 0, 0, 0}, 0, CT_LZSS, 4, ""},
      {"empty block with a sum", {1, 0, 0, 0}, 0, CT_LZSS, 0, ""},
      {"reference before the output gives spaces", {0x00, 5, 0x00, 0x60, 0, 0, 0}, 3, CT_LZSS, 7, "   "},
      {"reference straddling the start", {0x01, 'a', 0x03, 0x01, 0xA1, 0, 0, 0}, 3, CT_LZSS, 8,
       "a  "},
      {"zero distance", {0x00, 0x00, 0x00, 0, 0, 0, 0}, 3, CT_LZSS, 0, ""},
      {"signed sum under the unsigned type", {0x01, 0xC8, 0xC8, 0xFF, 0xFF, 0xFF}, 1, CT_LZSS, 6, "\xC8"},
      {"unsigned sum under the signed type", {0x01, 0xC8, 0xC8, 0, 0, 0}, 1, CT_LZSS_SIGNED, 6, "\xC8"},
      {"wrong sum", {0x01, 'a', 0x62, 0, 0, 0}, 1, CT_LZSS, 0, ""},
      {"stops inside a reference", {0x01, 'a', 0x01, 0x0F, 0x23, 0x01, 0, 0}, 3, CT_LZSS, 8, "aaa"},
      {"truncated group", {0x00, 0x01}, 3, CT_LZSS, 0, ""},
      {"truncated checksum", {0x01, 'a', 0x61, 0, 0}, 1, CT_LZSS, 0, ""},
      {"expected size larger than the stream", {0x01, 'a', 0x61, 0, 0, 0}, 2, CT_LZSS, 0, ""},
      {"no method", {0, 0, 0, 0}, 0, 0x10, 0, ""},
  };
  CompressionEngine engine;
  for (auto const& c : cases) {
    // Exactly sized buffers so that any overrun shows under the address sanitizer.
    auto src = std::make_unique<uint8_t[]>(c.stream.size());
    std::memcpy(src.get(), c.stream.data(), c.stream.size());
    auto dst = std::make_unique<uint8_t[]>(c.expanded_size);
    if (c.result == 0) {
      EXPECT_ANY_THROW(cmp_Expand(engine, src.get(), c.stream.size(), dst.get(), c.expanded_size, c.type))
          << c.name;
      continue;
    }
    EXPECT_EQ(cmp_Expand(engine, src.get(), c.stream.size(), dst.get(), c.expanded_size, c.type), c.result)
        << c.name;
    EXPECT_EQ(std::string(reinterpret_cast<char*>(dst.get()), c.expanded_size), c.output) << c.name;
  }
}

TEST(LzssCodec, ExpandMessages) {
  CompressionEngine engine;
  uint8_t bad[] = {0x00, 0x00, 0x00, 0, 0, 0, 0};
  uint8_t out[4];
  auto message = [&](CompressType type) -> std::string {
    try {
      cmp_Expand(engine, bad, sizeof bad, out, 3, type);
    } catch (char const* m) {
      return m;
    }
    return "no throw";
  };
  EXPECT_EQ(message(CT_LZSS), "lzss compression error");
  EXPECT_EQ(message(CT_LZSS_SIGNED), "lzss compression error");
  EXPECT_EQ(message(CT_LZO), "lzo compression error");
  EXPECT_EQ(message(0x40000), "unknown compression type");
  // A wrong checksum reports the bytes consumed, negated, to direct callers of the codec.
  uint8_t wrong[] = {0x01, 'a', 0x62, 0, 0, 0};
  EXPECT_EQ(LzssCodec::lzss_Expand(wrong, sizeof wrong, out, 1, false), -6);
}

}  // namespace
