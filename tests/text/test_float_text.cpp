#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

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
      {0.1f, false, "0.1", ""}, {1.0f, false, "1.0", ""}, {1.0f, true, "1", ""}, {-0.0f, false, "-0.0", ""},
      {1234567.0f, false, "1234567.0", ""}, {16777216.0f, false, "16777216.0", ""},  // precision 7, then 8
      {std::nextafter(0.1f, 1.0f), false, "0.10000001", ""},
      {1.5e-05f, false, "1.5e-005", ""},   // two-digit exponent widened
      {-1.5e-05f, false, "-1.5e-05", ""},  // the leading minus is found first: stays as it is
      {-2e20f, false, "-2e+020", ""}, {3.4028235e38f, false, "3.4028235e+038", ""},
      {nan, false, "0.0/*NAN*/", "Warning: NAN detected\n"},
      {inf, false, "-0.0/*INFINITY*/", "Warning: Infinity detected\n"},
      {-inf, false, "-0.0/*INFINITY*/", "Warning: Infinity detected\n"},
      {-1e-40f, false, "-9.99995e-41/*#DEN*/", "Warning: Denormalized number -9.99995e-41/*#DEN*/\n"},
  };
  for (auto const& c : cases) {
    GenString s;
    testing::internal::CaptureStderr();
    char const* r = s.str_FloatToStr(c.value, c.ints);
    EXPECT_STREQ(r, c.text);
    EXPECT_EQ(r, s.c_str()) << "the result is the string's own text";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.warning);
  }
}

// Every float met reads back to its own bits, through strtod narrowed and through strtof: a stride
// over the whole bit space, the edges of every exponent, and the smallest denormals.
TEST(FloatText, RoundTripsOverTheBitSpace) {
  const uint64_t samples = kSanitized ? 150000 : 4000000, stride = (uint64_t{1} << 32) / samples | 1;
  uint64_t failed = 0;
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
  };
  for (uint64_t i = 0; i < samples; ++i) check(static_cast<uint32_t>(i * stride));
  for (uint32_t e = 0; e < 255; ++e)
    for (uint32_t m : {0u, 1u, 2u, 0x400000u, 0x7FFFFEu, 0x7FFFFFu}) check(e << 23 | m), check(0x80000000u | e << 23 | m);
  for (uint32_t u = 0; u < (kSanitized ? 2000u : 100000u); ++u) check(u);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(failed, 0u);
}

// Float texts are made with <charconv>; they must be what printf's %.*g made before, or every
// decoded config would change. Checked over a sweep of the bit space at the precisions used.
TEST(FloatText, SameDigitsAsPrintf) {
  const uint64_t samples = kSanitized ? 20000 : 400000, stride = (uint64_t{1} << 32) / samples | 1;
  int differ = 0;
  for (uint64_t i = 0; i < samples && differ < 5; ++i) {
    uint32_t u = static_cast<uint32_t>(i * stride);
    float v;
    std::memcpy(&v, &u, 4);
    if (!std::isfinite(v)) continue;
    for (int p : {6, 7, 8, 9, 17}) {
      char a[64], b[64];
      std::snprintf(a, sizeof a, "%.*g", p, static_cast<double>(v));
      *std::to_chars(b, b + sizeof b - 1, static_cast<double>(v), std::chars_format::general, p).ptr = 0;
      if (std::strcmp(a, b) != 0 && differ++ < 5) ADD_FAILURE() << std::hex << u << " " << a << " " << b;
    }
  }
}

TEST(DoubleText, KnownTextsAndRoundTrip) {
  std::pair<double, char const*> const cases[] = {
      {0.5, "0.5"}, {2.0, "2.0"}, {-0.0, "-0.0"}, {1e21, "1000000000000000000000.0"},
      {1.0 / 3.0, "0.3333333333333333"}, {1e-30, "1e-030"},  // too small for fixed point
  };
  for (auto [value, text] : cases) EXPECT_STREQ(GenString().str_FloatToStr(value), text);
  testing::internal::CaptureStderr();
  uint64_t x = 0x9E3779B97F4A7C15ull;
  for (int i = 0, failed = 0; i < (kSanitized ? 10000 : 100000); ++i) {
    x ^= x << 13, x ^= x >> 7, x ^= x << 17;
    double v, back;
    std::memcpy(&v, &x, 8);
    if (!std::isfinite(v)) continue;
    GenString s;
    back = std::strtod(s.str_FloatToStr(v), nullptr);
    if (std::memcmp(&back, &v, 8) != 0 && failed++ < 5) ADD_FAILURE() << s.c_str();
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "no double needs the lossy fallback";
}

// Strings read from a file in place: a length then text with or without its zero (sized), a plain
// zero-terminated string (field 0), a full field of n bytes or a zero-padded one (-n).
TEST(SizedStrings, ReadInPlaceAndRefuseBadLengths) {
  struct Case {
    std::string bytes;
    bool sized;
    int how;
    char const* text;  // null: throws `code`
    int code;
    uint64_t left;
  } const cases[] = {
      {std::string("\x04\0\0\0abc\0", 8), true, 1, "abc", 0, 0}, {std::string("\0\0\0\0x", 5), true, 1, "", 0, 1},
      {std::string("\x02\0\0\0xyz", 7), true, 0, "xy", 0, 1},
      {std::string("zero\0z", 6), false, 0, "zero", 0, 1}, {std::string("ab\0\0c", 5), false, -4, "ab", 0, 1},
      {std::string("FIXEDFLDab\0\0", 12), false, 8, "FIXEDFLD", 0, 4},  // must not run on into the next field
      {std::string("\x05\0\0\0abc\0", 8), true, 1, nullptr, 5, 0},  // the length disagrees with the text
      {std::string("\x09\0\0\0abc", 7), true, 0, nullptr, 1, 0},    // more bytes claimed than remain
      {"\xff\xff\xff\xff" "abc", true, 0, nullptr, 1, 0},
      {std::string("\x02\0", 2), true, 0, nullptr, 1, 0},  // the length itself is cut short
  };
  for (auto const& c : cases) {
    BisFileIO io;
    io.io_OpenPseudoFile(c.bytes.data(), c.bytes.size());
    GenString s;
    int code = 0;
    try {
      c.sized ? s.str_ReadSizedString(io, c.how != 0) : s.str_Read(io, c.how);
    } catch (Generic_Errors e) {
      code = e;
    }
    EXPECT_EQ(code, c.code) << c.bytes;
    if (!c.text) continue;
    EXPECT_STREQ(s.c_str(), c.text);
    EXPECT_EQ(io.io_RemainingBytes(), c.left) << c.bytes;
    if (c.sized && c.how && *c.text) {
      EXPECT_EQ(s.c_str(), reinterpret_cast<char const*>(io.io_GetRawData() + 4)) << "in place, not copied";
    }
  }
}

}  // namespace
