#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

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

// Number tokens of the text that carry a point or an exponent: the floats and doubles, in order.
// Quoted strings and comment lines are skipped, so nothing inside them is taken for a number.
std::vector<std::string> real_tokens(std::string const& t) {
  std::vector<std::string> out;
  for (size_t i = 0; i < t.size(); ++i) {
    if (t.compare(i, 2, "//") == 0 && (i == 0 || t[i - 1] == '\n')) {
      i = t.find('\n', i);
    } else if (t[i] == '"') {
      while (++i < t.size() && (t[i] != '"' || (i + 1 < t.size() && t[i + 1] == '"' && ++i))) {
      }
    } else if (i && std::strchr("={, ", t[i - 1]) && (t[i] == '-' || std::isdigit(static_cast<unsigned char>(t[i])))) {
      size_t j = t.find_first_not_of("0123456789.eE+-", i + 1);
      std::string tok = t.substr(i, j - i);
      if (j < t.size() && std::strchr(",;}", t[j]) && tok.find_first_of(".eE") != std::string::npos) out.push_back(tok);
      i = j - 1;
    }
    if (i == std::string::npos) break;
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
