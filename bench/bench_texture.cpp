// Opening a texture with every mipmap expanded, in MB/s of expanded pixels, on the largest corpus
// texture (or a made 2048 x 2048 DXT5 texture when the corpus is absent); making a 2048 x 2048
// texture with its mipmaps from a picture and decoding one back to RGBA, in MB/s of RGBA pixels
// (per thread count for making); and the index and font readers on the corpus.
#include <benchmark/benchmark.h>

#include <algorithm>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "core/BisDLL.h"
#include "font/Glyvard.h"
#include "texture/Hollin.h"
#include "texture/Lorvix.h"

namespace {
namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

bool silent(char const*, ...) { return true; }

Bytes slurp(fs::path const& p) {
  std::ifstream in(p, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

// The largest file of a kind below the corpus, empty when there is none.
Bytes largest(std::vector<std::string> const& folders, std::string const& ext, std::string* name = nullptr) {
  fs::path best;
  uintmax_t size = 0;
  for (auto const& f : folders) {
    fs::path dir = fs::path(VENDRAK_CORPUS) / f;
    if (!fs::is_directory(dir)) continue;
    for (auto const& e : fs::recursive_directory_iterator(dir))
      if (e.is_regular_file() && e.path().extension() == ext && e.file_size() > size) {
        best = e.path();
        size = e.file_size();
      }
  }
  if (name) *name = best.filename().string();
  return best.empty() ? Bytes{} : slurp(best);
}

Bytes const& texture(std::string* name = nullptr) {
  static std::string file;
  static Bytes const bytes = [] {
    Bytes b = largest({"paa", "addon-src"}, ".paa", &file);
    if (!b.empty()) return b;
    // A stand-in: 2048 x 2048 DXT5 blocks of mild noise, LZO-compressed by the writer.
    BisDLL dll;
    Lorvix& t = *dll.dll_GetLorvix();
    t.pax_New(Lorvix::PAX_DXT5);
    std::mt19937 rng(3);
    for (uint16_t w = 2048; w >= 4; w /= 2) {
      Bytes px(size_t(w) * w);
      for (auto& p : px) p = uint8_t(rng() % 4);
      t.pax_AddMipmap(w, w, px.data(), px.size());
    }
    fs::path out = fs::temp_directory_path() / "vendrak-bench-texture.paa";
    t.pax_Write(out.c_str());
    file = "made 2048 x 2048 DXT5";
    Bytes made = slurp(out);
    fs::remove(out);
    return made;
  }();
  if (name) *name = file;
  return bytes;
}

// A 2048 x 2048 picture: the largest mipmap of a photographed ground texture (opaque, made DXT1)
// and one of a radio with alpha (made DXT5), or made stand-ins when the corpus is absent.
RgbaImage const& picture(bool alpha) {
  static RgbaImage pictures[2];
  RgbaImage& p = pictures[alpha];
  if (!p.pixels.empty()) return p;
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  fs::path f = fs::path(VENDRAK_CORPUS) / "paa" / (alpha ? "tfar_148_dxt5_big.paa" : "dustyroads_gdt_stony_co.paa");
  if (t.pax_Open(f.c_str(), silent) == 0) t.pax_ToRgba(alpha ? 1 : 0, p);
  if (p.width != 2048 || p.height != 2048) {
    std::mt19937 rng(alpha ? 5 : 4);
    p = RgbaImage{2048, 2048, std::vector<uint8_t>(size_t(2048) * 2048 * 4)};
    for (size_t i = 0; i < p.pixels.size(); ++i)
      p.pixels[i] = i % 4 == 3 && !alpha ? 255 : uint8_t((i / 4 % 2048 + i / 4 / 2048) / 16 + rng() % 24);
  }
  return p;
}

// Making a texture: the mipmaps filtered and coded; arguments: alpha, threads, quick fit.
void BM_PaaMakeFromPicture(benchmark::State& state) {
  RgbaImage const& p = picture(state.range(0) != 0);
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  Lorvix::PictureOptions o;
  o.name = "bench_co.paa";
  o.threads = static_cast<unsigned>(state.range(1));
  o.fast = state.range(2) != 0;
  for (auto _ : state)
    if (t.pax_FromRgba(p, o) != 0) {
      state.SkipWithError("no texture made");
      return;
    }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(p.pixels.size()));
  state.SetLabel(std::string(state.range(0) ? "DXT5 " : "DXT1 ") + std::to_string(o.threads) + " threads" +
                 (o.fast ? " fast" : ""));
}
BENCHMARK(BM_PaaMakeFromPicture)
    ->Apply([](benchmark::internal::Benchmark* b) {
      unsigned cores = std::max(1u, std::thread::hardware_concurrency());
      for (int alpha : {0, 1})
        for (unsigned n = 1; n <= cores; n *= 2) b->Args({alpha, int(n), 0});
      b->Args({0, int(cores), 1});
    })
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Decoding the largest mipmap of a made 2048 x 2048 texture back to RGBA.
void BM_PaaDecodeMipmap(benchmark::State& state) {
  RgbaImage const& p = picture(state.range(0) != 0);
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  Lorvix::PictureOptions o;
  o.fast = true;
  if (t.pax_FromRgba(p, o) != 0) {
    state.SkipWithError("no texture made");
    return;
  }
  RgbaImage out;
  for (auto _ : state) {
    t.pax_ToRgba(0, out);
    benchmark::DoNotOptimize(out.pixels.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(p.pixels.size()));
  state.SetLabel(state.range(0) ? "DXT5" : "DXT1");
}
BENCHMARK(BM_PaaDecodeMipmap)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_PaaOpenExpandAll(benchmark::State& state) {
  std::string name;
  Bytes const& b = texture(&name);
  BisDLL dll;
  Lorvix& t = *dll.dll_GetLorvix();
  uint64_t pixels = 0;
  for (auto _ : state) {
    if (t.pax_Open(b.data(), b.size(), silent) != 0) {
      state.SkipWithError("texture does not open");
      return;
    }
    pixels = 0;
    for (uint32_t i = 0; i < t.pax_GetMipmapCount(); ++i) pixels += t.pax_GetMipmap(i)->pixel_size;
    benchmark::DoNotOptimize(t.pax_GetMipmap(0)->pixels);
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(pixels));
  state.SetLabel(name);
}
BENCHMARK(BM_PaaOpenExpandAll)->Unit(benchmark::kMillisecond);

// Opens the largest corpus file of a kind in place, over and over; `open` returns the result code.
template <class Open>
void open_largest(benchmark::State& state, char const* folder, char const* ext, Open open) {
  Bytes const b = largest({folder}, ext);
  if (b.empty()) {
    state.SkipWithError("no corpus");
    return;
  }
  BisDLL dll;
  for (auto _ : state) benchmark::DoNotOptimize(open(dll, b));
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(b.size()));
}

void BM_TexHeadersOpen(benchmark::State& state) {
  open_largest(state, "texheaders", ".bin", [](BisDLL& dll, Bytes const& b) {
    return dll.dll_GetHollin()->tex_Open(static_cast<char const*>(nullptr), silent, b.data(),
                                         static_cast<unsigned long>(b.size()));
  });
}
BENCHMARK(BM_TexHeadersOpen);

void BM_FxyOpen(benchmark::State& state) {
  open_largest(state, "fxy", ".fxy", [](BisDLL& dll, Bytes const& b) {
    return dll.dll_GetGlyvard()->fxy_Open("bench.fxy", b.data(), static_cast<unsigned long>(b.size()));
  });
}
BENCHMARK(BM_FxyOpen);
}  // namespace
