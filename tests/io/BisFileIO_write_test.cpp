#include <cstring>
#include <regex>
#include <string>
#include <vector>

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

std::string windows_style(std::string s) {
  for (char& ch : s)
    if (ch == '/') ch = '\\';
  return s;
}

TEST(BisFileIO, WritesMirrorReads) {
  TempFolder dir;
  BisFileIO io;
  EXPECT_EQ(code_of([&] { io.io_WriteLong(1); }), GE_CANNOT_WRITE);  // no output yet
  ASSERT_EQ(io.io_CreateFile((dir / "out").c_str(), "bin"), 1);
  EXPECT_STREQ(io.io_GetOpenedFileName(true), (dir / "out.bin").c_str());
  EXPECT_EQ(io.io_CreateFile((dir / "second").c_str()), 0);  // one output at a time
  io.io_WriteByte(0x1FF);
  io.io_WriteShort(-2);
  io.io_WriteTriByte(0xAABBCCDD);
  io.io_WriteLongLong(-3);
  io.io_WriteFloat(2.5f);
  io.io_WriteUlongPair({7, 8});
  io.io_WriteBlock(nullptr, 0, 5);  // nothing to write is no failure
  EXPECT_EQ(code_of([&] { io.io_WriteBlock(nullptr, 1, 1); }), GE_CANNOT_WRITE);
  EXPECT_EQ(written(io), std::string("\xFF\xFE\xFF\xDD\xCC\xBB\xFD\xFF\xFF\xFF\xFF\xFF\xFF\xFF\0\0\x20\x40"
                                     "\x07\0\0\0\x08\0\0\0", 26));

  BisFileIO bad;
  bad.io_SetErrCallBack(capture_err);
  clear_captured();
  EXPECT_EQ(bad.io_CreateFile(""), 0);
  EXPECT_EQ(bad.io_CreateFile("/nonexistent-folder/x", "txt"), 0);  // reported, not thrown
  EXPECT_EQ(g_errs, "/nonexistent-folder/x.txt: 'No such file or directory'\r\n");
}

