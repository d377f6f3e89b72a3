// Opening and fully reading terrains: a binarised one as large as a real island (4096 x 4096
// heights, 1024 x 1024 layer cells, a million objects, arrays coded with LZO and LZSS) and the
// same terrain as an editable export. Each is made once by the terrain writer. "Full read" is the
// open (file into memory, every grid expanded once, objects and names taken) plus one pass over
// every height and object, as a converter makes.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "terrain/Tessak.h"

namespace fs = std::filesystem;

namespace {
bool silent(char const*, ...) { return true; }

constexpr uint32_t kMap = 4096, kLayer = 1024, kObjects = 1000000;

struct Terrains {
  fs::path dir;
  std::string oprw25, oprw20, wvr8;
  Terrains() {
    std::string t = (fs::temp_directory_path() / "vendrak-bench-wrp-XXXXXX").string();
    dir = ::mkdtemp(t.data());
    oprw25 = (dir / "big25.wrp").string();
    oprw20 = (dir / "big20.wrp").string();
    wvr8 = (dir / "big8.wrp").string();
    BisDLL dll;
    Tessak* w = dll.dll_GetTessak();
    w->wrp_GetIO()->io_SetStdioCallBack(silent);
    w->wrp_SetGrids({kLayer, kLayer}, {kMap, kMap}, 10.0f);
    // Rolling hills kept to a twentieth of a metre, as terrain tools store them.
    std::vector<float> h(uint64_t(kMap) * kMap);
    for (uint32_t y = 0; y < kMap; ++y)
      for (uint32_t x = 0; x < kMap; ++x)
        h[uint64_t(y) * kMap + x] =
            std::round((60 * std::sin(x * 0.003) * std::cos(y * 0.002) + 8 * std::sin((x + 3 * y) * 0.05)) * 20) / 20;
    w->wrp_SetElevations(h.data());
    std::vector<uint16_t> idx(uint64_t(kLayer) * kLayer);
    for (size_t i = 0; i < idx.size(); ++i) idx[i] = uint16_t(1 + (i / 7 + i / kLayer / 5) % 255);
    w->wrp_SetLayerIndex(idx.data());
    auto& tex = w->wrp_EditTextures();
    tex.resize(256);
    for (int i = 1; i < 256; ++i) tex[i].names = {"island\\data\\layers\\p_" + std::to_string(i) + ".rvmat"};
    auto& models = w->wrp_EditTemplates();
    for (int i = 0; i < 1200; ++i) models.push_back("a3\\plants_f\\tree\\t_model_" + std::to_string(i) + ".p3d");
    auto& obj = w->wrp_EditObjects();
    obj.resize(kObjects);
    for (uint32_t i = 0; i < kObjects; ++i) {
      float a = float(i % 360) * 0.0174533f;
      obj[i].id = i;
      obj[i].model = i % 1200;
      obj[i].transform = {{std::cos(a), 0, -std::sin(a)}, {0, 1, 0}, {std::sin(a), 0, std::cos(a)},
                          {float(i % 4000) * 10.2f, 30, float(i / 4000) * 163.0f}};
    }
    w->wrp_Create(wvr8.c_str(), "8WVR");
    w->wrp_Create(oprw20.c_str(), "OPRW", 20);
    w->wrp_Create(oprw25.c_str(), "OPRW", 25);
  }
  ~Terrains() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
};

Terrains& terrains() {
  static Terrains t;
  return t;
}

void open_and_read(benchmark::State& state, std::string const& file) {
  uint64_t bytes = fs::file_size(file);
  for (auto _ : state) {
    BisDLL dll;
    Tessak* t = dll.dll_GetTessak();
    t->wrp_GetIO()->io_SetStdioCallBack(silent);
    if (t->wrp_Open(file.c_str()) != 0) {
      state.SkipWithError("the terrain did not open");
      return;
    }
    double sum = 0;
    float const* h = t->wrp_Elevations();
    for (uint64_t i = 0, n = uint64_t(t->wrp_MapSize().x) * t->wrp_MapSize().y; i < n; ++i) sum += h[i];
    for (WRP_Object const& o : t->wrp_Objects()) sum += o.transform.pos.x + (t->wrp_TemplateOf(o) ? 1 : 0);
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(int64_t(bytes) * state.iterations());
  state.counters["file_MB"] = double(bytes) / 1e6;
}

void BM_WrpOpenBinarisedLzo(benchmark::State& state) { open_and_read(state, terrains().oprw25); }
void BM_WrpOpenBinarisedLzss(benchmark::State& state) { open_and_read(state, terrains().oprw20); }
void BM_WrpOpenEditable(benchmark::State& state) { open_and_read(state, terrains().wvr8); }
BENCHMARK(BM_WrpOpenBinarisedLzo)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_WrpOpenBinarisedLzss)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_WrpOpenEditable)->Unit(benchmark::kMillisecond)->MinTime(2);
}  // namespace
