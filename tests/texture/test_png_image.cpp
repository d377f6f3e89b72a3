#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "texture/PngImage.h"

namespace {

PngImage make(uint32_t w, uint32_t h, uint8_t channels, uint8_t depth) {
  PngImage image;
  image.width = w;
  image.height = h;
  image.channels = channels;
  image.bit_depth = depth;
  image.pixels.resize(image.row_bytes() * h);
  std::mt19937 random(w * 131 + h * 7 + channels * 3 + depth);
  for (auto& b : image.pixels) b = uint8_t(random());
  return image;
}

struct Shape {
  char const* name;
  uint32_t width, height;
  uint8_t channels, depth;
};

class PngRoundTrip : public ::testing::TestWithParam<Shape> {};

TEST_P(PngRoundTrip, SamplesAndTextsComeBackExactly) {
  Shape const& s = GetParam();
  PngImage image = make(s.width, s.height, s.channels, s.depth);
  image.texts = {{"lowest", "-12.50"}, {"highest", "803.25"}};
  std::vector<uint8_t> file;
  ASSERT_EQ(image.encode(file), "");

  PngImage back;
  ASSERT_EQ(PngImage::decode(file.data(), file.size(), back), "");
  EXPECT_EQ(back.width, s.width);
  EXPECT_EQ(back.height, s.height);
  EXPECT_EQ(back.channels, s.channels);
  EXPECT_EQ(back.bit_depth, s.depth);
  EXPECT_EQ(back.pixels, image.pixels);
  EXPECT_EQ(back.texts, image.texts);
}

INSTANTIATE_TEST_SUITE_P(Shapes, PngRoundTrip,
                         ::testing::Values(Shape{"grey8", 5, 3, 1, 8}, Shape{"grey16_in_host_order", 7, 2, 1, 16},
                                           Shape{"grey_alpha8", 4, 4, 2, 8}, Shape{"rgb8", 3, 9, 3, 8},
                                           Shape{"rgba8", 16, 16, 4, 8}, Shape{"rgba16", 2, 3, 4, 16}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST(PngImage, AnyShapeExpandsToRgba8) {
  PngImage grey = make(3, 2, 1, 16);
  uint16_t first;
  std::memcpy(&first, grey.pixels.data(), 2);
  std::vector<uint8_t> file;
  ASSERT_EQ(grey.encode(file), "");
  PngImage rgba;
  ASSERT_EQ(PngImage::decode(file.data(), file.size(), rgba, 4), "");
  ASSERT_EQ(rgba.channels, 4);
  ASSERT_EQ(rgba.bit_depth, 8);
  EXPECT_EQ(rgba.pixels[0], first >> 8);  // 16-bit grey keeps its high byte
  EXPECT_EQ(rgba.pixels[0], rgba.pixels[1]);
  EXPECT_EQ(rgba.pixels[0], rgba.pixels[2]);
  EXPECT_EQ(rgba.pixels[3], 255);  // no alpha in the file: opaque
}

TEST(PngImage, DamagedOrOversizedFilesAreRefusedWithAReason) {
  PngImage image = make(64, 64, 3, 8);
  std::vector<uint8_t> file;
  ASSERT_EQ(image.encode(file), "");

  struct Case {
    char const* name;
    std::vector<uint8_t> bytes;
    uint64_t max_pixels;
  };
  std::vector<uint8_t> flipped = file;
  flipped[flipped.size() / 2] ^= 0x55;
  std::vector<Case> cases = {
      {"empty", {}, 1u << 20},
      {"not a png", {'G', 'I', 'F', '8', '9', 'a', 0, 0, 0}, 1u << 20},
      {"signature only", std::vector<uint8_t>(file.begin(), file.begin() + 8), 1u << 20},
      {"truncated in the data", std::vector<uint8_t>(file.begin(), file.begin() + long(file.size() / 2)), 1u << 20},
      {"flipped byte in the data", flipped, 1u << 20},
      {"more pixels than allowed", file, 64 * 64 - 1},
  };
  for (auto const& c : cases) {
    PngImage out;
    std::string reason = PngImage::decode(c.bytes.data(), c.bytes.size(), out, 0, c.max_pixels);
    EXPECT_NE(reason, "") << c.name;
    EXPECT_TRUE(out.pixels.empty()) << c.name;
  }
}

TEST(PngImage, InconsistentImagesAreNotWritten) {
  PngImage short_pixels = make(4, 4, 4, 8);
  short_pixels.pixels.pop_back();
  PngImage three_bits = make(4, 4, 1, 8);
  three_bits.bit_depth = 3;
  PngImage empty;
  std::vector<uint8_t> out;
  EXPECT_NE(short_pixels.encode(out), "");
  EXPECT_NE(three_bits.encode(out), "");
  EXPECT_NE(empty.encode(out), "");
}

}  // namespace