TEST(BisFileIO, WriteAsciizModes) {
  struct Case {
    char const* text;
    int mode;
    std::string bytes;
  } cases[] = {
      {nullptr, 0, std::string("\0", 1)}, {"ab", 0, std::string("ab\0", 3)},
      {nullptr, 1, ""},                   {"ab", 1, "ab"},
      {"", 2, std::string(4, '\0')},      {nullptr, 2, std::string(4, '\0')},
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
  std::string const name = dir / "t.txt";
  EXPECT_TRUE(io.io_write_file(name.c_str(), "h\xC3\xA9", 1));
  EXPECT_EQ(get_file(name), "\xEF\xBB\xBFh\xC3\xA9");
  EXPECT_TRUE(io.io_write_file(name.c_str(), L"h\u00e9\U0001F600", 2));  // UTF-16 units, pairs beyond the BMP
  EXPECT_EQ(get_file(name), std::string("\xFF\xFEh\0\xE9\0\x3D\xD8\x00\xDE", 10));
}

TEST(BisFileIO, MessageIndentAndLineEnds) {
  BisFileIO io;
  io.io_SetStdioCallBack(capture_msg);
  struct Step {
    std::function<void()> op;
    char const* delivered;
  } steps[] = {
      {[&] { io.io_callback("a\nb\r\nc\n"); }, "a\r\nb\r\nc\r\n"},
      {[&] { io.io_callback("%d%%\n", 5); }, "5%\r\n"},  // the text reaches the caller unformatted again
      {[&] { io.io_set_msg_indent(1, "Head\n"); }, "Head\r\n"},
      {[&] { io.io_callback("one\n"); }, "    one\r\n"},
      {[&] { io.io_set_msg_indent(1, nullptr); }, ""},
      {[&] { io.io_callback("part"); }, "        part"},
      {[&] { io.io_callback(" rest\n"); }, " rest\r\n"},  // continues the line: no indent
      {[&] { io.io_callback("x\ny"); }, "        x\r\ny"},
      {[&] { io.io_callback("%s", ""); }, ""},           // an empty message changes nothing
      {[&] { io.io_callback("z\n"); }, "z\r\n"},
      {[&] { io.io_set_msg_indent(-1, "back\n"); }, "    back\r\n"},
      {[&] { io.io_set_msg_indent(0, "ignored"); }, ""},
      {[&] { io.io_callback("flat\n"); }, "flat\r\n"},
      {[&] { io.io_callback("<%s>", std::string(3000, 'q').c_str()); }, nullptr},
  };
  for (size_t i = 0; i < std::size(steps); ++i) {
    clear_captured();
    steps[i].op();
    EXPECT_TRUE(!steps[i].delivered || g_msgs == steps[i].delivered) << "step " << i << ": " << g_msgs;
  }
  EXPECT_EQ(g_msgs.size(), 4u + 1024 - 1);  // cut at the format's length plus 1024
  io.io_set_msg_indent(-1, nullptr);
  io.io_set_msg_indent(1, nullptr);
  EXPECT_EQ(io.io_get_msg_indent(), 0);  // unbalanced pairs are not clamped away

  clear_captured();
  io.io_throw(0, "only %s\n", "reported");  // the default error callback followed the message one
  EXPECT_EQ(g_msgs, "only reported\r\n");
  io.io_SetErrCallBack(capture_err);
  io.io_SetStdioCallBack(capture_msg);  // a caller's error callback stays
  clear_captured();
  EXPECT_EQ(code_of([&] { io.io_throw(3, "bad %d", 1); }), GE_INVALID_FILE);
  EXPECT_EQ(g_errs + "|" + g_msgs, "bad 1|");
}

TEST(BisFileIO, BannerLayout) {
  std::string const slashes(68, '/');
  std::string const head = slashes + "\r\n//Title here\r\n//Produced from ostrel's Tools Dll version 6.54\r\n";
  std::string const date = "\\w{3} \\w{3} \\d\\d \\d\\d:\\d\\d:\\d\\d \\d{4}";
  std::pair<time_t, std::string> cases[] = {
      {-1, ""},
      {86400 * 365, "//'now' is " + date + " : 'file' last modified on " + date + "\r\n"},
      {time_t(253402300800LL), "//'now' is " + date + " : 'file' last modified on file date error\r\n"},  // year 10000
  };
  for (auto const& [file_time, dated] : cases) {
    GenString text("stale");
    BisFileIO::io_Banner(text, "Title here", file_time);
    std::string s = text.c_str();
    ASSERT_EQ(s.compare(0, head.size(), head), 0) << s;
    std::string rest = s.substr(head.size());
    if (!dated.empty()) {
      size_t eol = rest.find("\r\n") + 2;
      EXPECT_TRUE(std::regex_match(rest.substr(0, eol), std::regex(dated))) << rest;
      rest = rest.substr(eol);
    }
    EXPECT_TRUE(std::regex_match(rest, std::regex("//https?://\\S+\r\n" + slashes + "\r\n\r\n"))) << rest;
  }
}

TEST(BisFileIO, FileCompareReports) {
  struct Case {
    std::string a, b;
    int data, result;
    std::string errors, printed;
  } cases[] = {
      {"abcdef", "abcdef", 1, 1, "", ""},
      {"abcdef", "abcxef", 0, 1, "", ""},  // sizes only
      {"abcdef", "abcXeY", 1, 0, "\r\nFile data not same\r\noffset 3 (0x3)\r\n64 65 66 \r\n58 65 59 \r\n", ""},
      {"abcdefgh", "abc", 1, 0, "\r\nFile sizes not same. Original is larger by 5 bytes\r\n\r\n", ""},
      {"ab", "aXcd", 1, 0, "\r\nFile sizes not same. Original is smaller by 2 bytes\r\n\r\n",
       "Orig size  0002\nNew  size  0004\nMismatch@  0001\n\n62 \n58 63 64 \n"},
      {"", "", 1, 1, "", ""},
  };
  TempFolder dir;
  for (int huge = 0; huge < 2; ++huge) {
    for (auto const& c : cases) {
      put_file(dir / "a", c.a);
      put_file(dir / "b", c.b);
      BisFileIO a, b;
      a.io_SetErrCallBack(capture_err);
      a.io_OpenFile((dir / "a").c_str(), nullptr, huge ? 2 : 0);
      b.io_OpenFile((dir / "b").c_str(), nullptr, huge ? 2 : 0);
      a.io_MoveTo(c.a.size() / 2);
      clear_captured();
      testing::internal::CaptureStdout();
      EXPECT_EQ(a.io_FileCompare(b, c.data), c.result) << c.a << " / " << c.b;
      EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed) << c.a << " / " << c.b;
      EXPECT_EQ(g_errs, c.errors) << c.a << " / " << c.b;
    }
  }
}

