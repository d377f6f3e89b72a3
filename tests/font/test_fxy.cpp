#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "font/Glyvard.h"
#include "texture/PaaBytes.h"

using namespace paa_test;

namespace {
Bytes arma(uint32_t version, size_t extra) {
  Bytes b = text("BIFo");
  put(b, {u32(version), Bytes(extra, 0x21)});
  return b;
}
}  // namespace

TEST(Fxy, FormsAreToldBySizeAndSignature) {
  BisDLL dll;
  Glyvard& g = *dll.dll_GetGlyvard();
  Bytes bifo_2688 = arma(257, 2688 - 8);  // exactly 2688 bytes: the headerless form wins
  struct Case {
    char const* name;
    Bytes file;
    int code;
    bool arma;
    unsigned long count;
  };
  std::vector<Case> cases = {
      {"2688 bytes", Bytes(2688, 1), 0, false, 224},
      {"2688 bytes beginning BIFo", bifo_2688, 0, false, 224},
      {"2689 bytes without BIFo", Bytes(2689, 1), 11, false, 0},
      {"BIFo version 256", arma(256, 14), 11, false, 0},
      {"BIFo and 15 bytes", arma(257, 15), 10, false, 0},
      {"BIFo and 14 bytes", arma(257, 14), 0, true, 1},
      {"BIFo and no records", arma(257, 0), 0, true, 0},
      {"three bytes", Bytes{'B', 'I', 'F'}, 1, false, 0},
      {"BIFo cut inside the version", text("BIFo\x01\x01"), 1, false, 0},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(g.fxy_Open("font", c.file.data(), static_cast<unsigned long>(c.file.size())), c.code);
    EXPECT_EQ(g.fxy_IsArma(), c.arma);
    EXPECT_EQ(g.fxy_GetCount(), c.count);
    EXPECT_EQ(g.fxy_GetEntry(c.count), nullptr);
  }
  Bytes two = arma(257, 28);
  two[8 + 14] = 0x7A;
  ASSERT_EQ(g.fxy_Open("font", two.data(), static_cast<unsigned long>(two.size())), 0);
  EXPECT_EQ(g.fxy_GetEntry(1), two.data() + 8 + 14);
  EXPECT_EQ(*g.fxy_GetEntry(1), 0x7A);
  EXPECT_STREQ(Glyvard::ErrorString(-10), "Fxy: non modular filesize");
  EXPECT_STREQ(Glyvard::ErrorString(3), "invalid file");
}

TEST(FxyCorpus, EveryFontOpens) {
  auto files = corpus_files("fxy", {".fxy"});
  if (files.empty()) GTEST_SKIP() << "no corpus";
  BisDLL dll;
  Glyvard& g = *dll.dll_GetGlyvard();
  for (auto const& f : files) {
    SCOPED_TRACE(f);
    ASSERT_EQ(g.fxy_Open(f.c_str()), 0);
    EXPECT_EQ(g.fxy_IsArma(), std::filesystem::file_size(f) != 2688);
    EXPECT_GT(g.fxy_GetCount(), 0u);
  }
  EXPECT_EQ(g.fxy_Open("/nonexistent/font"), GE_INVALID_FILE);
}
