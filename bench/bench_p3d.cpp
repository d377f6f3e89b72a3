// Opening the largest editable model of the corpus from memory and walking every LOD: points,
// faces with their UVs and textures, named selections and properties. Bytes/s is of the model file.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "p3d/MlodBuilder.h"
#include "core/BisDLL.h"
#include "p3d/Morvane.h"

namespace fs = std::filesystem;

namespace {
bool silent(char const*, ...) { return true; }

std::string const& largest_mlod() {
  static std::string bytes = [] {
    fs::path dir = mlod_test::corpus_dir() / "p3d-mlod", best;
    std::error_code ec;
    uintmax_t size = 0;
    for (auto const& e : fs::directory_iterator(dir, ec)) {
      if (!e.is_regular_file() || e.file_size() <= size) continue;
      std::ifstream f(e.path(), std::ios::binary);
      char head[4] = {};
      if (f.read(head, 4) && std::string(head, 4) == "MLOD") best = e.path(), size = e.file_size();
    }
    std::ifstream f(best, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
  }();
  return bytes;
}

double walk(Morvane* m) {
  double sum = 0;
  for (int i = 0; i < m->p3d_GetLodCount(); ++i) {
    auto const* lod = static_cast<MlodLod const*>(m->p3d_get_lod(i));
    for (uint32_t p = 0; p < lod->nPoints; ++p) sum += lod->point(p).y + lod->point_flags(p);
    for (uint32_t f = 0; f < lod->nFaces; ++f) {
      float u, v;
      lod->corner_uv(f, 0, u, v);
      sum += u + static_cast<double>(lod->faces[f].texture.size());
    }
    for (LodNamedSelection const& s : lod->selections) sum += s.name.size();
    for (MlodProperty const& p : lod->properties) sum += p.value.size();
  }
  return sum;
}
}  // namespace

static void BM_P3dMlodOpenAndWalk(benchmark::State& state) {
  std::string const& model = largest_mlod();
  if (model.empty()) {
    state.SkipWithError("no editable model in the corpus");
    return;
  }
  BisDLL dll;
  Morvane* m = dll.dll_GetMorvane();
  m->p3d_GetIO()->io_SetErrCallBack(silent);
  for (auto _ : state) {
    if (m->p3d_Open(reinterpret_cast<unsigned char const*>(model.data()), static_cast<unsigned>(model.size()), 0,
                    silent) != 0) {
      state.SkipWithError("the model did not open");
      return;
    }
    benchmark::DoNotOptimize(walk(m));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(model.size()));
}
BENCHMARK(BM_P3dMlodOpenAndWalk)->Unit(benchmark::kMillisecond);
