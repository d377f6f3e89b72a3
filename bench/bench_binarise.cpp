// Binarising: a binarised config through the tree and back to raP, and config text to raP.
// Throughput is counted in bytes of input (raP bytes, or source text bytes).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "config/Kaltor.h"
#include "config/Sembric.h"
#include "core/BisDLL.h"

namespace {
namespace fs = std::filesystem;

std::vector<char> slurp(fs::path const& p) {
  std::ifstream f(p, std::ios::binary);
  return std::vector<char>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// The corpus beside the source tree; a worktree elsewhere names it in VENDRAK_CORPUS.
fs::path corpus() {
  char const* env = std::getenv("VENDRAK_CORPUS");
  return env && *env ? fs::path(env) : fs::path(VENDRAK_CORPUS);
}

// The largest binarised config of the corpus.
std::vector<char> const& largest_rap() {
  static std::vector<char> data = [] {
    fs::path best;
    uintmax_t best_size = 0;
    fs::path dir = corpus() / "rap";
    if (fs::is_directory(dir))
      for (auto const& e : fs::directory_iterator(dir))
        if (e.is_regular_file() && e.file_size() > best_size) {
          best_size = e.file_size();
          best = e.path();
        }
    return best.empty() ? std::vector<char>() : slurp(best);
  }();
  return data;
}

// Its text, as the decoder writes it: what a round trip binarises.
std::string const& largest_text() {
  static std::string text = [] {
    auto const& b = largest_rap();
    if (b.empty()) return std::string();
    BisDLL dll;
    char const* t = nullptr;
    if (dll.dll_GetKaltor()->drp_Decode(reinterpret_cast<unsigned char const*>(b.data()), b.size(), &t, "bench", -1))
      return std::string();
    return std::string(t);
  }();
  return text;
}

void binarise(benchmark::State& state, std::vector<char> const& input, char const* name) {
  if (input.empty()) return state.SkipWithError("no corpus");
  BisDLL dll;
  Sembric* s = dll.dll_GetRap();
  std::vector<uint8_t> out;
  for (auto _ : state) {
    out.clear();
    if (s->rap_Create(name, 0, nullptr, input.data(), static_cast<unsigned>(input.size())) ||
        s->rap_Output(out, Sembric::RAPO_ARMA))
      return state.SkipWithError("binarise failed");
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input.size()));
}

void BM_BinariseRapThroughTree(benchmark::State& state) { binarise(state, largest_rap(), "bench.bin"); }
BENCHMARK(BM_BinariseRapThroughTree)->Unit(benchmark::kMillisecond);

void BM_BinariseText(benchmark::State& state) {
  std::string const& t = largest_text();
  binarise(state, std::vector<char>(t.begin(), t.end()), "bench.cpp");
}
BENCHMARK(BM_BinariseText)->Unit(benchmark::kMillisecond);

// The whole round trip the command line makes: raP to text, text to raP.
void BM_BinariseRoundTrip(benchmark::State& state) {
  auto const& b = largest_rap();
  if (b.empty()) return state.SkipWithError("no corpus");
  BisDLL dll;
  Kaltor* k = dll.dll_GetKaltor();
  Sembric* s = dll.dll_GetRap();
  std::vector<uint8_t> out;
  for (auto _ : state) {
    char const* t = nullptr;
    out.clear();
    if (k->drp_Decode(reinterpret_cast<unsigned char const*>(b.data()), b.size(), &t, "bench", -1) ||
        s->rap_Create("bench.cpp", 0, nullptr, t, static_cast<unsigned>(k->drp_GetTextSize())) ||
        s->rap_Output(out, Sembric::RAPO_ARMA))
      return state.SkipWithError("round trip failed");
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * b.size()));
}
BENCHMARK(BM_BinariseRoundTrip)->Unit(benchmark::kMillisecond);
}  // namespace

// A big addon's config: the common config's text repeated 240 times, each copy a top-level class
// of its own (about 13 MB). Counts the text's bytes per second and, as "tree_MB", how far the
// process's peak memory rose while the first copy was built: the tree's footprint.
std::vector<char> const& wrapped_text() {
  static std::vector<char> text = [] {
    std::vector<char> out;
    fs::path common = corpus() / "rap" / "ace_common_config.bin";
    if (!fs::exists(common)) return out;
    auto bin = slurp(common);
    BisDLL dll;
    char const* t = nullptr;
    if (dll.dll_GetKaltor()->drp_Decode(reinterpret_cast<unsigned char const*>(bin.data()), bin.size(), &t, "bench", -1))
      return out;
    std::string one(t);
    for (int i = 0; i < 240; ++i) {
      std::string head = "class W" + std::to_string(i) + " {\n";
      out.insert(out.end(), head.begin(), head.end());
      out.insert(out.end(), one.begin(), one.end());
      static char const tail[] = "\n};\n";
      out.insert(out.end(), tail, tail + 4);
    }
    return out;
  }();
  return text;
}

long peak_kb() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmHWM:", 0) == 0) return std::atol(line.c_str() + 6);
  return 0;
}

void BM_BinariseBigConfig(benchmark::State& state) {
  auto const& text = wrapped_text();
  long before = peak_kb();
  binarise(state, text, "big.cpp");
  state.counters["tree_MB"] = double(peak_kb() - before) / 1024.0;
  state.counters["text_MB"] = double(text.size()) / (1 << 20);
}
BENCHMARK(BM_BinariseBigConfig)->Unit(benchmark::kMillisecond)->Iterations(5);
