// The reader on files: include resolution, include folders and case-blind names. The real trees are
// read whole by the binariser's corpus tests.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "config/Sembric.h"
#include "core/BisDLL.h"
#include "test_reader_support.h"

namespace fs = std::filesystem;

namespace {

class ReaderFiles : public ::testing::Test {
 protected:
  fs::path root;
  void SetUp() override {
    root = fs::temp_directory_path() / ("vendrak_reader_" + std::to_string(::getpid()) + "_" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(root);
    fs::create_directories(root);
  }
  void TearDown() override { fs::remove_all(root); }
  std::string put(std::string const& rel, std::string const& text) {
    fs::path p = root / rel;
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
    return p.string();
  }
};

TEST_F(ReaderFiles, IncludeResolution) {
  put("P/x/mod/addons/main/macros.hpp", "#define MAIN_OK main\n");
  put("P/x/mod/addons/main/Sub/Part.h", "part = __LINE__;\n#include \"..\\Leaf.h\"\n");
  put("P/x/mod/addons/main/leaf.h", "\nleaf = __LINE__;\n");
  put("P/x/mod/addons/main/DOT.H", "dot = 1;\n");
  put("game/TREE/inner.h", "inner = 1;\n");
  put("game/TREE/config.cpp", "#include \"TREE\\inner.h\"\n");
  std::string main = put("P/x/mod/addons/main/config.cpp",
                         "#include \"\\x\\mod\\addons\\main\\macros.hpp\"\n"
                         "a = MAIN_OK;\n"
                         "#include \"Sub\\Part.h\"\n"
                         "#include <dot.h>\n"
                         "b = __LINE__;\n");
  ReaderFixture f;
  ReadResult r = f.read_file(main, {(root / "nothing").string(), (root / "P").string()});
  EXPECT_EQ(r.status, kReadWhole) << r.place << "\n" << r.messages;
  EXPECT_EQ(r.tokens, "a = main ; part = 1 ; leaf = 2 ; dot = 1 ; b = 5 ;");
  // Two case-blind finds, each warned with both spellings.
  EXPECT_NE(r.messages.find("#include \"..\\Leaf.h\" found as \"" + (root / "P/x/mod/addons/main/leaf.h").string()),
            std::string::npos)
      << r.messages;
  EXPECT_NE(r.messages.find("#include \"dot.h\" found as"), std::string::npos) << r.messages;
  EXPECT_EQ(f.reader.rt_IncludedFiles().size(), 5u);

  // A name written from the game's root, not from the including file.
  ReaderFixture g;
  ReadResult t = g.read_file(root.string() + "/game/TREE/config.cpp", {(root / "game").string()});
  EXPECT_EQ(t.status, kReadWhole) << t.place;
  EXPECT_EQ(t.tokens, "inner = 1 ;");

  // Case-blind finds fail the text when warnings are errors.
  ReaderFixture strict;
  strict.io.io_set_warnings_are_errors(true);
  EXPECT_EQ(strict.read_file(main, {(root / "P").string()}).status, RAP_STATUS + RAPMSG_CANNOT_INCLUDE);
}

TEST_F(ReaderFiles, IncludeFailures) {
  struct F {
    char const* text;
    int status;
    char const* message;
  } const cases[] = {
      {"#include \"missing.h\"\n", RAPMSG_CANNOT_INCLUDE, "cannot find include \"missing.h\""},
      {"#include \"self.cpp\"\n", RAPMSG_CANNOT_INCLUDE, "includes nested deeper than 32"},
      {"#include \"\\..\\..\\etc\\passwd\"\n", RAPMSG_CANNOT_INCLUDE, "no include to backtrack"},
      {"#include \"d:\\x.h\"\n", RAPMSG_DRIVE, ""},
      {"#include missing.h\n", RAPMSG_CANNOT_INCLUDE, ""},
      {"#include \"a.h\" junk\n", RAPMSG_EXTRANEOUS, ""},
  };
  for (F const& c : cases) {
    std::string self = put("self.cpp", c.text);
    ReaderFixture f;
    ReadResult r = f.read_file(self);
    EXPECT_EQ(r.status, RAP_STATUS + c.status) << c.text;
    EXPECT_NE(r.messages.find(c.message), std::string::npos) << c.text << r.messages;
    EXPECT_NE(r.place.find("self.cpp: circa Line 1 "), std::string::npos) << r.place;
    if (c.status == RAPMSG_CANNOT_INCLUDE && c.message[0] == 'c') {
      ASSERT_EQ(f.reader.rt_MissingFiles().size(), 1u);
      EXPECT_EQ(f.reader.rt_MissingFiles()[0], "missing.h");
    }
  }
}

TEST_F(ReaderFiles, AccessIsTheGameFoldersOwn) {
  put("P/a3/data/access.hpp", "access = 1;\n");
  std::string own = put("P/a3/data/config.cpp", "access = 0;\n");
  std::string mod = put("P/mod/config.cpp", "#include \"\\a3\\data\\access.hpp\"\naccess = 2;\n");
  ReaderFixture f;
  EXPECT_EQ(f.read_file(own, {(root / "P").string()}).messages, "");
  ReaderFixture g;
  ReadResult r = g.read_file(mod, {(root / "P").string()});
  EXPECT_EQ(r.status, kReadWhole);
  EXPECT_EQ(r.messages, "warning :In File " + mod + ": circa Line 2 " + rap_message_text(RAPMSG_ACCESS) + "\r\n");
}

// __has_include finds a file by the search #include makes: beside the including file, below the
// include folders, case-blind; a name it cannot find (or a drive letter) is simply false.
TEST_F(ReaderFiles, HasIncludeSearchesAsIncludeDoes) {
  put("P/x/ace/addons/main/script_component.hpp", "");
  put("P/x/mod/addons/main/Beside.hpp", "");
  std::string main = put("P/x/mod/addons/main/config.cpp",
                         "#if __has_include(\"\\x\\ace\\addons\\main\\script_component.hpp\")\nace = 1;\n#endif\n"
                         "#if __has_include(\"beside.hpp\")\nbeside = 1;\n#endif\n"
                         "#if __has_include(\"\\x\\other\\nope.hpp\")\nother = 1;\n#else\nother = 0;\n#endif\n"
                         "#if __has_include(\"d:\\x.hpp\") || __has_include(\"\\..\\..\\up.hpp\")\nodd = 1;\n#endif\n");
  ReaderFixture f;
  ReadResult r = f.read_file(main, {(root / "P").string()});
  EXPECT_EQ(r.status, kReadWhole) << r.place << "\n" << r.messages;
  EXPECT_EQ(r.tokens, "ace = 1 ; beside = 1 ; other = 0 ;");
  EXPECT_EQ(r.messages, "");  // a test is not an include: no warning for the case-blind find
  EXPECT_EQ(f.reader.rt_IncludedFiles().size(), 1u);
  // The ACE file is found only through the include folder.
  ReaderFixture g;
  EXPECT_EQ(g.read_file(main).tokens, "beside = 1 ; other = 0 ;");
}

// A UTF-8 byte-order mark at the top of a text the tool reads is not part of the text; anywhere
// else it is a character like any other, and out of place in config text.
TEST_F(ReaderFiles, ByteOrderMarkAtTheTopOfEachText) {
  std::string const bom = "\xEF\xBB\xBF";
  put("inc.hpp", bom + "inner = 2;\r\n");
  struct Case {
    char const* name;
    std::string text;
    bool in_memory;
    int code;
  } const cases[] = {
      {"config.cpp", bom + "#include \"inc.hpp\"\r\nouter = 1;\r\n", false, 0},
      {"config.cpp", bom + "#include \"inc.hpp\"\r\nouter = 1;\r\n", true, 0},  // as the command line hands it
      {"model.cfg", bom + "class CfgSkeletons { class S { skeletonBones[] = {}; }; };\r\n", false, 0},
      {"m.rvmat", bom + "ambient[] = {1,1,1,1};\r\n", false, 0},
      {"mission.sqm", bom + "version = 12;\r\n", true, 0},
      {"middle.cpp", "outer = 1;\r\n" + bom + "inner = 2;\r\n", false, RAP_STATUS + RAPMSG_EXTRANEOUS},
  };
  for (Case const& c : cases) {
    std::string path = put(c.name, c.text);
    BisDLL dll;
    Sembric* s = dll.dll_GetRap();
    g_msgs.clear();
    int code = c.in_memory ? s->rap_Create(path.c_str(), 0, capture_msg, c.text.data(), static_cast<unsigned>(c.text.size()))
                           : s->rap_Create(path.c_str(), 0, capture_msg);
    EXPECT_EQ(code, c.code) << c.name << "\n" << g_msgs;
    if (code) continue;
    rap_entry* first = s->rap_get_first();
    ASSERT_TRUE(first) << c.name;
    EXPECT_EQ(std::string(first->name()).find('\xEF'), std::string::npos) << c.name;
  }
}

TEST_F(ReaderFiles, LineAndFileFollowTheInclude) {
  put("inc.h", "\n\nin = __LINE__;\nname = __FILE__;\n");
  std::string top = put("top.cpp", "\n#include \"inc.h\"\nout = __LINE__;\n");
  ReaderFixture f;
  ReadResult r = f.read_file(top);
  EXPECT_EQ(r.tokens, "in = 3 ; name = " + (root / "inc.h").string() + " ; out = 3 ;");
}

}  // namespace
