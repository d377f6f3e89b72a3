#include <cstring>
#include <regex>
#include <string>
#include <tuple>
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
  for (char& ch : s) ch = ch == '/' ? '\\' : ch;
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
  for (int mode : {0, 1, 2}) io.io_WriteAsciiz(nullptr, mode), io.io_WriteAsciiz("ab", mode);  // 0-ended, bare, counted
  EXPECT_EQ(written(io), std::string("\xFF\xFE\xFF\xDD\xCC\xBB\xFD\xFF\xFF\xFF\xFF\xFF\xFF\xFF\0\0\x20\x40"
                                     "\x07\0\0\0\x08\0\0\0" "\0ab\0" "ab" "\0\0\0\0\x02\0\0\0ab", 26 + 4 + 2 + 10));

  BisFileIO bad;
  bad.io_SetErrCallBack(capture_err);
  clear_captured();
  EXPECT_EQ(bad.io_CreateFile(""), 0);
  EXPECT_EQ(bad.io_CreateFile("/nonexistent-folder/x", "txt"), 0);  // reported, not thrown
  EXPECT_EQ(g_errs, "/nonexistent-folder/x.txt: 'No such file or directory'\r\n");
  // Whole text files: UTF-8 with its mark, or UTF-16 units with pairs beyond the BMP.
  EXPECT_TRUE(io.io_write_file((dir / "t.txt").c_str(), "h\xC3\xA9", 1));
  EXPECT_EQ(get_file(dir / "t.txt"), "\xEF\xBB\xBFh\xC3\xA9");
  EXPECT_TRUE(io.io_write_file((dir / "t.txt").c_str(), L"h\u00e9\U0001F600", 2));
  EXPECT_EQ(get_file(dir / "t.txt"), std::string("\xFF\xFEh\0\xE9\0\x3D\xD8\x00\xDE", 10));
}

TEST(BisFileIO, MessageIndentAndLineEnds) {
  BisFileIO io;
  io.io_SetStdioCallBack(capture_msg);
  std::pair<std::function<void()>, char const*> steps[] = {
      {[&] { io.io_callback("a\nb\r\n%d%%\n", 5); }, "a\r\nb\r\n5%\r\n"},  // reaches the caller unformatted again
      {[&] { io.io_set_msg_indent(2, "Head\n"); }, "Head\r\n"},
      {[&] { io.io_callback("part"); }, "        part"},
      {[&] { io.io_callback(" rest\n"); }, " rest\r\n"},  // continues the line: no indent
      {[&] { io.io_callback("x\ny"); }, "        x\r\ny"},
      {[&] { io.io_callback("%s", ""); }, ""},  // an empty message changes nothing
      {[&] { io.io_callback("z\n"); }, "z\r\n"},
      {[&] { io.io_set_msg_indent(-1, "back\n"); }, "    back\r\n"},
      {[&] { io.io_set_msg_indent(0, "ignored"); }, ""},
      {[&] { io.io_callback("flat\n"); }, "flat\r\n"},
      {[&] { io.io_callback("<%s>", std::string(3000, 'q').c_str()); }, nullptr},
  };
  for (size_t i = 0; i < std::size(steps); ++i) {
    clear_captured();
    steps[i].first();
    EXPECT_TRUE(!steps[i].second || g_msgs == steps[i].second) << "step " << i << ": " << g_msgs;
  }
  EXPECT_EQ(g_msgs.size(), 4u + 1024 - 1);  // cut at the format's length plus 1024
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
    size_t eol = dated.empty() ? 0 : rest.find("\r\n") + 2;
    EXPECT_TRUE(std::regex_match(rest.substr(0, eol), std::regex(dated))) << rest;
    EXPECT_TRUE(std::regex_match(rest.substr(eol), std::regex("//https?://\\S+\r\n" + slashes + "\r\n\r\n"))) << rest;
  }
}

TEST(BisFileIO, FileCompareReports) {
  struct { std::string a, b; int data, result; std::string errors, printed; } cases[] = {
      {"abcdef", "abcdef", 1, 1, "", ""},
      {"abcdef", "abcxef", 0, 1, "", ""},  // sizes only
      {"abcdef", "abcXeY", 1, 0, "\r\nFile data not same\r\noffset 3 (0x3)\r\n64 65 66 \r\n58 65 59 \r\n", ""},
      {"abcdefgh", "abc", 1, 0, "\r\nFile sizes not same. Original is larger by 5 bytes\r\n\r\n", ""},
      {"ab", "aXcd", 1, 0, "\r\nFile sizes not same. Original is smaller by 2 bytes\r\n\r\n",
       "Orig size  0002\nNew  size  0004\nMismatch@  0001\n\n62 \n58 63 64 \n"},
      {"", "", 1, 1, "", ""},
  };
  TempFolder dir;
  for (int huge : {0, 2}) {
    for (auto const& c : cases) {
      put_file(dir / "a", c.a);
      put_file(dir / "b", c.b);
      BisFileIO a, b;
      a.io_SetErrCallBack(capture_err);
      a.io_OpenFile((dir / "a").c_str(), nullptr, huge);
      b.io_OpenFile((dir / "b").c_str(), nullptr, huge);
      a.io_MoveTo(c.a.size() / 2);
      clear_captured();
      testing::internal::CaptureStdout();
      EXPECT_EQ(a.io_FileCompare(b, c.data), c.result) << c.a << " / " << c.b;
      EXPECT_EQ(testing::internal::GetCapturedStdout() + "|" + g_errs, c.printed + "|" + c.errors) << c.a << "/" << c.b;
    }
  }
}

