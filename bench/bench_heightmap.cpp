// Terrains as grids and pictures at the size of a large island: 4096 x 4096 heights (10 m cells),
// a 1024 x 1024 layer grid and 300,000 objects of trees, buildings, roads and the rest, made once
// in memory. Each benchmark is one command's work after the terrain is open: the grid taken from
// the terrain and written as an ESRI grid, XYZ points or a 16-bit PNG; an ESRI grid read back and
// made into a terrain; the map drawn and written at its default size (4096 px).
//
// Memory: "extra_MB" is the peak resident memory above what the process held before the first
// iteration (the terrain itself, 68 MB, is not counted), read from /proc after resetting the peak.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "core/BisDLL.h"
#include "terrain/Heightmap.h"
#include "terrain/MapRenderer.h"
#include "terrain/Tessak.h"

namespace fs = std::filesystem;

namespace {
bool silent(char const*, ...) { return true; }

constexpr uint32_t kMap = 4096, kLayer = 1024, kObjects = 300000;

// The process's resident memory or its peak, in kB, from /proc/self/status.
long status_kb(char const* key) {
  std::ifstream f("/proc/self/status");
  std::string line;
  while (std::getline(f, line))
    if (line.rfind(key, 0) == 0) return std::atol(line.c_str() + std::strlen(key));
  return 0;
}

struct PeakMemory {
  long base;
  bool reset;
  PeakMemory() {
    // Writing 5 resets the peak (VmHWM) to the present resident size.
    reset = bool(std::ofstream("/proc/self/clear_refs") << "5");
    base = status_kb("VmRSS:");
  }
  void report(benchmark::State& state) const {
    long peak = status_kb("VmHWM:");
    state.counters["extra_MB"] = reset ? double(peak - base) / 1024 : -1;
    state.counters["peak_MB"] = double(peak) / 1024;
  }
};

struct Island {
  fs::path dir;
  BisDLL dll;
  Tessak* terrain = dll.dll_GetTessak();
  std::string asc;
  Island() {
    std::string t = (fs::temp_directory_path() / "vendrak-bench-heightmap-XXXXXX").string();
    dir = ::mkdtemp(t.data());
    asc = (dir / "island.asc").string();
    terrain->wrp_GetIO()->io_SetStdioCallBack(silent);
    terrain->wrp_SetGrids({kLayer, kLayer}, {kMap, kMap}, 40.0f);
    // A coast in the west, hills inland, heights kept to a centimetre as terrain tools store them.
    std::vector<float> h(uint64_t(kMap) * kMap);
    for (uint32_t y = 0; y < kMap; ++y)
      for (uint32_t x = 0; x < kMap; ++x)
        h[uint64_t(y) * kMap + x] = float(std::round((x * 0.05 - 40 + 60 * std::sin(x * 0.003) * std::cos(y * 0.002) +
                                                       8 * std::sin((x + 3 * y) * 0.05)) * 100) / 100);
    terrain->wrp_SetElevations(h.data());
    char const* models[] = {"ca\\plants2\\tree\\t_picea2s.p3d", "ca\\structures\\house\\housev_1i1.p3d",
                            "ca\\roads2\\asf1_25.p3d", "ca\\misc\\fence_wood1.p3d"};
    terrain->wrp_EditTemplates().assign(std::begin(models), std::end(models));
    auto& obj = terrain->wrp_EditObjects();
    obj.resize(kObjects);
    for (uint32_t i = 0; i < kObjects; ++i) {
      obj[i].id = i;
      obj[i].model = i % 7 < 4 ? 0 : i % 7 - 3;
      obj[i].transform = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {float(i * 7919 % 40960), 30, float(i * 104729 % 40960)}};
    }
    Heightmap grid(&dll);
    grid.hm_FromTerrain(*terrain);
    grid.hm_Write(asc.c_str(), Heightmap::FORM_ASC);
  }
  ~Island() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
};

Island& island() {
  static Island i;
  return i;
}

void write_grid(benchmark::State& state, int form, char const* name) {
  Island& is = island();
  std::string out = (is.dir / name).string();
  PeakMemory memory;
  for (auto _ : state) {
    Heightmap grid(&is.dll);
    grid.hm_GetIO()->io_SetStdioCallBack(silent);
    if (grid.hm_FromTerrain(*is.terrain) || grid.hm_Write(out.c_str(), form)) {
      state.SkipWithError("the grid was not written");
      return;
    }
  }
  memory.report(state);
  state.counters["file_MB"] = double(fs::file_size(out)) / 1e6;
  state.SetItemsProcessed(int64_t(state.iterations()) * kMap * kMap);
}

void BM_HeightmapAsc(benchmark::State& state) { write_grid(state, Heightmap::FORM_ASC, "out.asc"); }
void BM_HeightmapXyz(benchmark::State& state) { write_grid(state, Heightmap::FORM_XYZ, "out.xyz"); }
void BM_HeightmapPng(benchmark::State& state) { write_grid(state, Heightmap::FORM_PNG, "out.png"); }

void BM_HeightmapReadAscToTerrain(benchmark::State& state) {
  Island& is = island();
  PeakMemory memory;
  for (auto _ : state) {
    BisDLL dll;
    Heightmap grid(&dll);
    grid.hm_GetIO()->io_SetStdioCallBack(silent);
    Tessak* made = dll.dll_GetTessak();
    if (grid.hm_Read(is.asc.c_str()) || grid.hm_ToTerrain(*made)) {
      state.SkipWithError("the grid was not read");
      return;
    }
  }
  memory.report(state);
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(fs::file_size(is.asc)));
}

void BM_MapPicture(benchmark::State& state) {
  Island& is = island();
  std::string out = (is.dir / "map.png").string();
  PeakMemory memory;
  for (auto _ : state) {
    MapRenderer map(&is.dll);
    map.map_GetIO()->io_SetStdioCallBack(silent);
    if (map.map_Write(*is.terrain, out.c_str(), 0)) {
      state.SkipWithError("the map was not drawn");
      return;
    }
  }
  memory.report(state);
  state.counters["file_MB"] = double(fs::file_size(out)) / 1e6;
}

BENCHMARK(BM_HeightmapAsc)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_HeightmapXyz)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_HeightmapPng)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_HeightmapReadAscToTerrain)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(BM_MapPicture)->Unit(benchmark::kMillisecond)->MinTime(2);
}  // namespace
