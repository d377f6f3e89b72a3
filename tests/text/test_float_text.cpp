#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
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
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

float from_bits(uint32_t u) {
  float f;
  std::memcpy(&f, &u, 4);
  return f;
}
uint32_t bits(float f) {
  uint32_t u;
  std::memcpy(&u, &f, 4);
  return u;
}

std::string strip_marker(char const* text) {
  std::string s(text);
  auto at = s.find("/*#DEN*/");
  if (at != std::string::npos) s.erase(at);
  return s;
}

std::string float_text(float v, bool ints = false) {
  GenString s;
  return s.str_FloatToStr(v, ints);
}

struct FloatCase {
  float value;
  bool ints;
  char const* text;
};

TEST(FloatText, KnownTexts) {
  testing::internal::CaptureStderr();
  FloatCase const cases[] = {
      {0.1f, false, "0.1"},
      {0.3f, false, "0.3"},
      {1.0f, false, "1.0"},
      {1.0f, true, "1"},
      {-0.0f, false, "-0.0"},
      {0.0f, true, "0"},
      {2.5f, false, "2.5"},
      {123456.0f, false, "123456.0"},
      {1234567.0f, false, "1234567.0"},   // needs precision 7
      {16777216.0f, false, "16777216.0"},  // needs precision 8
      {std::nextafter(1.0f, 2.0f), false, "1.0000001"},
      {std::nextafter(0.1f, 1.0f), false, "0.10000001"},
      {1.5e-05f, false, "1.5e-005"},   // two-digit exponent widened
      {-1.5e-05f, false, "-1.5e-05"},  // leading minus found first: stays two digits
      {2e20f, false, "2e+020"},
      {-2e20f, false, "-2e+020"},
      {3.4028235e38f, false, "3.4028235e+038"},
      {1e-30f, false, "1e-030"},
  };
  for (auto const& c : cases) EXPECT_EQ(float_text(c.value, c.ints), c.text) << c.text;
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(FloatText, FaultyValuesAndTheirWarnings) {
  struct Case {
    float value;
    char const* text;
    char const* warning;
  } const cases[] = {
      {std::numeric_limits<float>::quiet_NaN(), "0.0/*NAN*/", "Warning: NAN detected\n"},
      {std::numeric_limits<float>::infinity(), "-0.0/*INFINITY*/", "Warning: Infinity detected\n"},
      {-std::numeric_limits<float>::infinity(), "-0.0/*INFINITY*/", "Warning: Infinity detected\n"},
      {1e-40f, "9.99995e-41/*#DEN*/", "Warning: Denormalized number 9.99995e-41/*#DEN*/\n"},
      {-1e-40f, "-9.99995e-41/*#DEN*/", "Warning: Denormalized number -9.99995e-41/*#DEN*/\n"},
  };
  for (auto const& c : cases) {
    GenString s;
    testing::internal::CaptureStderr();
    char const* r = s.str_FloatToStr(c.value);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_STREQ(r, c.text);
    EXPECT_EQ(r, s.c_str()) << "the result is the string's own text";
    EXPECT_EQ(err, c.warning);
  }
}

// Every float the sample meets must read back to its own bits, through the library's own reading
// path (strtod narrowed) and through strtof.
TEST(FloatText, RoundTripsOverTheBitSpace) {
  const uint64_t samples = kSanitized ? 150000 : 4000000;
  const uint64_t stride = (uint64_t{1} << 32) / samples | 1;
  uint64_t checked = 0;
  testing::internal::CaptureStderr();  // the denormal warnings
  auto check = [&](uint32_t u) {
    float v = from_bits(u);
    if (std::isnan(v) || std::isinf(v)) return;
    std::string t = strip_marker(float_text(v).c_str());
    float viaDouble = static_cast<float>(std::strtod(t.c_str(), nullptr));
    float viaFloat = std::strtof(t.c_str(), nullptr);
    if (bits(viaDouble) != u || bits(viaFloat) != u) {
      ADD_FAILURE() << std::hex << u << " " << t;
      return;
    }
    ++checked;
  };
  for (uint64_t i = 0; i < samples; ++i) check(static_cast<uint32_t>(i * stride));
  // The edges of every exponent, both signs; the whole of the smallest denormals.
  for (uint32_t e = 0; e < 255; ++e)
    for (uint32_t m : {0u, 1u, 2u, 0x400000u, 0x7FFFFEu, 0x7FFFFFu})
      for (uint32_t sign : {0u, 0x80000000u}) check(sign | (e << 23) | m);
  for (uint32_t u = 0; u < (kSanitized ? 2000u : 100000u); ++u) check(u);
  testing::internal::GetCapturedStderr();
  RecordProperty("floats_checked", static_cast<int>(checked));
  EXPECT_GT(checked, samples / 2);
}

TEST(DoubleText, KnownTextsAndRoundTrip) {
  struct Case {
    double value;
    char const* text;
  } const cases[] = {
      {0.5, "0.5"}, {2.0, "2.0"}, {0.1, "0.1"}, {-0.0, "-0.0"}, {1e21, "1000000000000000000000.0"},
      {1.0 / 3.0, "0.3333333333333333"}, {1e-30, "1e-030"},  // too small for fixed point
  };
  testing::internal::CaptureStderr();
  for (auto const& c : cases) {
    GenString s;
    EXPECT_STREQ(s.str_FloatToStr(c.value), c.text);
  }
  // Doubles spread over every exponent read back to their bits.
  const uint64_t samples = kSanitized ? 10000 : 100000;
  uint64_t x = 0x9E3779B97F4A7C15ull;
  for (uint64_t i = 0; i < samples; ++i) {
    x ^= x << 13, x ^= x >> 7, x ^= x << 17;
    double v;
    std::memcpy(&v, &x, 8);
    if (std::isnan(v) || std::isinf(v)) continue;
    GenString s;
    s.str_FloatToStr(v);
    double back = std::strtod(s.c_str(), nullptr);
    if (std::memcmp(&back, &v, 8) != 0) {
      ADD_FAILURE() << s.c_str();
      break;
    }
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "no double should need the lossy fallback";
}

TEST(FloatText, TripletJoinsThreeFloats) {
  GenString s;
  EXPECT_STREQ(s.str_FloatToStr(XYZTriplet{1.0f, 0.5f, -2e20f}), "1.0,0.5,-2e+020");
  EXPECT_STREQ(s.str_FloatToStr(XYZTriplet{1.0f, 0.0f, 3.0f}, true), "1,0,3");
}

// Strings as they sit in files: write them, read them back in place.
class SizedStrings : public testing::Test {
 protected:
  std::filesystem::path dir = std::filesystem::temp_directory_path() / ("vendrak_text_" + std::to_string(::getpid()));
  std::string file = (dir / "s.bin").string();
  void SetUp() override { std::filesystem::create_directories(dir); }
  void TearDown() override { std::filesystem::remove_all(dir); }
};

TEST_F(SizedStrings, WriteAndReadBack) {
  {
    BisFileIO io;
    ASSERT_TRUE(io.io_CreateFile(file.c_str()));
    GenString("abc").str_WriteSizedString(io, true);
    GenString().str_WriteSizedString(io, true);
    GenString("xy").str_WriteSizedString(io, false);
    GenString().str_WriteSizedString(io, false);
    GenString("zero").str_WriteString(io);
    io.io_WriteBlock("FIXEDFLD", 8);  // an 8-byte field with no terminator of its own
    io.io_WriteBlock("ab\0\0", 4);
    io.io_CloseOutput();
  }
  BisFileIO io;
  ASSERT_NE(io.io_OpenFile(file.c_str()), 0);
  uint8_t const* raw = io.io_GetRawData();
  // 4+4 "abc\0", 4 (empty), 4+2 "xy", 4 (empty), "zero\0", 8 fixed, 4 padded
  ASSERT_EQ(io.io_GetFileSize(), 8u + 4 + 6 + 4 + 5 + 8 + 4);
  GenString s;
  s.str_ReadSizedString(io, true);
  EXPECT_STREQ(s.c_str(), "abc");
  EXPECT_TRUE(s.str_IsPlaceholder());
  EXPECT_EQ(s.c_str(), reinterpret_cast<char const*>(raw + 4));
  s.str_ReadSizedString(io, true);
  EXPECT_TRUE(s.str_IsEmpty());
  s.str_ReadSizedString(io, false);
  EXPECT_STREQ(s.c_str(), "xy");
  EXPECT_FALSE(s.str_IsPlaceholder());
  s.str_ReadSizedString(io, false);
  EXPECT_TRUE(s.str_IsEmpty());
  s.str_Read(io, 0);
  EXPECT_STREQ(s.c_str(), "zero");
  s.str_Read(io, 8);
  EXPECT_STREQ(s.c_str(), "FIXEDFLD") << "a full field must not run on into the next one";
  s.str_Read(io, 4);
  EXPECT_STREQ(s.c_str(), "ab");
  EXPECT_TRUE(s.str_IsPlaceholder());
  EXPECT_TRUE(io.io_eof());
}

TEST_F(SizedStrings, BadLengthsThrow) {
  struct Case {
    char const* bytes;
    size_t n;
    bool terminated;
    int code;
  } const cases[] = {
      {"\x05\0\0\0abc\0", 8, true, 5},     // length disagrees with the terminated text
      {"\x09\0\0\0abc", 7, false, 1},      // more bytes claimed than remain
      {"\xff\xff\xff\xff" "abc", 7, false, 1},
      {"\x02\0", 2, false, 1},             // the length itself is cut short
  };
  for (auto const& c : cases) {
    BisFileIO io;
    io.io_OpenPseudoFile(c.bytes, c.n);
    testing::internal::CaptureStderr();
    GenString s;
    int code = -1;
    try {
      s.str_ReadSizedString(io, c.terminated);
    } catch (Generic_Errors e) {
      code = e;
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(code, c.code) << c.n;
  }
}

}  // namespace
