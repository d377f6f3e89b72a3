#include <sys/stat.h>

#include <cstring>
#include <functional>
#include <regex>
#include <string>

#include "io/BisFileIO.h"
#include "io/BisFileIO_test_util.h"
#include "text/GenString.h"

namespace {

std::string written(BisFileIO& io) {
  uint8_t* buf = nullptr;
  long long n = io.io_ReadBackWriteFile(buf);
  std::string s(reinterpret_cast<char*>(buf), n > 0 ? size_t(n) : 0);
  delete[] buf;
  return s;
}

TEST(BisFileIO, WritesMirrorReads) {
  TempFolder dir;
  BisFileIO io;
  ASSERT_EQ(io.io_CreateFile((dir / "out").c_str(), "bin"), 1);
  EXPECT_STREQ(io.io_GetOpenedFileName(true), (dir / "out.bin").c_str());
  EXPECT_EQ(io.io_CreateFile((dir / "second").c_str()), 0);  // one output at a time
  io.io_WriteByte(0x1FF);
  io.io_WriteShort(-2);
  io.io_WriteTriByte(0xAABBCCDD);
  io.io_WriteUlong(0x01020304);
  io.io_WriteLongLong(-3);
  io.io_WriteFloat(2.5f);
  io.io_WriteDouble(-0.5);
  io.io_WriteUlongPair({7, 8});
  XYZTriplet t{1, 2, 3};
  io.io_WriteXYZTriplet(&t, 1);
  io.io_WriteBlock(nullptr, 0, 5);  // nothing to write is no failure
  EXPECT_EQ(io.io_GetOutSize(), 1u + 2 + 3 + 4 + 8 + 4 + 8 + 8 + 12);

  std::string bytes = written(io);
  BisFileIO in;
  in.io_OpenPseudoFile(bytes.data(), bytes.size());
  EXPECT_EQ(in.io_ReadByte(), 0xFF);
  EXPECT_EQ(in.io_ReadShort(), -2);
  EXPECT_EQ(in.io_ReadTriByte(), 0xBBCCDDu);
  EXPECT_EQ(in.io_ReadUlong(), 0x01020304u);
  EXPECT_EQ(in.io_ReadLongLong(), -3);
  EXPECT_EQ(in.io_ReadFloat(), 2.5f);
  EXPECT_EQ(in.io_ReadDouble(), -0.5);
  EXPECT_EQ(in.io_ReadUlong(), 7u);
  EXPECT_EQ(in.io_ReadUlong(), 8u);
  XYZTriplet back;
  in.io_read(&back, "pos");
  EXPECT_EQ(back.z, 3.0f);
  EXPECT_TRUE(in.io_eof());
}

TEST(BisFileIO, WriteFailuresThrowSix) {
  BisFileIO io;
  struct Case {
    char const* what;
    std::function<void()> op;
  } cases[] = {
      {"no output", [&] { io.io_WriteLong(1); }},
      {"no output block", [&] { io.io_WriteBlock("x", 1, 1); }},
      {"null data", [&] { io.io_WriteBlock(nullptr, 1, 1); }},
  };
  TempFolder dir;
  for (auto const& c : cases) {
    if (std::string(c.what) == "null data") io.io_CreateFile((dir / "o").c_str());
    try {
      c.op();
      ADD_FAILURE() << c.what;
    } catch (Generic_Errors e) {
      EXPECT_EQ(e, GE_CANNOT_WRITE) << c.what;
    }
  }
}

TEST(BisFileIO, CreateFileReportsWithoutThrowing) {
  BisFileIO io;
  io.io_SetErrCallBack(capture_err);
  Captured::clear();
  EXPECT_EQ(io.io_CreateFile(""), 0);
  EXPECT_EQ(io.io_CreateFile("/nonexistent-folder/x", "txt"), 0);
  EXPECT_EQ(Captured::join(Captured::errs()), "/nonexistent-folder/x.txt: 'No such file or directory'\r\n");
  EXPECT_FALSE(io.io_WriteActive());
}

TEST(BisFileIO, WriteAsciizModes) {
  struct Case {
    char const* text;
    int mode;
    std::string bytes;
  } cases[] = {
      {nullptr, 0, std::string("\0", 1)},
      {"", 0, std::string("\0", 1)},
      {"ab", 0, std::string("ab\0", 3)},
      {nullptr, 1, ""},
      {"ab", 1, "ab"},
      {"", 2, std::string("\0\0\0\0", 4)},
      {nullptr, 2, std::string("\0\0\0\0", 4)},
      {"ab", 2, std::string("\x02\0\0\0ab", 6)},
  };
  TempFolder dir;
  for (auto const& c : cases) {
    BisFileIO io;
    ASSERT_EQ(io.io_CreateFile((dir / "s").c_str()), 1);
    io.io_WriteAsciiz(c.text, c.mode);
    EXPECT_EQ(written(io), c.bytes) << (c.text ? c.text : "null") << " mode " << c.mode;
  }
}

TEST(BisFileIO, WholeTextFiles) {
  TempFolder dir;
  BisFileIO io;
  struct Case {
    bool wide;
    int encoding;
    std::string bytes;
  } cases[] = {
      {false, 0, "h\xC3\xA9"},
      {false, 1, "\xEF\xBB\xBFh\xC3\xA9"},
      {false, 2, std::string("\xFF\xFEh\0\xE9\0", 6)},
      {true, 2, std::string("\xFF\xFEh\0\xE9\0", 6)},
      {true, 0, "h\xC3\xA9"},
  };
  for (auto const& c : cases) {
    std::string name = dir / "t.txt";
    EXPECT_TRUE(c.wide ? io.io_write_file(name.c_str(), L"h\u00e9", c.encoding)
                       : io.io_write_file(name.c_str(), "h\xC3\xA9", c.encoding));
    EXPECT_EQ(get_file(name), c.bytes) << c.wide << c.encoding;
  }
  testing::internal::CaptureStderr();
  EXPECT_FALSE(io.io_write_file((dir / "bad.txt").c_str(), "\xC3(", 2));  // not UTF-8
  testing::internal::GetCapturedStderr();
  EXPECT_TRUE(io.io_write_file((dir / "raw").c_str(), static_cast<void const*>("a\0b"), uint64_t(3)));
  EXPECT_EQ(get_file(dir / "raw"), std::string("a\0b", 3));
}

// ---- messages -------------------------------------------------------------------

TEST(BisFileIO, MessageIndentAndLineEnds) {
  BisFileIO io;
  io.io_SetStdioCallBack(capture_msg);
  struct Step {
    std::function<void()> op;
    char const* delivered;  // what this step hands to the callback ("" when nothing)
  } steps[] = {
      {[&] { io.io_callback("a\nb\r\nc\n"); }, "a\r\nb\r\nc\r\n"},
      {[&] { io.io_callback("%d%%\n", 5); }, "5%\r\n"},
      {[&] { io.io_set_msg_indent(1, "Head\n"); }, "Head\r\n"},
      {[&] { io.io_callback("one\n"); }, "    one\r\n"},
      {[&] { io.io_set_msg_indent(1, nullptr); }, ""},
      {[&] { io.io_callback("part"); }, "        part"},
      {[&] { io.io_callback(" rest\n"); }, " rest\r\n"},  // continues the line: no indent
      {[&] { io.io_callback("x\ny"); }, "        x\r\ny"},
      {[&] { io.io_callback("%s", ""); }, ""},            // an empty message changes nothing
      {[&] { io.io_callback("z\n"); }, "z\r\n"},
      {[&] { io.io_set_msg_indent(-1, "back\n"); }, "    back\r\n"},
      {[&] { io.io_set_msg_indent(0, "ignored"); }, ""},
      {[&] { io.io_callback("flat\n"); }, "flat\r\n"},
  };
  for (size_t i = 0; i < std::size(steps); ++i) {
    Captured::clear();
    steps[i].op();
    EXPECT_EQ(Captured::join(Captured::msgs()), steps[i].delivered) << "step " << i;
  }
  EXPECT_EQ(io.io_get_msg_indent(), 0);
  io.io_set_msg_indent(-1, nullptr);
  io.io_set_msg_indent(1, nullptr);
  EXPECT_EQ(io.io_get_msg_indent(), 0);  // unbalanced pairs are not clamped away
}

TEST(BisFileIO, MessagesAreCutAtFormatLengthPlus1024) {
  BisFileIO io;
  io.io_SetStdioCallBack(capture_msg);
  Captured::clear();
  std::string long_text(3000, 'q');
  io.io_callback("<%s>", long_text.c_str());
  ASSERT_EQ(Captured::msgs().size(), 1u);
  EXPECT_EQ(Captured::msgs()[0].size(), 4u + 1024 - 1);
}

TEST(BisFileIO, CallbackWiringAndThrow) {
  BisFileIO io;
  io.io_SetStdioCallBack(capture_msg);  // the default error callback follows
  Captured::clear();
  io.io_throw(0, "only %s\n", "reported");
  EXPECT_EQ(Captured::join(Captured::msgs()), "only reported\r\n");
  io.io_SetErrCallBack(capture_err);
  io.io_SetStdioCallBack(capture_msg);  // a caller's error callback stays
  Captured::clear();
  try {
    io.io_throw(3, "bad %d", 1);
    ADD_FAILURE();
  } catch (Generic_Errors e) {
    EXPECT_EQ(e, GE_INVALID_FILE);
  }
  EXPECT_EQ(Captured::join(Captured::errs()), "bad 1");
  EXPECT_TRUE(Captured::msgs().empty());
}

// ---- banner ---------------------------------------------------------------------

TEST(BisFileIO, BannerLayout) {
  std::string const slashes(68, '/');
  std::string const head = slashes + "\r\n//Title here\r\n//Produced from ostrel's Tools Dll version 6.54\r\n";
  struct Case {
    time_t file_time;
    char const* dated_line;  // regex of the 'now' line, or null when there is none
  } cases[] = {
      {-1, nullptr},
      {86400 * 365, "//'now' is \\w{3} \\w{3} \\d\\d \\d\\d:\\d\\d:\\d\\d \\d{4} : 'file' last modified on "
                    "\\w{3} \\w{3} \\d\\d \\d\\d:\\d\\d:\\d\\d 197[01]\r\n"},
      {time_t(253402300800LL), "//'now' is .{24} : 'file' last modified on file date error\r\n"},  // year 10000
  };
  for (auto const& c : cases) {
    GenString text("stale");
    BisFileIO::io_Banner(text, "Title here", c.file_time);
    std::string s = text.c_str();
    ASSERT_EQ(s.compare(0, head.size(), head), 0) << s;
    std::string rest = s.substr(head.size());
    size_t eol = rest.find("\r\n");
    if (c.dated_line) {
      EXPECT_TRUE(std::regex_match(rest.substr(0, eol + 2), std::regex(c.dated_line))) << rest;
      rest = rest.substr(eol + 2);
    }
    EXPECT_EQ(rest.substr(0, 2), "//");
    EXPECT_NE(rest.find("://"), std::string::npos) << "download address";
    EXPECT_EQ(rest.substr(rest.find("\r\n") + 2), slashes + "\r\n\r\n");
  }
}

// ---- comparison -----------------------------------------------------------------

TEST(BisFileIO, FileCompareReports) {
  struct Case {
    std::string a, b;
    int data;
    int result;
    std::string errors, printed;
  } cases[] = {
      {"abcdef", "abcdef", 1, 1, "", ""},
      {"abcdef", "abcxef", 0, 1, "", ""},  // sizes only
      {"abcdef", "abcXeY", 1, 0,
       "\r\nFile data not same\r\noffset 3 (0x3)\r\n64 65 66 \r\n58 65 59 \r\n", ""},
      {"abcdefgh", "abc", 1, 0, "\r\nFile sizes not same. Original is larger by 5 bytes\r\n\r\n", ""},
      {"ab", "aXcd", 1, 0, "\r\nFile sizes not same. Original is smaller by 2 bytes\r\n\r\n",
       "Orig size  0002\nNew  size  0004\nMismatch@  0001\n\n62 \n58 63 64 \n"},
      {"", "", 1, 1, "", ""},
  };
  TempFolder dir;
  for (int huge = 0; huge < 2; ++huge)
    for (auto const& c : cases) {
      put_file(dir / "a", c.a);
      put_file(dir / "b", c.b);
      BisFileIO a, b;
      a.io_SetErrCallBack(capture_err);
      a.io_OpenFile((dir / "a").c_str(), nullptr, huge ? 2 : 0);
      b.io_OpenFile((dir / "b").c_str(), nullptr, huge ? 2 : 0);
      a.io_MoveTo(c.a.size() / 2);
      Captured::clear();
      testing::internal::CaptureStdout();
      EXPECT_EQ(a.io_FileCompare(b, c.data), c.result) << c.a << " / " << c.b;
      EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed) << c.a << " / " << c.b;
      EXPECT_EQ(Captured::join(Captured::errs()), c.errors) << c.a << " / " << c.b;
      if (!c.errors.empty() && c.a.size() == c.b.size()) {
        EXPECT_EQ(a.io_GetCurrentOffset(), 0u);  // rewound
      }
    }
}

