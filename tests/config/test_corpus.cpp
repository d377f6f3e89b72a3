#include <gtest/gtest.h>

#include "DecodeHelpers.h"

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

// Every float and double keeps its bits through the text: GenString's own tests walk the float bit
// space, the layout test pins which values print as floats and which as doubles, and BinariseCorpus
// writes the corpus back byte for byte from the decoder's text.

}  // namespace
