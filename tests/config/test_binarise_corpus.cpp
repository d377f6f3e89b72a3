#include <gtest/gtest.h>

#include "DecodeHelpers.h"
#include "support/CorpusFile.h"
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
  // The OFP mission includes a header of a mod that the corpus does not hold; a header (.hpp) is a
  // piece of an addon that needs its component's macros (HeaderWithAByteOrderMark).
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
std::string value_of(Sembric* s, std::vector<char const*> const& path, int* type = nullptr) {
  rap_entry* e = s->rap_get_root();
  for (char const* name : path) {
    e = e ? e->rpe_get_entry(name, rap_entry::RPE_ANY) : nullptr;
    if (!e) return "(missing " + std::string(name) + ")";
  }
  if (type) *type = e->rpe_GetType();
  return e->value();
}

// The CBA tree as the game binarises it: `version = VERSION;` with VERSION made of MAJOR.MINOR is
// the float 3.19, and the game's own GUI grid macros (defined with tabs before their bodies) keep
// their tabs in the strings they make.
TEST(BinariseCorpus, CbaTreeAsTheGameWritesIt) {
  fs::path cba = corpus() / "cfgtext" / "cba_a3_tree";
  if (!fs::is_directory(cba)) GTEST_SKIP() << "no corpus at " << corpus();
  struct {
    char const* config;
    std::vector<char const*> path;
    int type;
    char const* value;
  } const cases[] = {
      {"main", {"CfgPatches", "cba_main", "version"}, rap_entry::RPE_FLOAT, "3.19"},
      {"main", {"CfgPatches", "cba_main", "versionStr"}, rap_entry::RPE_STRING, "3.19.0.000000"},
      {"ui", {"RscTitles", "cba_ui_ProgressBar", "TitleBackground", "sizeEx"}, rap_entry::RPE_STRING,
       "1 * \t\t\t\t\t(\t\t\t(\t\t\t((safeZoneW / safeZoneH) min 1.2) / 1.2) / 25)"},
  };
  for (auto const& c : cases) {
    BisDLL dll;
    Sembric* s = dll.dll_GetRap();
    s->rap_AddIncludeFolder(cba.c_str());
    s->rap_AddIncludeFolder((cba / "include").c_str());
    g_msgs.clear();
    s->rap_GetIO()->io_SetErrCallBack(capture_msg);
    fs::path file = cba / "x" / "cba" / "addons" / c.config / "config.cpp";
    ASSERT_EQ(s->rap_Create(file.c_str(), 0, nullptr), 0) << file << "\n" << g_msgs;
    int type = -1;
    EXPECT_EQ(value_of(s, c.path, &type), c.value) << c.config << " " << c.path.back();
    EXPECT_EQ(type, c.type) << c.config << " " << c.path.back();
  }
}

// A header of a CBA release saved with a UTF-8 byte-order mark. Read on its own, the mark is gone
// and the text stops only where the CBA macros it relies on are missing; included after its
// component's macros, as the addon's config.cpp includes it, it binarises.
TEST(BinariseCorpus, HeaderWithAByteOrderMark) {
  fs::path text = corpus() / "cfgtext", cba = text / "cba_a3_tree";
  fs::path header = corpus_file("cfgtext", "cba_menu_popup_bom.hpp");
  if (!fs::is_regular_file(header)) GTEST_SKIP() << "no corpus at " << corpus();
  Bytes raw = file_bytes(header);
  ASSERT_EQ(std::string(raw.begin(), raw.begin() + 3), "\xEF\xBB\xBF");
  BisDLL dll;
  Sembric* s = dll.dll_GetRap();
  s->rap_GetIO()->io_SetStdioCallBack(capture_msg);
  s->rap_GetIO()->io_SetErrCallBack(capture_msg);
  g_msgs.clear();
  std::string pre;
  ASSERT_EQ(s->rap_Preprocess(header.c_str(), pre), 0) << g_msgs;
  EXPECT_EQ(pre.substr(0, 2), "\r\n");  // the first line is a comment: only its line end is left
  EXPECT_EQ(pre.find("\xEF"), std::string::npos);
  EXPECT_EQ(s->rap_Create(header.c_str(), 0, nullptr), RAP_STATUS + RAPMSG_EXTRANEOUS);
  EXPECT_EQ(s->rap_get_linenum_in_error(), 18);  // onLoad = QUOTE(...) with QUOTE unknown

  for (auto const& f : {cba, cba / "include", header.parent_path()}) s->rap_AddIncludeFolder(f.c_str());
  std::string component =
      "#include \"\\x\\cba\\addons\\ui\\script_component.hpp\"\r\n"
      "class RscText;\r\nclass _flexiMenu_RscShortcutButton;\r\n"
      "#include \"\\cba_menu_popup_bom.hpp\"\r\n";
  g_msgs.clear();
  ASSERT_EQ(s->rap_Create("component.cpp", 0, nullptr, component.data(), static_cast<unsigned>(component.size())), 0)
      << g_msgs;
  EXPECT_EQ(value_of(s, {"CBA_flexiMenu_rscPopup", "onLoad"}), "with uiNamespace do {cba_ui_display = _this select 0};");
  EXPECT_EQ(value_of(s, {"CBA_flexiMenu_rscPopup", "flexiMenu_primaryMenuControlWidth"}), "0.21 * safeZoneW");
  EXPECT_EQ(value_of(s, {"CBA_flexiMenu_rscPopup", "listButton", "x"}),
            "(safeZoneX + safeZoneW / 2) - 0.21 * safeZoneW");
}
}  // namespace