// ---- folders, renaming, shell -------------------------------------------------------

bool is_dir(std::string const& p) { return std::filesystem::is_directory(p); }
bool is_file(std::string const& p) { return std::filesystem::is_regular_file(p); }

TEST(BisFileIO, CreateFolders) {
  TempFolder dir;
  put_file(dir / "plain", "x");
  std::string win = dir.path();
  for (char& ch : win)
    if (ch == '/') ch = '\\';
  struct Case {
    std::string path;
    int result;
    std::vector<std::string> folders, absent;
  } cases[] = {
      {win + "\\a\\b\\file.txt", 1, {dir / "a", dir / "a/b"}, {dir / "a/b/file.txt"}},
      {win + "\\c\\d", 1, {dir / "c"}, {dir / "c/d"}},  // the last component needs a separator
      {win + "\\c\\d\\", 1, {dir / "c/d"}, {}},
      {"c:" + win + "\\e\\", 1, {dir / "e"}, {}},  // the drive is dropped
      {dir.path(), 1, {}, {}},
      {"", 0, {}, {}},
      {"c:", 0, {}, {}},
  };
  BisFileIO io;
  for (auto const& c : cases) {
    EXPECT_EQ(io.io_CreateFolders(c.path.c_str()), c.result) << c.path;
    for (auto const& f : c.folders) EXPECT_TRUE(is_dir(f)) << f;
    for (auto const& f : c.absent) EXPECT_FALSE(std::filesystem::exists(f)) << f;
  }
  io.io_SetErrCallBack(capture_err);
  Captured::clear();
  std::string blocked = dir / "plain/sub/";
  EXPECT_EQ(io.io_CreateFolders(blocked.c_str()), 0);
  EXPECT_EQ(Captured::join(Captured::errs()), "File exists\r\n" + blocked + "\r\n");  // "plain" is a file
}

