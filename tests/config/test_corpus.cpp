#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "DecodeHelpers.h"
#include "config/rap_entry.h"

namespace fs = std::filesystem;

namespace {

Bytes slurp(fs::path const& p) {
  std::ifstream f(p, std::ios::binary);
  return Bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
}

std::vector<fs::path> corpus_configs() {
  std::vector<fs::path> out;
  fs::path dir = fs::path(VENDRAK_CORPUS) / "rap";
  if (fs::is_directory(dir))
    for (auto const& e : fs::directory_iterator(dir)) out.push_back(e.path());
  fs::path ofp = fs::path(VENDRAK_CORPUS) / "other" / "cwrce_synthetic_save.fps";  // OFP dialect
  if (fs::exists(ofp)) out.push_back(ofp);
  std::sort(out.begin(), out.end());
  return out;
}

TEST(KaltorCorpus, KeptFilesGiveTheirExpectedText) {
  for (char const* name : {"cba_diagnostic_enable_perf_loop_config", "tfar_bundled_xeh_config"}) {
    fs::path dir = fs::path(VENDRAK_TEST_DATA) / "config";
    Bytes bin = slurp(dir / (std::string(name) + ".bin")), expected = slurp(dir / (std::string(name) + ".txt"));
    ASSERT_FALSE(bin.empty()) << name;
    BisDLL dll;
    GenString text;
    EXPECT_EQ(dll.dll_GetKaltor()->drp_Decode(bin.data(), bin.size(), text, (std::string(name) + ".bin").c_str(), -1), 0);
    EXPECT_EQ(std::string(text.c_str()), std::string(expected.begin(), expected.end())) << name;
  }
}

// Values of the tree in the order the text lists them.
void collect_reals(rap_entry const* node, std::vector<rap_entry const*>& out) {
  for (rap_entry const* c = node->rpe_get_first_child(); c; c = c->rpe_get_next_sibling()) {
    if (c->rpe_GetType() == rap_entry::RPE_FLOAT || c->rpe_GetType() == rap_entry::RPE_DOUBLE) out.push_back(c);
    collect_reals(c, out);
  }
}

// Number tokens of the text that carry a point or an exponent: the floats and doubles. Quoted
// strings and comment lines are skipped.
std::vector<std::string> real_tokens(std::string const& text) {
  std::vector<std::string> out;
  size_t i = 0, n = text.size();
  bool line_start = true;
  while (i < n) {
    char c = text[i];
    if (line_start && c == '/' && i + 1 < n && text[i + 1] == '/') {
      i = text.find('\n', i);
      if (i == std::string::npos) break;
      continue;
    }
    line_start = c == '\n' || (line_start && (c == '\t' || c == ' ' || c == '\r'));
    if (c == '"') {
      for (++i; i < n; ++i)
        if (text[i] == '"') {
          if (i + 1 < n && text[i + 1] == '"')
            ++i;
          else
            break;
        }
      ++i;
      continue;
    }
    bool starts = (c == '-' || std::isdigit(static_cast<unsigned char>(c))) && i > 0 &&
                  std::strchr("={, ", text[i - 1]);
    if (!starts) {
      ++i;
      continue;
    }
    size_t j = i + 1;
    while (j < n && std::strchr("0123456789.eE+-", text[j])) ++j;
    std::string tok = text.substr(i, j - i);
    if (j < n && std::strchr(",;}", text[j]) && tok.find_first_of(".eE") != std::string::npos) out.push_back(tok);
    i = j;
  }
  return out;
}

void expect_reals_exact(Bytes const& b, char const* what) {
  BisDLL dll;
  Kaltor* k = dll.dll_GetKaltor();
  rap_entry root;
  ASSERT_EQ(k->drp_Decode(b.data(), static_cast<unsigned long>(b.size()), &root), 0) << what;
  GenString text;
  ASSERT_EQ(k->drp_Decode(b.data(), b.size(), text), 0) << what;
  std::vector<rap_entry const*> values;
  collect_reals(&root, values);
  std::vector<std::string> tokens = real_tokens(text.c_str());
  ASSERT_EQ(tokens.size(), values.size()) << what;
  for (size_t i = 0; i < values.size(); ++i) {
    if (values[i]->rpe_GetType() == rap_entry::RPE_FLOAT) {
      float f = values[i]->rpe_get_float(), back = std::strtof(tokens[i].c_str(), nullptr);
      EXPECT_EQ(std::memcmp(&f, &back, 4), 0) << what << ": " << tokens[i];
    } else {
      double d = values[i]->rpe_get_double(), back = std::strtod(tokens[i].c_str(), nullptr);
      EXPECT_EQ(std::memcmp(&d, &back, 8), 0) << what << ": " << tokens[i];
    }
  }
}

TEST(KaltorCorpus, RealFilesDecodeAndKeepEveryFloatBit) {
  auto files = corpus_configs();
  if (files.empty()) GTEST_SKIP() << "no corpus at " << VENDRAK_CORPUS;
  for (auto const& p : files) {
    Bytes b = slurp(p);
    Decoded d = decode(b);
    EXPECT_EQ(d.code, 0) << p << ": " << d.messages;
    EXPECT_EQ(d.text.find("//Generic"), std::string::npos) << p;
    expect_reals_exact(b, p.c_str());
  }
}

TEST(KaltorCorpus, HardFloatsKeepTheirBits) {
  std::vector<Bytes> el;
  for (float f : {0.1f, 1.0f / 3, 16777217.0f, 3.4028235e38f, 1.17549435e-38f * 4, -2.5e-7f, 123456.789f, 7e10f})
    el.push_back(e_f(f));
  for (double d : {0.1, 1.0 / 3, 1e-12, -123456789.125})
    el.push_back(e_d(d));
  expect_reals_exact(arma(cls("", {arr("a", el), cls("C", {v_f("x", 0.3f), v_d("y", 2.2)})})), "hard floats");
}

}  // namespace
