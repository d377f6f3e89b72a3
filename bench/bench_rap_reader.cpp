// Preprocessing and tokenising config source text: the macro-heavy addon tree (every config.cpp
// with its includes) and the decoder's text of a large binarised config. Throughput is counted in
// bytes of source text read, includes counted each time they are read.
#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "config/Kaltor.h"
#include "config/RapTextReader.h"
#include "core/BisDLL.h"
#include "io/BisFileIO.h"

namespace {
namespace fs = std::filesystem;

bool quiet(char const*, ...) { return true; }

fs::path cfgtext() { return fs::path(VENDRAK_CORPUS) / "cfgtext"; }

std::vector<std::string> const& tree_configs() {
  static std::vector<std::string> files = [] {
    std::vector<std::string> v;
    fs::path x = cfgtext() / "cba_a3_tree" / "x";
    if (fs::is_directory(x))
      for (auto const& e : fs::recursive_directory_iterator(x))
        if (e.is_regular_file() && e.path().filename() == "config.cpp") v.push_back(e.path().string());
    return v;
  }();
  return files;
}

// Reads one text to its end; returns the bytes of source it took in, 0 on a failure.
uint64_t read_through(RapTextReader& r) {
  int s;
  while ((s = r.rt_NextToken()) == 0) benchmark::DoNotOptimize(r.rt_Token());
  if (s != RAP_STATUS + RAPMSG_EOF) return 0;
  uint64_t n = 0;
  for (auto const& f : r.rt_IncludedFiles()) n += fs::file_size(f);
  return n;
}

void BM_RapReaderAddonTree(benchmark::State& state) {
  auto const& files = tree_configs();
  if (files.empty()) return state.SkipWithError("no corpus");
  BisFileIO io;
  io.io_SetStdioCallBack(quiet);
  io.io_SetErrCallBack(quiet);
  RapTextReader r(io);
  r.rt_AddIncludeFolder((cfgtext() / "cba_a3_tree").c_str());
  r.rt_AddIncludeFolder((cfgtext() / "cba_a3_tree" / "include").c_str());
  uint64_t bytes = 0;
  for (auto _ : state) {
    for (auto const& f : files) {
      if (r.rt_OpenFile(f.c_str()) != 0) return state.SkipWithError("open failed");
      uint64_t n = read_through(r);
      if (!n) return state.SkipWithError("read failed");
      bytes += n;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
BENCHMARK(BM_RapReaderAddonTree)->Unit(benchmark::kMillisecond);

void BM_RapReaderDecodedText(benchmark::State& state) {
  fs::path bin = fs::path(VENDRAK_CORPUS) / "rap" / "ace_dogtags_config.bin";
  if (!fs::is_regular_file(bin)) return state.SkipWithError("no corpus");
  BisDLL dll;
  char const* decoded = nullptr;
  if (dll.dll_GetKaltor()->drp_Decode(bin.c_str(), &decoded) != 0 || !decoded)
    return state.SkipWithError("decode failed");
  std::string text(decoded);
  BisFileIO io;
  io.io_SetStdioCallBack(quiet);
  io.io_SetErrCallBack(quiet);
  RapTextReader r(io);
  for (auto _ : state) {
    r.rt_OpenText(text.data(), text.size(), "config.cpp");
    int s;
    while ((s = r.rt_NextToken()) == 0) benchmark::DoNotOptimize(r.rt_Token());
    if (s != RAP_STATUS + RAPMSG_EOF) return state.SkipWithError("read failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_RapReaderDecodedText)->Unit(benchmark::kMillisecond);

}  // namespace