TEST(BisFileIO, CreateFolders) {
  TempFolder dir;
  put_file(dir / "plain", "x");
  std::string win = windows_style(dir.path);
  struct Case {
    std::string path;
    int result;
    std::vector<std::string> folders, absent;
  } cases[] = {
      {win + "\\a\\b\\file.txt", 1, {dir / "a/b"}, {dir / "a/b/file.txt"}},
      {win + "\\c\\d", 1, {dir / "c"}, {dir / "c/d"}},  // the last component needs a separator
      {win + "\\c\\d\\", 1, {dir / "c/d"}, {}},
      {"c:" + win + "\\e\\", 1, {dir / "e"}, {}},  // the drive is dropped
      {dir.path, 1, {}, {}},
      {"", 0, {}, {}},
      {"c:", 0, {}, {}},
  };
  BisFileIO io;
  for (auto const& c : cases) {
    EXPECT_EQ(io.io_CreateFolders(c.path.c_str()), c.result) << c.path;
    for (auto const& f : c.folders) EXPECT_TRUE(std::filesystem::is_directory(f)) << f;
    for (auto const& f : c.absent) EXPECT_FALSE(std::filesystem::exists(f)) << f;
  }
  io.io_SetErrCallBack(capture_err);
  clear_captured();
  std::string blocked = dir / "plain/sub/";
  EXPECT_EQ(io.io_CreateFolders(blocked.c_str()), 0);
  EXPECT_EQ(g_errs, "File exists\r\n" + blocked + "\r\n");  // "plain" is a file
}

TEST(BisFileIO, FolderCommands) {
  TempFolder dir;
  BisFileIO io;
  io.io_SetErrCallBack(capture_err);
  EXPECT_EQ(io.io_mkdir((dir / "m\\n\\o").c_str()), 1);
  EXPECT_TRUE(std::filesystem::is_directory(dir / "m/n/o"));
  put_file(dir / "file", "keep");
  clear_captured();
  EXPECT_EQ(io.io_mkdir((dir / "file/x").c_str()), 0);
  EXPECT_EQ(g_errs, "mkdir::cannot make folder(s) \"" + (dir / "file/x") + "\"\r\n");

  EXPECT_EQ(io.io_rmdir((dir / "none").c_str()), 1);
  EXPECT_EQ(io.io_rmdir((dir / "file").c_str()), 1);  // not a folder: left alone
  EXPECT_EQ(get_file(dir / "file"), "keep");
  put_file(dir / "target/inside", "safe");
  std::filesystem::create_directory_symlink(dir / "target", dir / "link");
  EXPECT_EQ(io.io_rmdir((dir / "link\\").c_str()), 1);  // the link goes, not what it points at
  EXPECT_FALSE(std::filesystem::is_symlink(dir / "link"));
  EXPECT_EQ(get_file(dir / "target/inside"), "safe");
  EXPECT_EQ(io.io_rmdir((dir / "m").c_str()), 1);
  EXPECT_FALSE(std::filesystem::exists(dir / "m"));

  put_file(dir / "src/sub/b.txt", "B");
  std::filesystem::create_directories(dir / "src/empty");
  put_file(dir / "dst/old.txt", "old");
  EXPECT_EQ(io.io_copy_folder((dir / "src").c_str(), (dir / "dst").c_str()), 1);
  EXPECT_EQ(get_file(dir / "dst/sub/b.txt"), "B");
  EXPECT_FALSE(std::filesystem::exists(dir / "dst/old.txt"));
  EXPECT_FALSE(std::filesystem::exists(dir / "dst/empty"));  // files with their folders, as xcopy /s
  EXPECT_EQ(io.io_copy_folder((dir / "src").c_str(), (dir / "src/sub/deeper").c_str()), 0);
  EXPECT_EQ(io.io_copy_folder((dir / "src/sub").c_str(), (dir / "src").c_str()), 0);
  EXPECT_EQ(get_file(dir / "src/sub/b.txt"), "B");
}

