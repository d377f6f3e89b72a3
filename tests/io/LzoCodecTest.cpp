#include <gtest/gtest.h>
#include <lzo/lzo1x.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <vector>

#include "io/CompressionEngine.h"
#include "io/LzoCodec.h"

namespace {
using Bytes = std::vector<uint8_t>;

Bytes lzo_compress(Bytes const& in) {
  CompressionEngine engine;
  int64_t n = cmp_Compress(engine, in.data(), in.size(), CT_LZO);
  EXPECT_GT(n, 0);
  return Bytes(engine.cmp_GetOutput(), engine.cmp_GetOutput() + n);
}

// Expands from an exactly sized copy, so that any read or write past the ends shows under the
// address sanitizer.
int64_t expand(Bytes const& stream, uint64_t size, Bytes* out = nullptr) {
  auto src = std::make_unique<uint8_t[]>(stream.size());
  if (!stream.empty()) std::memcpy(src.get(), stream.data(), stream.size());
  auto dst = std::make_unique<uint8_t[]>(size);
  int64_t r = LzoCodec::lzo_Expand(src.get(), stream.size(), dst.get(), size);
  if (out) out->assign(dst.get(), dst.get() + size);
  return r;
}

std::vector<Bytes> samples() {
  std::mt19937 rng(7);
  std::vector<Bytes> s;
  s.push_back({});
  s.push_back({'a'});
  s.push_back(Bytes(5000, 0));
  Bytes random(30000), words, small_alphabet(40000);
  for (auto& b : random) b = uint8_t(rng());
  for (auto& b : small_alphabet) b = uint8_t('a' + rng() % 3);
  char const* phrases[] = {"model = \"\\a3\\data_f\\", "class Turret", "{\r\n", "\t", "0.125, "};
  while (words.size() < 70000) {
    std::string p = phrases[rng() % 5];
    words.insert(words.end(), p.begin(), p.end());
  }
  s.push_back(random);
  s.push_back(words);
  s.push_back(small_alphabet);
  std::filesystem::path root(VENDRAK_CORPUS);
  if (std::filesystem::is_directory(root / "paa")) {
    for (auto const& e : std::filesystem::directory_iterator(root / "paa")) {
      std::ifstream f(e.path(), std::ios::binary);
      s.emplace_back((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
      if (s.size() > 8) break;
    }
  }
  return s;
}

TEST(LzoCodec, RoundTripReportsBytesConsumed) {
  for (Bytes const& in : samples()) {
    Bytes stream = lzo_compress(in);
    Bytes followed = stream;
    followed.insert(followed.end(), {0x11, 0x00, 0x00, 0xAB});  // the next block's bytes
    Bytes out;
    ASSERT_EQ(expand(followed, in.size(), &out), int64_t(stream.size())) << in.size();
    ASSERT_EQ(out, in);
  }
}

TEST(LzoCodec, RejectsTruncationAndLyingSizes) {
  Bytes words;
  for (int i = 0; i < 300; ++i) words.push_back(uint8_t("configs and models "[i % 19] + i / 50));
  Bytes stream = lzo_compress(words);
  for (size_t cut = 0; cut < stream.size(); ++cut)
    EXPECT_EQ(expand(Bytes(stream.begin(), stream.begin() + cut), words.size()), -1) << cut;
  EXPECT_EQ(expand(stream, words.size() - 1), -1);
  EXPECT_EQ(expand(stream, words.size() + 1), -1);
  EXPECT_EQ(expand(stream, 0), -1);
}

TEST(LzoCodec, HandWrittenStreams) {
  struct Case {
    char const* name;
    Bytes stream;
    uint64_t size;
    int64_t result;
    std::string output;
  };
  std::vector<Case> cases = {
      {"end code alone", {0x11, 0x00, 0x00}, 0, 3, ""},
      {"opening literals, overlapping match", {0x13, 'a', 'b', 0x40 | (1 << 2), 0, 0x11, 0, 0}, 5, 8,
       "ababa"},  // 2 literals, then a 3-byte match at distance 2
      {"match before the output", {0x12, 'a', 0x44, 0x00, 0x11, 0, 0}, 4, -1, ""},
      {"long literal run", {0x00, 0x01, 'x'}, 19, -1, ""},  // 19 literals announced, 1 present
      {"end code with missing bytes", {0x12, 'a', 0x11, 0x00}, 1, -1, ""},
      {"empty input", {}, 0, -1, ""},
  };
  for (auto const& c : cases) {
    Bytes out;
    EXPECT_EQ(expand(c.stream, c.size, &out), c.result) << c.name;
    if (c.result > 0) {
      EXPECT_EQ(std::string(out.begin(), out.end()), c.output) << c.name;
    }
  }
}

// The library's own bounded decoder as a second opinion on damaged streams: both must agree on
// which are good and on what they hold.
TEST(LzoCodec, AgreesWithLibraryDecoderOnDamagedStreams) {
  std::mt19937 rng(11);
  Bytes text;
  while (text.size() < 3000) text.push_back(uint8_t("abcabdabeab  \r\n"[rng() % 15]));
  Bytes base = lzo_compress(text);
  int good = 0;
  for (int round = 0; round < 4000; ++round) {
    Bytes s = base;
    for (int k = rng() % 3 + 1; k; --k) s[rng() % s.size()] = uint8_t(rng());
    Bytes ours;
    int64_t r = expand(s, text.size(), &ours);
    Bytes theirs(text.size());
    lzo_uint len = theirs.size();
    int lr = lzo1x_decompress_safe(s.data(), s.size(), theirs.data(), &len, nullptr);
    bool library_ok = (lr == LZO_E_OK || lr == LZO_E_INPUT_NOT_CONSUMED) && len == text.size();
    ASSERT_EQ(r >= 0, library_ok) << round;
    if (r >= 0) {
      ++good;
      ASSERT_EQ(ours, theirs);
      if (lr == LZO_E_OK) {
        ASSERT_EQ(r, int64_t(s.size()));
      }
    }
  }
  EXPECT_GT(good, 0);
}

}  // namespace
