#include "texture/PngImage.h"

#include <png.h>

#include <bit>
#include <cstdio>
#include <cstring>
#include <new>

// libpng reports failures by a long jump back to the setjmp of the reading or writing function.
// Those functions declare every object that has a destructor before their setjmp, so the jump
// skips no destructor; the callbacks below never let a C++ exception cross libpng's C frames.
namespace {

struct Source {
  uint8_t const* data;
  size_t size;
  size_t at;
};

struct Sink {
  std::vector<uint8_t>* out;
};

struct Failure {
  char text[200] = {};
};

void on_error(png_structp png, png_const_charp message) {
  auto* failure = static_cast<Failure*>(png_get_error_ptr(png));
  std::snprintf(failure->text, sizeof failure->text, "%s", message ? message : "damaged PNG");
  png_longjmp(png, 1);
}

void on_warning(png_structp, png_const_charp) {}

void read_bytes(png_structp png, png_bytep out, size_t count) {
  auto* source = static_cast<Source*>(png_get_io_ptr(png));
  if (count > source->size - source->at) png_error(png, "the file ends inside the picture");
  std::memcpy(out, source->data + source->at, count);
  source->at += count;
}

void write_bytes(png_structp png, png_bytep data, size_t count) {
  auto* sink = static_cast<Sink*>(png_get_io_ptr(png));
  try {
    sink->out->insert(sink->out->end(), data, data + count);
  } catch (...) {
    png_error(png, "out of memory");
  }
}

void flush_nothing(png_structp) {}

void collect_texts(png_structp png, png_infop info, PngImage& out) {
  png_textp texts = nullptr;
  int count = png_get_text(png, info, &texts, nullptr);
  for (int i = 0; i < count; ++i) {
    if (!texts[i].key) continue;
    out.texts.emplace_back(texts[i].key, texts[i].text ? std::string(texts[i].text, texts[i].text_length)
                                                       : std::string());
  }
}

// The reading steps, with libpng's long jump landing here. `rows` is the caller's so that no
// object with a destructor lives in this frame.
bool read_png(png_structp png, png_infop info, png_infop end, PngImage& out, int want,
              uint64_t max_pixels, std::vector<png_bytep>& rows, Failure& failure) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_info(png, info);
  png_uint_32 width = png_get_image_width(png, info);
  png_uint_32 height = png_get_image_height(png, info);
  if (width == 0 || height == 0 || uint64_t(width) * height > max_pixels) {
    std::snprintf(failure.text, sizeof failure.text, "a picture of %ux%u pixels is too large",
                  unsigned(width), unsigned(height));
    return false;
  }
  int colour = png_get_color_type(png, info);
  int depth = png_get_bit_depth(png, info);
  png_set_expand(png);  // palettes to RGB, low-depth grey to 8 bits, transparency chunks to alpha
  if (want == 4) {
    if (depth == 16) png_set_strip_16(png);
    if (!(colour & PNG_COLOR_MASK_COLOR)) png_set_gray_to_rgb(png);
    if (!(colour & PNG_COLOR_MASK_ALPHA) && !png_get_valid(png, info, PNG_INFO_tRNS))
      png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
  }
  if (depth == 16 && want != 4 && std::endian::native == std::endian::little) png_set_swap(png);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);

  out.width = width;
  out.height = height;
  out.channels = png_get_channels(png, info);
  out.bit_depth = png_get_bit_depth(png, info);
  if ((out.bit_depth != 8 && out.bit_depth != 16) || out.channels < 1 || out.channels > 4 ||
      png_get_rowbytes(png, info) != out.row_bytes()) {
    std::snprintf(failure.text, sizeof failure.text, "unexpected PNG sample layout");
    return false;
  }
  size_t stride = out.row_bytes();
  out.pixels.resize(stride * height);
  rows.resize(height);
  for (png_uint_32 y = 0; y < height; ++y) rows[y] = out.pixels.data() + stride * y;
  png_read_image(png, rows.data());
  png_read_end(png, end);
  collect_texts(png, info, out);
  collect_texts(png, end, out);
  return true;
}

bool write_png(png_structp png, png_infop info, PngImage const& image, std::vector<png_text>& texts,
               std::vector<png_bytep>& rows, int level) {
  if (setjmp(png_jmpbuf(png))) return false;
  if (level >= 0 && level <= 9) png_set_compression_level(png, level);
  static int const kColour[] = {0, PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB,
                                PNG_COLOR_TYPE_RGB_ALPHA};
  png_set_IHDR(png, info, image.width, image.height, image.bit_depth, kColour[image.channels],
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (!texts.empty()) png_set_text(png, info, texts.data(), int(texts.size()));
  png_write_info(png, info);
  if (image.bit_depth == 16 && std::endian::native == std::endian::little) png_set_swap(png);
  png_write_image(png, rows.data());
  png_write_end(png, info);
  return true;
}

}  // namespace

std::string PngImage::decode(uint8_t const* data, size_t size, PngImage& out, int want,
                             uint64_t max_pixels) {
  out = PngImage{};
  if (size < 8 || png_sig_cmp(data, 0, 8) != 0) return "not a PNG file";
  Failure failure;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &failure, on_error, on_warning);
  if (!png) return "out of memory";
  png_infop info = png_create_info_struct(png);
  png_infop end = png_create_info_struct(png);
  if (!info || !end) {
    png_destroy_read_struct(&png, info ? &info : nullptr, end ? &end : nullptr);
    return "out of memory";
  }
  Source source{data, size, 0};
  png_set_read_fn(png, &source, read_bytes);
  std::vector<png_bytep> rows;
  bool ok;
  try {
    ok = read_png(png, info, end, out, want, max_pixels, rows, failure);
  } catch (std::bad_alloc const&) {
    std::snprintf(failure.text, sizeof failure.text, "out of memory");
    ok = false;
  }
  png_destroy_read_struct(&png, &info, &end);
  if (ok) return {};
  out = PngImage{};
  return failure.text[0] ? failure.text : "damaged PNG";
}

std::string PngImage::encode(std::vector<uint8_t>& out, int level) const {
  if (width == 0 || height == 0 || width > 0x7FFFFFFF || height > 0x7FFFFFFF)
    return "a PNG needs a width and a height";
  if (channels < 1 || channels > 4 || (bit_depth != 8 && bit_depth != 16))
    return "a PNG holds 1 to 4 channels of 8 or 16 bits";
  if (pixels.size() != row_bytes() * height) return "the pixels do not fill the picture";
  Failure failure;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &failure, on_error, on_warning);
  if (!png) return "out of memory";
  png_infop info = png_create_info_struct(png);
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    return "out of memory";
  }
  out.clear();
  Sink sink{&out};
  png_set_write_fn(png, &sink, write_bytes, flush_nothing);
  std::vector<png_text> chunks(texts.size());
  for (size_t i = 0; i < texts.size(); ++i) {
    chunks[i].compression = PNG_TEXT_COMPRESSION_NONE;
    chunks[i].key = const_cast<char*>(texts[i].first.c_str());
    chunks[i].text = const_cast<char*>(texts[i].second.c_str());
    chunks[i].text_length = texts[i].second.size();
  }
  std::vector<png_bytep> rows(height);
  size_t stride = row_bytes();
  for (uint32_t y = 0; y < height; ++y) rows[y] = const_cast<png_bytep>(pixels.data() + stride * y);
  bool ok = write_png(png, info, *this, chunks, rows, level);
  png_destroy_write_struct(&png, &info);
  if (ok) return {};
  out.clear();
  return failure.text[0] ? failure.text : "cannot write the PNG";
}
