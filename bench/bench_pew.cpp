// Opening a project as large as a real island's (4096 x 4096 heights, a 1024 x 1024 base layer,
// a million objects on two thousand templates) from memory, and writing it, in MB/s of project.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "core/BisDLL.h"
#include "terrain/Grindel.h"

namespace fs = std::filesystem;

namespace {
bool silent(char const*, ...) { return true; }

struct Project {
  fs::path dir;
  std::string file, bytes;
  Project() {
    std::string t = (fs::temp_directory_path() / "vendrak-bench-pew-XXXXXX").string();
    dir = ::mkdtemp(t.data());
    file = (dir / "big.pew").string();
    BisDLL dll;
    Grindel& g = *dll.dll_GetGrindel();
    g.pew_GetIO()->io_SetStdioCallBack(silent);
    g.pew_New(60, 10.0f);
    constexpr uint32_t kMap = 4096, kLayer = 1024, kModels = 2000, kObjects = 1000000;
    g.elevations.sizeX = g.elevations.sizeY = kMap;
    g.elevations.heights.resize(uint64_t(kMap) * kMap);
    for (size_t i = 0; i < g.elevations.heights.size(); ++i) g.elevations.heights[i] = float(i % 4000) * 0.05f;
    for (uint32_t m = 0; m < kModels; ++m)
      g.templates.push_back({"ca\\structures\\house\\model_" + std::to_string(m) + ".p3d", m + 1, 0, 0, 0, {}});
    g.objects.resize(kObjects);
    for (uint32_t i = 0; i < kObjects; ++i) {
      g.objects[i].objectId = i;
      g.objects[i].modelId = 1 + i % kModels;
      g.objects[i].transform = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {float(i % 4096), 5, float(i / 4096)}};
    }
    PewLayer base{"Base", kLayer, kLayer, {}, std::vector<uint16_t>(uint64_t(kLayer) * kLayer)};
    for (int m = 0; m < 64; ++m) base.materials.push_back({0, 0, {"layers\\p_" + std::to_string(m) + ".rvmat"}});
    for (size_t i = 0; i < base.cells.size(); ++i) base.cells[i] = uint16_t(i % 64);
    g.layers.push_back(std::move(base));
    g.pew_Write(file.c_str());
    std::ifstream f(file, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(f), {});
  }
  ~Project() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
};

Project& project() {
  static Project p;
  return p;
}

void BM_PewOpen(benchmark::State& state) {
  Project& p = project();
  BisDLL dll;
  Grindel* g = dll.dll_GetGrindel();
  for (auto _ : state) {
    int r = g->pew_Open(reinterpret_cast<unsigned char const*>(p.bytes.data()), unsigned(p.bytes.size()), silent);
    if (r) state.SkipWithError("open failed");
    benchmark::DoNotOptimize(g->objects.data());
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(p.bytes.size()));
}
BENCHMARK(BM_PewOpen)->Unit(benchmark::kMillisecond);

void BM_PewWrite(benchmark::State& state) {
  Project& p = project();
  BisDLL dll;
  Grindel* g = dll.dll_GetGrindel();
  g->pew_Open(reinterpret_cast<unsigned char const*>(p.bytes.data()), unsigned(p.bytes.size()), silent);
  std::string out = (p.dir / "out.pew").string();
  for (auto _ : state)
    if (g->pew_Write(out.c_str())) state.SkipWithError("write failed");
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(p.bytes.size()));
}
BENCHMARK(BM_PewWrite)->Unit(benchmark::kMillisecond);
}  // namespace
