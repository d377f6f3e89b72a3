#include <gtest/gtest.h>

#include <cstring>

#include "DecodeHelpers.h"
#include "config/rap_entry.h"

namespace fs = std::filesystem;

namespace {

TEST(KaltorCorpus, KeptFilesGiveTheirExpectedText) {
  for (std::string name : {"cba_diagnostic_enable_perf_loop_config", "tfar_bundled_xeh_config"}) {
    fs::path dir = fs::path(VENDRAK_TEST_DATA) / "config";
    Bytes bin = file_bytes(dir / (name + ".bin")), expected = file_bytes(dir / (name + ".txt"));
    ASSERT_FALSE(bin.empty()) << name;
    BisDLL dll;
    GenString text;
    EXPECT_EQ(dll.dll_GetKaltor()->drp_Decode(bin.data(), bin.size(), text, (name + ".bin").c_str(), -1), 0);
    EXPECT_EQ(std::string(text.c_str()), std::string(expected.begin(), expected.end())) << name;
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

// The floats and doubles of the tree, in the order the text lists them.
void collect_reals(rap_entry const* node, std::vector<rap_entry const*>& out) {
  for (rap_entry const* c = node->rpe_get_first_child(); c; c = c->rpe_get_next_sibling()) {
    if (c->rpe_GetType() == rap_entry::RPE_FLOAT || c->rpe_GetType() == rap_entry::RPE_DOUBLE) out.push_back(c);
    collect_reals(c, out);
  }
}

// Every real in the text reads back to the bits of the value in the tree.
void expect_reals_exact(Bytes const& b, std::string const& what) {
  BisDLL dll;
  rap_entry root;
  ASSERT_EQ(dll.dll_GetKaltor()->drp_Decode(b.data(), static_cast<unsigned long>(b.size()), &root), 0) << what;
  std::vector<rap_entry const*> values;
  collect_reals(&root, values);
  Decoded d = decode(b);
  EXPECT_EQ(d.code, 0) << what << ": " << d.messages;
  EXPECT_EQ(d.text.find("//Generic"), std::string::npos) << what;
  std::vector<std::string> tokens = real_tokens(d.text);
  ASSERT_EQ(tokens.size(), values.size()) << what;
  for (size_t i = 0; i < values.size(); ++i) {
    bool is_float = values[i]->rpe_GetType() == rap_entry::RPE_FLOAT;
    double v = is_float ? values[i]->rpe_get_float() : values[i]->rpe_get_double();
    double back = is_float ? std::strtof(tokens[i].c_str(), nullptr) : std::strtod(tokens[i].c_str(), nullptr);
    EXPECT_EQ(std::memcmp(&v, &back, 8), 0) << what << ": " << tokens[i];
  }
}

// The corpus files keep every float bit through the text: the binariser's corpus tests write them back
// byte for byte from the decoder's text.
TEST(KaltorCorpus, HardFloatsKeepTheirBits) {
  std::vector<Bytes> el;
  for (float f : {0.1f, 1.0f / 3, 16777217.0f, 3.4028235e38f, 1.17549435e-38f * 4, -2.5e-7f, 123456.789f, 7e10f})
    el.push_back(e_f(f));
  for (double d : {0.1, 1.0 / 3, 1e-12, -123456789.125}) el.push_back(e_d(d));
  expect_reals_exact(arma(cls("", {arr("a", el), cls("C", {v_f("x", 0.3f), v_d("y", 2.2)})})), "hard floats");
}

}  // namespace