TEST(BisFileIO, FolderCommands) {
  TempFolder dir;
  put_file(dir / "plain", "keep");
  std::string win = windows_style(dir.path);
  std::tuple<std::string, char const*, char const*> cases[] = {  // what to make, the folder made, what stays absent
      {win + "\\a\\b\\file.txt", "a/b", "a/b/file.txt"},
      {win + "\\c\\d", "c", "c/d"},  // the last component needs a separator
      {"c:" + win + "\\e\\", "e", "e/x"},  // the drive is dropped
      {"", "", "e/x"},   {"c:", "", "e/x"},
  };
  BisFileIO io;
  for (auto const& [path, made, absent] : cases) {
    EXPECT_EQ(io.io_CreateFolders(path.c_str()), *made ? 1 : 0) << path;
    EXPECT_TRUE(std::filesystem::is_directory(dir / made)) << path;
    EXPECT_FALSE(std::filesystem::exists(dir / absent)) << path;
  }
  io.io_SetErrCallBack(capture_err);
  clear_captured();
  EXPECT_EQ(io.io_CreateFolders((dir / "plain/sub/").c_str()), 0);
  EXPECT_EQ(io.io_mkdir((dir / "plain/x").c_str()), 0);
  EXPECT_EQ(g_errs, "File exists\r\n" + (dir / "plain/sub/") + "\r\n" + "mkdir::cannot make folder(s) \"" +
                        (dir / "plain/x") + "\"\r\n");

  EXPECT_EQ(io.io_rmdir((dir / "plain").c_str()), 1);  // not a folder: left alone
  EXPECT_EQ(get_file(dir / "plain"), "keep");
  put_file(dir / "target/inside", "safe");
  std::filesystem::create_directory_symlink(dir / "target", dir / "link");
  EXPECT_EQ(io.io_rmdir((dir / "link\\").c_str()), 1);  // the link goes, not what it points at
  EXPECT_FALSE(std::filesystem::is_symlink(dir / "link"));
  EXPECT_EQ(get_file(dir / "target/inside"), "safe");
  EXPECT_EQ(io.io_rmdir((dir / "a").c_str()), 1);
  EXPECT_FALSE(std::filesystem::exists(dir / "a"));

  put_file(dir / "src/sub/b.txt", "B");
  std::filesystem::create_directories(dir / "src/empty");
  put_file(dir / "dst/old.txt", "old");
  EXPECT_EQ(io.io_copy_folder((dir / "src").c_str(), (dir / "dst").c_str()), 1);
  EXPECT_EQ(get_file(dir / "dst/sub/b.txt"), "B");
  EXPECT_FALSE(std::filesystem::exists(dir / "dst/old.txt"));
  EXPECT_FALSE(std::filesystem::exists(dir / "dst/empty"));  // files with their folders only
  EXPECT_EQ(io.io_copy_folder((dir / "src").c_str(), (dir / "src/sub/deeper").c_str()), 0);
  EXPECT_EQ(io.io_copy_folder((dir / "src/sub").c_str(), (dir / "src").c_str()), 0);
  EXPECT_EQ(get_file(dir / "src/sub/b.txt"), "B");
}

TEST(BisFileIO, RenameRules) {
  TempFolder dir;
  // gone: the name that must have gone; now: the name now holding "data".
  struct { std::string from, to; int result; std::string gone, now; } cases[] = {
      {windows_style(dir / "f/a.txt"), "b.txt", 1, dir / "f/a.txt", dir / "f/b.txt"},  // stays in its folder
      {dir / "f/b.txt", dir / "f/b.txt", 0, "", dir / "f/b.txt"},
      {dir / "f/b.txt", dir / "f/B.TXT", 1, dir / "f/b.txt", dir / "f/B.TXT"},      // case only
      {dir / "f/B.TXT", dir / "f/old.txt", 1, dir / "f/B.TXT", dir / "f/old.txt"},  // replaces
      {"", "x", -1, "", ""}, {"x", "", -1, "", ""},
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

}  // namespace
