#include <cerrno>
#include <cstdlib>
#include <cwchar>
#include <string>

#include <gtest/gtest.h>

#include "core/LinuxCompat.h"

namespace {

TEST(LinuxCompat, MemicmpFoldsAsciiLettersOnly) {
  struct Case {
    char const *a, *b;
    size_t n;
    int sign;
  } cases[] = {{"Config.BIN", "config.bin", 10, 0}, {"ABC", "abd", 3, -1}, {"abd", "ABC", 3, 1},
               {"abX", "ABy", 2, 0}, {"\xC4", "\xE4", 1, -1}, {"@", "`", 1, -1}};
  for (auto const& c : cases) {
    int r = _memicmp(c.a, c.b, c.n);
    EXPECT_EQ((r > 0) - (r < 0), c.sign) << c.a << " / " << c.b;
  }
  errno = 0;
  EXPECT_EQ(_memicmp(nullptr, "a", 1), 0x7fffffff);
  EXPECT_EQ(errno, EINVAL);
}

TEST(LinuxCompat, MultiByteToWideChar) {
  wchar_t out[8] = L"#";
  EXPECT_EQ(MultiByteToWideChar(1252, 0, "abc", -1, out, 8), 0);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 1, "abc", -1, out, 8), 0);
  EXPECT_EQ(out[0], L'#');  // only UTF-8 without flags is converted
  char const* text = "a\xC3\xA9\xE2\x82\xAC";  // a, e acute, euro sign
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0), 3);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 8), 3);  // no buffer: only counts
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, 3, out, 8), 2);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, text, -1, out, 8), 3);
  EXPECT_EQ(std::wstring(out), L"a\u00e9\u20ac");
  testing::internal::CaptureStderr();
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xC3(", -1, out, 8), 0);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("MultiByteToWideChar conversion error"), std::string::npos);
}

TEST(LinuxCompat, WideCharToMultiByte) {
  char out[16];
  int used = 0;
  wchar_t const* text = L"a\u00e9\u20ac";
  struct Bad {
    unsigned cp, flags;
    int len;
    char const* def;
    int* used;
  } refused[] = {{1252, 0, -1, nullptr, nullptr}, {CP_UTF8, 2, -1, nullptr, nullptr},
                 {CP_UTF8, 0, 0, nullptr, nullptr}, {CP_UTF8, 0, -1, "?", nullptr}, {CP_UTF8, 0, -1, nullptr, &used}};
  for (auto const& b : refused) {
    errno = 0;
    EXPECT_EQ(WideCharToMultiByte(b.cp, b.flags, text, b.len, out, sizeof out, b.def, b.used), 0);
    EXPECT_EQ(errno, EINVAL);
  }
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr), 6);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, text, -1, out, sizeof out, nullptr, nullptr), 6);
  EXPECT_STREQ(out, "a\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(_wsystem(L"test \u00e9 = \u00e9"), 0);  // the command arrives as UTF-8
}

TEST(LinuxCompat, Utf16ToUtf8) {
  char16_t const src[] = {u'A', 0x00E9, 0xD83D, 0xDE00, 0};  // beyond the BMP through a surrogate pair
  char* out = nullptr;
  EXPECT_EQ(linuxcompat_utf16_to_utf8(src, &out), 7);
  EXPECT_STREQ(out, "A\xC3\xA9\xF0\x9F\x98\x80");
  std::free(out);
}

}  // namespace