TEST(BisFileIO, RenameRules) {
  TempFolder dir;
  struct Case {
    std::string from, to;
    int result;
    std::string gone, now;  // the name that must have gone, the name now holding "data"
  } cases[] = {
      {windows_style(dir / "f/a.txt"), "b.txt", 1, dir / "f/a.txt", dir / "f/b.txt"},  // stays in its folder
      {dir / "f/b.txt", dir / "f/b.txt", 0, "", dir / "f/b.txt"},
      {dir / "f/b.txt", dir / "f/B.TXT", 1, dir / "f/b.txt", dir / "f/B.TXT"},      // case only
      {dir / "f/B.TXT", dir / "f/old.txt", 1, dir / "f/B.TXT", dir / "f/old.txt"},  // replaces
      {"", "x", -1, "", ""},
      {"x", "", -1, "", ""},
  };
  put_file(dir / "f/a.txt", "data");
  put_file(dir / "f/old.txt", "old");
  BisFileIO io;
  for (auto const& c : cases) {
    EXPECT_EQ(io.io_Rename(c.from.c_str(), c.to.c_str()), c.result) << c.from << " -> " << c.to;
    EXPECT_TRUE(c.gone.empty() || !std::filesystem::exists(c.gone)) << c.gone;
    EXPECT_TRUE(c.now.empty() || get_file(c.now) == "data") << c.now;
  }
  io.io_SetErrCallBack(capture_err);
  clear_captured();
  EXPECT_EQ(io.io_Rename((dir / "nope").c_str(), "n2"), -1);
  EXPECT_EQ(g_errs, "Rename failed with No such file or directory\r\nFrom='" + (dir / "nope") + "' To= '" +
                        (dir / "n2") + "'\r\n");
}

std::vector<std::string> g_lines;
int record_shell(char const* line) {
  g_lines.push_back(line);
  return 4;
}

TEST(BisFileIO, ShellCommandLines) {
  BisFileIO io;
  auto previous = BisFileIO::io_SetShellRunner(record_shell);
  std::pair<std::function<int()>, char const*> cases[] = {
      {[&] { return io.io_system("tool -x %d", 5); }, "\"tool -x 5\""},
      {[&] { return io.io_system(1, "L", "cmd %s", "a"); }, "\"cmd a 1>> L\""},
      {[&] { return io.io_system(2, "L", "cmd"); }, "\"cmd 2>> L\""},
      {[&] { return io.io_system(3, "L", "cmd"); }, "\"cmd 1>> L 2>&1\""},
      {[&] { return io.io_system(3, "", "cmd"); }, "\"cmd\""},
      {[&] { return io.io_sys_both("log.txt", "\"%s\" -v", "my tool"); }, "\"\"my tool\" -v 1>> log.txt 2>&1\""},
      {[&] { return io.io_system_quotes(L"w\u00e9"); }, "\"w\xC3\xA9\""},
  };
  for (auto const& [run, line] : cases) {
    g_lines.clear();
    EXPECT_EQ(run(), 4);
    EXPECT_EQ(g_lines, std::vector<std::string>{line});
  }
  BisFileIO::io_SetShellRunner(previous);
  EXPECT_EQ(io.io_system("exit 0"), 0);  // the default runner really runs the command
  EXPECT_NE(io.io_system("exit 3"), 0);
}

}  // namespace
