// Opening the largest editable and binarised models of the corpus from memory and walking every
// LOD. Bytes/s is of the model file.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "core/BisDLL.h"
#include "p3d/MlodBuilder.h"
#include "p3d/Morvane.h"
#include "p3d/OdolModel.h"

namespace fs = std::filesystem;

namespace {
bool silent(char const*, ...) { return true; }

// The largest model of a corpus folder whose magic is `magic`.
std::string largest(char const* folder, char const* magic) {
  fs::path dir = mlod_test::corpus_dir() / folder, best;
  std::error_code ec;
  uintmax_t size = 0;
  for (auto const& e : fs::directory_iterator(dir, ec)) {
    if (!e.is_regular_file() || e.file_size() <= size) continue;
    std::ifstream f(e.path(), std::ios::binary);
    char head[4] = {};
    if (f.read(head, 4) && std::string(head, 4) == magic) best = e.path(), size = e.file_size();
  }
  std::ifstream f(best, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), {});
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

// Opens the model from memory on every iteration and hands it to `walk`; MB/s of the file.
template <class Walk>
void open_and_walk(benchmark::State& state, std::string const& model, char const* missing, Walk walk) {
  if (model.empty()) {
    state.SkipWithError(missing);
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

static void BM_P3dMlodOpenAndWalk(benchmark::State& state) {
  static std::string const model = largest("p3d-mlod", "MLOD");
  open_and_walk(state, model, "no editable model in the corpus", walk);
}
BENCHMARK(BM_P3dMlodOpenAndWalk)->Unit(benchmark::kMillisecond);

// The largest binarised model: opening reads every LOD and expands its compressed arrays; the walk
// then touches the expanded positions and the counts.
static void BM_P3dOdolOpenAndRead(benchmark::State& state) {
  static std::string const model = largest("p3d-odol", "ODOL");
  open_and_walk(state, model, "no binarised model in the corpus", [](Morvane* m) {
    double sum = 0;
    for (int i = 0; i < m->p3d_GetLodCount(); ++i) {
      auto const* lod = static_cast<OdolLod const*>(m->p3d_get_lod(i));
      uint8_t const* p = lod->positions.cs_Array();
      for (uint64_t v = 0; v < lod->positions.cs_Count(); ++v) sum += p3d_lef(p + v * 12 + 4);
      sum += static_cast<double>(lod->nFaces + lod->selections.size());
    }
    return sum;
  });
}
BENCHMARK(BM_P3dOdolOpenAndRead)->Unit(benchmark::kMillisecond);