TEST(BisFileIO, FolderCommands) {
  TempFolder dir;
  BisFileIO io;
  io.io_SetErrCallBack(capture_err);
  EXPECT_EQ(io.io_mkdir((dir / "m\\n\\o").c_str()), 1);
  EXPECT_TRUE(is_dir(dir / "m/n/o"));
  EXPECT_EQ(io.io_mkdir((dir / "m").c_str()), 1);
  put_file(dir / "file", "keep");
  Captured::clear();
  EXPECT_EQ(io.io_mkdir((dir / "file/x").c_str()), 0);
  EXPECT_EQ(Captured::join(Captured::errs()), "mkdir::cannot make folder(s) \"" + (dir / "file/x") + "\"\r\n");

  EXPECT_EQ(io.io_rmdir((dir / "none").c_str()), 1);
  EXPECT_EQ(io.io_rmdir((dir / "file").c_str()), 1);  // not a folder: left alone
  EXPECT_TRUE(is_file(dir / "file"));
  put_file(dir / "target/inside", "safe");
  std::filesystem::create_directory_symlink(dir / "target", dir / "link");
  EXPECT_EQ(io.io_rmdir((dir / "link\\").c_str()), 1);  // the link goes, not what it points at
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(dir / "link")));
  EXPECT_EQ(get_file(dir / "target/inside"), "safe");
  EXPECT_EQ(io.io_rmdir((dir / "m").c_str()), 1);
  EXPECT_FALSE(std::filesystem::exists(dir / "m"));

  put_file(dir / "src/a.txt", "A");
  put_file(dir / "src/sub/b.txt", "B");
  std::filesystem::create_directories(dir / "src/empty");
  put_file(dir / "dst/old.txt", "old");
  EXPECT_EQ(io.io_copy_folder((dir / "src").c_str(), (dir / "dst").c_str()), 1);
  EXPECT_EQ(get_file(dir / "dst/a.txt"), "A");
  EXPECT_EQ(get_file(dir / "dst/sub/b.txt"), "B");
  EXPECT_FALSE(std::filesystem::exists(dir / "dst/old.txt"));
  EXPECT_FALSE(std::filesystem::exists(dir / "dst/empty"));  // like a copy of files with their folders
  EXPECT_EQ(io.io_copy_folder((dir / "src").c_str(), (dir / "src/sub/deeper").c_str()), 0);
  EXPECT_EQ(io.io_copy_folder((dir / "src/sub").c_str(), (dir / "src").c_str()), 0);
  EXPECT_EQ(io.io_copy_folder((dir / "nothing").c_str(), (dir / "dst").c_str()), 0);
  EXPECT_EQ(get_file(dir / "src/sub/b.txt"), "B");
  EXPECT_TRUE(is_dir(dir / "dst/sub"));
}

