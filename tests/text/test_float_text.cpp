#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>

#include "anim/XYZTriplet.h"
#include "io/BisFileIO.h"
#include "text/GenString.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

TEST(FloatText, KnownTextsAndWarnings) {
  float const nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
  struct Case {
    float value;
    bool ints;
    char const* text;
    char const* warning;
  } const cases[] = {
      {0.1f, false, "0.1", ""},
      {1.0f, false, "1.0", ""},
      {1.0f, true, "1", ""},
      {-0.0f, false, "-0.0", ""},
      {1234567.0f, false, "1234567.0", ""},    // precision 7
      {16777216.0f, false, "16777216.0", ""},  // precision 8
      {std::nextafter(0.1f, 1.0f), false, "0.10000001", ""},
      {1.5e-05f, false, "1.5e-005", ""},   // two-digit exponent widened
      {-1.5e-05f, false, "-1.5e-05", ""},  // the leading minus is found first: stays as it is
      {-2e20f, false, "-2e+020", ""},
      {3.4028235e38f, false, "3.4028235e+038", ""},
      {nan, false, "0.0/*NAN*/", "Warning: NAN detected\n"},
      {inf, false, "-0.0/*INFINITY*/", "Warning: Infinity detected\n"},
      {-inf, false, "-0.0/*INFINITY*/", "Warning: Infinity detected\n"},
      {-1e-40f, false, "-9.99995e-41/*#DEN*/", "Warning: Denormalized number -9.99995e-41/*#DEN*/\n"},
  };
  for (auto const& c : cases) {
    GenString s;
    testing::internal::CaptureStderr();
    char const* r = s.str_FloatToStr(c.value, c.ints);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.warning);
    EXPECT_STREQ(r, c.text);
    EXPECT_EQ(r, s.c_str()) << "the result is the string's own text";
  }
  GenString s;
  EXPECT_STREQ(s.str_FloatToStr(XYZTriplet{1.0f, 0.5f, -2e20f}), "1.0,0.5,-2e+020");
  EXPECT_STREQ(s.str_FloatToStr(XYZTriplet{1.0f, 0.0f, 3.0f}, true), "1,0,3");
}

// Every float met reads back to its own bits, through strtod narrowed and through strtof: a stride
// over the whole bit space, the edges of every exponent, and the smallest denormals.
TEST(FloatText, RoundTripsOverTheBitSpace) {
  const uint64_t samples = kSanitized ? 150000 : 4000000;
  const uint64_t stride = (uint64_t{1} << 32) / samples | 1;
  uint64_t checked = 0, failed = 0;
  testing::internal::CaptureStderr();  // the denormal warnings
  auto check = [&](uint32_t u) {
    float v;
    std::memcpy(&v, &u, 4);
    if (!std::isfinite(v)) return;
    GenString s;
    std::string t = s.str_FloatToStr(v);
    if (auto at = t.find("/*#DEN*/"); at != std::string::npos) t.erase(at);
    float a = static_cast<float>(std::strtod(t.c_str(), nullptr)), b = std::strtof(t.c_str(), nullptr);
    if ((std::memcmp(&a, &v, 4) != 0 || std::memcmp(&b, &v, 4) != 0) && failed++ < 5)
      ADD_FAILURE() << std::hex << u << " " << t;
    ++checked;
  };
  for (uint64_t i = 0; i < samples; ++i) check(static_cast<uint32_t>(i * stride));
  for (uint32_t e = 0; e < 255; ++e)
    for (uint32_t m : {0u, 1u, 2u, 0x400000u, 0x7FFFFEu, 0x7FFFFFu}) check(e << 23 | m), check(0x80000000u | e << 23 | m);
  for (uint32_t u = 0; u < (kSanitized ? 2000u : 100000u); ++u) check(u);
  testing::internal::GetCapturedStderr();
  RecordProperty("floats_checked", static_cast<int>(checked));
  EXPECT_EQ(failed, 0u);
}

