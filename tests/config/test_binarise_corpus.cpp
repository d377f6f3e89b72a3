#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "DecodeHelpers.h"
#include "config/Sembric.h"
#include "core/BisDLL.h"

namespace fs = std::filesystem;

namespace {
// Every binarised config of the corpus (and the OFP-dialect save) written again, from the file
// itself through the decoder's tree and from the decoder's text through the reader: both must
// give the very same bytes.
TEST(BinariseCorpus, BinarisedConfigsWriteBackByteForByte) {
  fs::path dir = corpus() / "rap";
  if (!fs::is_directory(dir)) GTEST_SKIP() << "no corpus at " << corpus();
  std::vector<fs::path> files;
  for (auto const& e : fs::directory_iterator(dir)) files.push_back(e.path());
  files.push_back(corpus() / "other" / "cwrce_synthetic_save.fps");
  for (auto const& p : files) {
    auto in = file_bytes(p);
    BisDLL dll;
    Kaltor* k = dll.dll_GetKaltor();
    char const* text = nullptr;
    ASSERT_EQ(k->drp_Decode(in.data(), static_cast<unsigned long>(in.size()), &text, "x", -1), 0) << p;
    std::string t(text, k->drp_GetTextSize());
    std::string b(in.begin(), in.end());
    for (std::string const* source : {&b, &t}) {
      Sembric* s = dll.dll_GetRap();
      g_msgs.clear();
      ASSERT_EQ(s->rap_Create("t.cpp", 0, capture_msg, source->data(), static_cast<unsigned>(source->size())), 0)
          << p << g_msgs;
      std::vector<uint8_t> out;
      bool ofp = in.size() > 6 && in[4] == 4;
      ASSERT_EQ(s->rap_Output(out, ofp ? 0 : Sembric::RAPO_ARMA), 0) << p;
      size_t i = 0;
      while (i < out.size() && i < in.size() && out[i] == in[i]) ++i;
      EXPECT_EQ(i, in.size()) << p << (source == &t ? " from text" : "") << ": first difference at " << i
                              << " of " << in.size() << "/" << out.size();
      EXPECT_EQ(out.size(), in.size()) << p;
    }
  }
}

// Two trees hold the same nodes, in the same order, with the same names, types and values.
void expect_same_tree(rap_entry const* a, rap_entry const* b, std::string const& where) {
  for (; a && b; a = a->rpe_get_next_sibling(), b = b->rpe_get_next_sibling()) {
    std::string here = where + "." + a->name();
    ASSERT_STREQ(a->name(), b->name()) << here;
    ASSERT_EQ(a->rpe_GetType(), b->rpe_GetType()) << here;
    ASSERT_STREQ(a->value(), b->value()) << here;
    expect_same_tree(a->rpe_get_first_child(), b->rpe_get_first_child(), here);
  }
  ASSERT_EQ(a, b) << where << ": one tree has more entries";
}

// Real sources, with the folders their includes are found below: each binarises, and what it
// writes decodes to the tree it was written from.
TEST(BinariseCorpus, RealSourcesBinariseAndDecodeToTheirTree) {
  fs::path text = corpus() / "cfgtext";
  if (!fs::is_directory(text)) GTEST_SKIP() << "no corpus at " << corpus();
  fs::path cba = text / "cba_a3_tree", tzk = text / "tzk_ofp_TZK_Config_4_0_6";
  std::vector<std::pair<fs::path, std::vector<fs::path>>> sources;
  for (fs::path root : {cba / "x", corpus() / "addon-src"})
    for (auto const& e : fs::recursive_directory_iterator(root))
      if (e.path().filename() == "config.cpp") sources.push_back({e.path(), {cba, cba / "include"}});
  sources.push_back({tzk / "TZK_Config_4_0_6" / "config.cpp", {tzk}});
  // The OFP mission includes a header of a mod that the corpus does not hold.
  for (auto const& e : fs::directory_iterator(text))
    if (e.is_regular_file() && e.path().extension() != ".skeleton" && e.path().extension() != ".hpp" &&
        e.path().filename() != "tzk_ofp_mission.sqm")
      sources.push_back({e.path(), {}});
  for (auto const& e : fs::directory_iterator(corpus() / "addon-src"))
    if (fs::exists(e.path() / "model.cfg")) sources.push_back({e.path() / "model.cfg", {}});
  ASSERT_GT(sources.size(), 25u);
  for (auto const& [file, folders] : sources) {
    BisDLL dll;
    Sembric* s = dll.dll_GetRap();
    for (auto const& f : folders) s->rap_AddIncludeFolder(f.c_str());
    g_msgs.clear();
    s->rap_GetIO()->io_SetErrCallBack(capture_msg);
    ASSERT_EQ(s->rap_Create(file.c_str(), 0, nullptr), 0) << file << "\n" << g_msgs;
    for (int flags : {0, Sembric::RAPO_ARMA}) {
      std::vector<uint8_t> out;
      ASSERT_EQ(s->rap_Output(out, flags), 0) << file;
      rap_entry back;
      ASSERT_EQ(dll.dll_GetKaltor()->drp_Decode(out.data(), static_cast<unsigned long>(out.size()), &back), 0) << file;
      expect_same_tree(s->rap_get_first(), back.rpe_get_first_child(), file.filename().string());
    }
  }
}

// A released header that starts with a UTF-8 byte-order mark, as the top of the text: the mark is
// read past, as the game does. The header relies on its addon's macros and on two classes of the
// config that includes it, given after the mark.
TEST(BinariseCorpus, AByteOrderMarkAtTheTopIsReadPast) {
  fs::path file = corpus() / "cfgtext" / "cba_menu_popup_bom.hpp";
  fs::path cba = corpus() / "cfgtext" / "cba_a3_tree";
  if (!fs::exists(file)) GTEST_SKIP() << "no corpus at " << corpus();
  std::ifstream in(file, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_EQ(text.compare(0, 3, "\xEF\xBB\xBF"), 0);
  text.insert(3, "#include \"\\x\\cba\\addons\\ui\\script_component.hpp\"\r\nclass _flexiMenu_RscShortcutButton;\r\nclass rscText;\r\n");
  BisDLL dll;
  Sembric* s = dll.dll_GetRap();
  s->rap_AddIncludeFolder(cba.c_str());
  s->rap_AddIncludeFolder((cba / "include").c_str());
  g_msgs.clear();
  s->rap_GetIO()->io_SetErrCallBack(capture_msg);
  ASSERT_EQ(s->rap_Create(file.c_str(), 0, nullptr, text.data(), unsigned(text.size())), 0) << g_msgs;
  EXPECT_NE(s->rap_get_class("CBA_flexiMenu_rscPopup"), nullptr);
}
}  // namespace