TEST(BisFileIO, RenameRules) {
  TempFolder dir;
  std::string win = dir.path();
  for (char& ch : win)
    if (ch == '/') ch = '\\';
  struct Case {
    std::string from, to;
    int result;
    std::string gone, now;  // files that must have gone / now hold the content "data"
  } cases[] = {
      {win + "\\f\\a.txt", "b.txt", 1, dir / "f/a.txt", dir / "f/b.txt"},  // stays in its folder
      {dir / "f/b.txt", dir / "f/b.txt", 0, "", dir / "f/b.txt"},
      {dir / "f/b.txt", dir / "f/B.TXT", 1, dir / "f/b.txt", dir / "f/B.TXT"},  // case only
      {dir / "f/B.TXT", dir / "f/old.txt", 1, dir / "f/B.TXT", dir / "f/old.txt"},  // replaces
      {"", "x", -1, "", ""},
      {"x", "", -1, "", ""},
  };
  put_file(dir / "f/a.txt", "data");
  put_file(dir / "f/old.txt", "old");
  BisFileIO io;
  for (auto const& c : cases) {
    EXPECT_EQ(io.io_Rename(c.from.c_str(), c.to.c_str()), c.result) << c.from << " -> " << c.to;
    if (!c.gone.empty()) {
      EXPECT_FALSE(std::filesystem::exists(c.gone)) << c.gone;
    }
    if (!c.now.empty()) {
      EXPECT_EQ(get_file(c.now), "data") << c.now;
    }
  }
  io.io_SetErrCallBack(capture_err);
  Captured::clear();
  EXPECT_EQ(io.io_Rename((dir / "nope").c_str(), "n2"), -1);
  EXPECT_EQ(Captured::join(Captured::errs()), "Rename failed with No such file or directory\r\nFrom='" +
                                                  (dir / "nope") + "' To= '" + (dir / "n2") + "'\r\n");
}

