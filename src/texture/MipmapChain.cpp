#include "texture/MipmapChain.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

#include "texture/ParallelFor.h"

namespace {
constexpr double kLobes = 3.0;
constexpr uint32_t kBandRows = 32;
// Below this alpha a filtered pixel shows too little of its colour to divide it back out.
constexpr float kVisible = 1.0f / 512;

double lanczos(double x) {
  x = std::fabs(x);
  if (x < 1e-9) return 1.0;
  if (x >= kLobes) return 0.0;
  double const px = std::numbers::pi * x;
  return kLobes * std::sin(px) * std::sin(px / kLobes) / (px * px);
}

// For each output position along one axis: the source positions that contribute and their weights,
// which sum to one. Positions past an edge take the edge pixel.
struct Taps {
  std::vector<size_t> start;  // per output, into index and weight; one extra at the end
  std::vector<uint32_t> index;
  std::vector<float> weight;

  Taps(uint32_t from, uint32_t to) {
    double const scale = double(from) / to;
    double const stretch = std::max(scale, 1.0);
    double const reach = kLobes * stretch;
    start.reserve(to + 1);
    for (uint32_t i = 0; i < to; ++i) {
      start.push_back(index.size());
      double const centre = (i + 0.5) * scale - 0.5;
      long const lo = static_cast<long>(std::ceil(centre - reach)), hi = static_cast<long>(std::floor(centre + reach));
      size_t const first = weight.size();
      double sum = 0;
      for (long j = lo; j <= hi; ++j) {
        double w = lanczos((j - centre) / stretch);
        if (w == 0) continue;
        index.push_back(static_cast<uint32_t>(std::clamp<long>(j, 0, long(from) - 1)));
        weight.push_back(static_cast<float>(w));
        sum += w;
      }
      for (size_t k = first; k < weight.size(); ++k) weight[k] = static_cast<float>(weight[k] / sum);
    }
    start.push_back(index.size());
  }
};

struct Tables {
  float to_linear[256];
  uint8_t to_srgb[65536];
  Tables() {
    for (int v = 0; v < 256; ++v) {
      double s = v / 255.0;
      to_linear[v] = static_cast<float>(s <= 0.04045 ? s / 12.92 : std::pow((s + 0.055) / 1.055, 2.4));
    }
    for (int i = 0; i < 65536; ++i) {
      double l = i / 65535.0;
      double s = l <= 0.0031308 ? l * 12.92 : 1.055 * std::pow(l, 1 / 2.4) - 0.055;
      to_srgb[i] = static_cast<uint8_t>(std::lround(std::clamp(s, 0.0, 1.0) * 255));
    }
  }
};

Tables const& tables() {
  static Tables const t;
  return t;
}

uint8_t to_byte(float v) { return static_cast<uint8_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255)); }

// One resampling from `src` into `dst` (its size already set). Per pixel the filter carries
// colour and alpha (4 channels), or for pictures with transparency alpha-weighted colour, alpha
// and the plain colour (7).
template <unsigned channels>
void resample_with(RgbaImage const& src, RgbaImage& dst, bool colour, unsigned threads) {
  Tables const& t = tables();
  Taps const across(src.width, dst.width), down(src.height, dst.height);
  dst.pixels.assign(dst.pixel_count() * 4, 0);
  size_t const bands = (dst.height + kBandRows - 1) / kBandRows;

  parallel_for(bands, threads, [&](size_t band) {
    uint32_t const y0 = static_cast<uint32_t>(band * kBandRows), y1 = std::min(dst.height, y0 + kBandRows);
    uint32_t const lo = down.index[down.start[y0]], hi = down.index[down.start[y1] - 1];
    size_t const out_row = size_t(dst.width) * channels;
    std::vector<float> row(size_t(src.width) * channels), rows(size_t(hi - lo + 1) * out_row), sum(out_row);

    for (uint32_t r = lo; r <= hi; ++r) {
      uint8_t const* s = src.at(0, r);
      for (uint32_t x = 0; x < src.width; ++x, s += 4) {
        float* p = row.data() + size_t(x) * channels;
        float a = s[3] / 255.0f;
        for (int c = 0; c < 3; ++c) p[c] = colour ? t.to_linear[s[c]] : s[c] / 255.0f;
        p[3] = a;
        if constexpr (channels == 7) {
          for (int c = 0; c < 3; ++c) {
            p[4 + c] = p[c];
            p[c] *= a;
          }
        }
      }
      float* out = rows.data() + size_t(r - lo) * out_row;
      for (uint32_t x = 0; x < dst.width; ++x, out += channels) {
        std::fill(out, out + channels, 0.0f);
        for (size_t k = across.start[x]; k < across.start[x + 1]; ++k) {
          float const w = across.weight[k];
          float const* p = row.data() + size_t(across.index[k]) * channels;
          for (unsigned c = 0; c < channels; ++c) out[c] += w * p[c];
        }
      }
    }

    for (uint32_t y = y0; y < y1; ++y) {
      std::fill(sum.begin(), sum.end(), 0.0f);
      for (size_t k = down.start[y]; k < down.start[y + 1]; ++k) {
        float const w = down.weight[k];
        float const* p = rows.data() + size_t(down.index[k] - lo) * out_row;
        for (size_t i = 0; i < out_row; ++i) sum[i] += w * p[i];
      }
      uint8_t* d = dst.at(0, y);
      for (uint32_t x = 0; x < dst.width; ++x, d += 4) {
        float const* p = sum.data() + size_t(x) * channels;
        float const a = std::clamp(p[3], 0.0f, 1.0f);
        float rgb[3];
        for (int c = 0; c < 3; ++c)
          rgb[c] = channels == 4 ? p[c] : a >= kVisible ? p[c] / a : p[4 + c];
        for (int c = 0; c < 3; ++c)
          d[c] = colour ? t.to_srgb[std::lround(std::clamp(rgb[c], 0.0f, 1.0f) * 65535)] : to_byte(rgb[c]);
        d[3] = to_byte(a);
      }
    }
  });
}

void resample(RgbaImage const& src, RgbaImage& dst, bool colour, unsigned threads) {
  if (src.opaque())
    resample_with<4>(src, dst, colour, threads);
  else
    resample_with<7>(src, dst, colour, threads);
}
}  // namespace

uint32_t MipmapChain::mc_NearestPowerOfTwo(uint32_t n, uint32_t limit) {
  if (n <= 1) return 1;
  uint32_t lower = 1;
  while (lower <= n / 2) lower *= 2;
  uint64_t upper = uint64_t(lower) * 2;
  uint64_t best = n - lower < upper - n ? lower : upper;
  return static_cast<uint32_t>(std::min<uint64_t>(best, limit));
}

RgbaImage MipmapChain::mc_Resize(RgbaImage const& in, uint32_t width, uint32_t height) const {
  if (in.width == width && in.height == height) return in;
  RgbaImage out;
  out.width = width;
  out.height = height;
  resample(in, out, _colour, _threads);
  return out;
}

std::vector<RgbaImage> MipmapChain::mc_Build(RgbaImage top, bool dxt, unsigned max_levels) const {
  std::vector<RgbaImage> levels;
  levels.push_back(std::move(top));
  for (;;) {
    RgbaImage const& above = levels.back();
    bool const last = dxt ? std::min(above.width, above.height) <= 4 : std::max(above.width, above.height) <= 1;
    if (last || levels.size() >= max_levels) break;
    RgbaImage next;
    next.width = std::max(1u, above.width / 2);
    next.height = std::max(1u, above.height / 2);
    resample(above, next, _colour, _threads);
    levels.push_back(std::move(next));
  }
  return levels;
}
