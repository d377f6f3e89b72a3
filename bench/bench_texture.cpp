// Opening a texture with every mipmap expanded, in MB/s of expanded pixels, on the largest corpus
// texture (or a made 2048 x 2048 DXT5 texture when the corpus is absent); and the index and font
// readers on the corpus.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
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