TEST(DoubleText, KnownTextsAndRoundTrip) {
  struct Case {
    double value;
    char const* text;
  } const cases[] = {
      {0.5, "0.5"}, {2.0, "2.0"}, {-0.0, "-0.0"}, {1e21, "1000000000000000000000.0"},
      {1.0 / 3.0, "0.3333333333333333"}, {1e-30, "1e-030"},  // too small for fixed point
  };
  for (auto const& c : cases) EXPECT_STREQ(GenString().str_FloatToStr(c.value), c.text);
  testing::internal::CaptureStderr();
  uint64_t x = 0x9E3779B97F4A7C15ull, failed = 0;
  for (int i = 0; i < (kSanitized ? 10000 : 100000); ++i) {
    x ^= x << 13, x ^= x >> 7, x ^= x << 17;
    double v;
    std::memcpy(&v, &x, 8);
    if (!std::isfinite(v)) continue;
    GenString s;
    double back = std::strtod(s.str_FloatToStr(v), nullptr);
    if (std::memcmp(&back, &v, 8) != 0 && failed++ < 5) ADD_FAILURE() << s.c_str();
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "no double needs the lossy fallback";
}

TEST(SizedStrings, WriteAndReadBackInPlace) {
  auto dir = std::filesystem::temp_directory_path() / ("vendrak_text_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  std::string file = (dir / "s.bin").string();
  {
    BisFileIO io;
    ASSERT_TRUE(io.io_CreateFile(file.c_str()));
    GenString("abc").str_WriteSizedString(io, true);
    GenString().str_WriteSizedString(io, true);
    GenString("xy").str_WriteSizedString(io, false);
    GenString("zero").str_WriteString(io);
    io.io_WriteBlock("FIXEDFLDab\0\0", 12);  // a full 8-byte field, then a padded 4-byte one
  }
  BisFileIO io;
  ASSERT_NE(io.io_OpenFile(file.c_str()), 0);
  std::filesystem::remove_all(dir);
  ASSERT_EQ(io.io_GetFileSize(), 8u + 4 + 6 + 5 + 12);
  GenString s;
  s.str_ReadSizedString(io, true);
  EXPECT_EQ(s.c_str(), reinterpret_cast<char const*>(io.io_GetRawData() + 4)) << "in place, not copied";
  s.str_ReadSizedString(io, true);
  EXPECT_TRUE(s.str_IsEmpty());
  s.str_ReadSizedString(io, false);
  EXPECT_STREQ(s.c_str(), "xy");
  s.str_Read(io, 0);
  EXPECT_STREQ(s.c_str(), "zero");
  s.str_Read(io, 8);
  EXPECT_STREQ(s.c_str(), "FIXEDFLD") << "a full field must not run on into the next one";
  s.str_Read(io, -4);
  EXPECT_STREQ(s.c_str(), "ab");
  EXPECT_FALSE(s.str_IsPlaceholder());
  EXPECT_TRUE(io.io_eof());
}

TEST(SizedStrings, BadLengthsThrow) {
  struct Case {
    char const* bytes;
    size_t n;
    bool terminated;
    int code;
  } const cases[] = {
      {"\x05\0\0\0abc\0", 8, true, 5},  // the length disagrees with the terminated text
      {"\x09\0\0\0abc", 7, false, 1},   // more bytes claimed than remain
      {"\xff\xff\xff\xff" "abc", 7, false, 1},
      {"\x02\0", 2, false, 1},  // the length itself is cut short
  };
  for (auto const& c : cases) {
    BisFileIO io;
    io.io_OpenPseudoFile(c.bytes, c.n);
    int code = -1;
    try {
      GenString().str_ReadSizedString(io, c.terminated);
    } catch (Generic_Errors e) {
      code = e;
    }
    EXPECT_EQ(code, c.code) << c.n;
  }
}

}  // namespace
