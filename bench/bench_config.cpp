// Decoding the largest binarised config of the corpus, to text and to a tree. Throughput is
// counted in bytes of input.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "config/Kaltor.h"
#include "config/rap_entry.h"
#include "core/BisDLL.h"

namespace {

std::vector<unsigned char> const& largest_config() {
  static std::vector<unsigned char> data = [] {
    namespace fs = std::filesystem;
    fs::path best;
    uintmax_t best_size = 0;
    fs::path dir = fs::path(VENDRAK_CORPUS) / "rap";
    if (fs::is_directory(dir))
      for (auto const& e : fs::directory_iterator(dir))
        if (e.is_regular_file() && e.file_size() > best_size) {
          best_size = e.file_size();
          best = e.path();
        }
    std::vector<unsigned char> b;
    if (!best.empty()) {
      std::ifstream f(best, std::ios::binary);
      b.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    }
    return b;
  }();
  return data;
}

void BM_DecodeToText(benchmark::State& state) {
  auto const& b = largest_config();
  if (b.empty()) return state.SkipWithError("no corpus");
  BisDLL dll;
  Kaltor* k = dll.dll_GetKaltor();
  for (auto _ : state) {
    char const* text = nullptr;
    if (k->drp_Decode(b.data(), b.size(), &text, "bench", -1) != 0) state.SkipWithError("decode failed");
    benchmark::DoNotOptimize(text);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}
BENCHMARK(BM_DecodeToText)->Unit(benchmark::kMillisecond);

void BM_DecodeToTree(benchmark::State& state) {
  auto const& b = largest_config();
  if (b.empty()) return state.SkipWithError("no corpus");
  BisDLL dll;
  Kaltor* k = dll.dll_GetKaltor();
  for (auto _ : state) {
    rap_entry root;
    if (k->drp_Decode(b.data(), b.size(), &root) != 0) state.SkipWithError("decode failed");
    benchmark::DoNotOptimize(root.rpe_get_first_child());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}
BENCHMARK(BM_DecodeToTree)->Unit(benchmark::kMillisecond);

}  // namespace
