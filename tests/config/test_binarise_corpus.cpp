#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "DecodeHelpers.h"
#include "config/Sembric.h"
#include "core/BisDLL.h"

namespace fs = std::filesystem;

namespace {
// The corpus beside the source tree; a worktree elsewhere names it in VENDRAK_CORPUS.
fs::path corpus() {
  char const* env = std::getenv("VENDRAK_CORPUS");
  return env && *env ? fs::path(env) : fs::path(VENDRAK_CORPUS);
}

std::vector<uint8_t> slurp(fs::path const& p) {
  std::ifstream f(p, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

TEST(BinariseCorpus, BinarisedInputWritesBackByteForByte) {
  fs::path dir = corpus() / "rap";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no corpus at " << corpus();
  std::vector<fs::path> files;
  for (auto const& e : fs::directory_iterator(dir)) files.push_back(e.path());
  files.push_back(corpus() / "other" / "cwrce_synthetic_save.fps");
  for (auto const& p : files) {
    auto in = slurp(p);
    BisDLL dll;
    Sembric* s = dll.dll_GetRap();
    ASSERT_EQ(s->rap_Create(p.c_str(), 0, nullptr, reinterpret_cast<char const*>(in.data()),
                            static_cast<unsigned>(in.size())), 0) << p;
    std::vector<uint8_t> out;
    bool ofp = in.size() > 6 && in[4] == 4;
    ASSERT_EQ(s->rap_Output(out, ofp ? 0 : Sembric::RAPO_ARMA), 0) << p;
    EXPECT_EQ(out.size(), in.size()) << p;
    size_t i = 0;
    while (i < out.size() && i < in.size() && out[i] == in[i]) ++i;
    EXPECT_EQ(i, in.size()) << p << " first difference at " << i;
  }
}
// The decoder's text of every binarised config binarises back to the very same bytes.
TEST(BinariseCorpus, DecodedTextBinarisesByteForByte) {
  fs::path dir = corpus() / "rap";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no corpus at " << corpus();
  std::vector<fs::path> files;
  for (auto const& e : fs::directory_iterator(dir)) files.push_back(e.path());
  files.push_back(corpus() / "other" / "cwrce_synthetic_save.fps");
  for (auto const& p : files) {
    auto in = slurp(p);
    BisDLL dll;
    char const* text = nullptr;
    Kaltor* k = dll.dll_GetKaltor();
    ASSERT_EQ(k->drp_Decode(in.data(), static_cast<unsigned long>(in.size()), &text, "x", -1), 0) << p;
    std::string t(text, k->drp_GetTextSize());
    Sembric* s = dll.dll_GetRap();
    captured().clear();
    ASSERT_EQ(s->rap_Create("t.cpp", 0, capture, t.data(), static_cast<unsigned>(t.size())), 0) << p << captured();
    std::vector<uint8_t> out;
    bool ofp = in.size() > 6 && in[4] == 4;
    ASSERT_EQ(s->rap_Output(out, ofp ? 0 : Sembric::RAPO_ARMA), 0) << p;
    size_t i = 0;
    while (i < out.size() && i < in.size() && out[i] == in[i]) ++i;
    EXPECT_EQ(i, in.size()) << p << " first difference at " << i << " of " << in.size() << "/" << out.size();
  }
}
}  // namespace