std::vector<std::string>& shell_lines() {
  static std::vector<std::string> v;
  return v;
}
int record_shell(char const* line) {
  shell_lines().push_back(line);
  return 4;
}

TEST(BisFileIO, ShellCommandLines) {
  BisFileIO io;
  auto previous = BisFileIO::io_SetShellRunner(record_shell);
  struct Case {
    std::function<int()> run;
    char const* line;
  } cases[] = {
      {[&] { return io.io_system("tool -x %d", 5); }, "\"tool -x 5\""},
      {[&] { return io.io_system(1, "L", "cmd %s", "a"); }, "\"cmd a 1>> L\""},
      {[&] { return io.io_system(2, "L", "cmd"); }, "\"cmd 2>> L\""},
      {[&] { return io.io_system(3, "L", "cmd"); }, "\"cmd 1>> L 2>&1\""},
      {[&] { return io.io_system(3, "", "cmd"); }, "\"cmd\""},
      {[&] { return io.io_sys_both("log.txt", "\"%s\" -v", "my tool"); }, "\"\"my tool\" -v 1>> log.txt 2>&1\""},
      {[&] { return io.io_system_quotes(L"w\u00e9"); }, "\"w\xC3\xA9\""},
  };
  for (auto const& c : cases) {
    shell_lines().clear();
    EXPECT_EQ(c.run(), 4);
    ASSERT_EQ(shell_lines().size(), 1u);
    EXPECT_EQ(shell_lines()[0], c.line);
  }
  BisFileIO::io_SetShellRunner(previous);
  EXPECT_EQ(io.io_system("exit 0"), 0);  // the default runner really runs the command
  EXPECT_NE(io.io_system("exit 3"), 0);
}

TEST(BisFileIO, SmallHelpers) {
  BisFileIO io;
  EXPECT_STREQ(io.io_MakeFilename("dir\\model.p3d", "txt"), "dir\\model.txt");
  for (int i = 0; i < 50; ++i) {
    int r = BisFileIO::io_random(-3, 4);
    EXPECT_TRUE(r >= -3 && r < 4) << r;
  }
  EXPECT_EQ(BisFileIO::io_random(9, 9), 9);
  io.io_set_trailing_spaces(2);
  io.io_set_trailing_spaces(3);
  EXPECT_EQ(io.io_has_trailing_spaces(), 5);
  io.io_set_trailing_spaces(0);
  EXPECT_EQ(io.io_has_trailing_spaces(), 0);
}

}  // namespace
