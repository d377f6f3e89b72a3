#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "text/BisTokens.h"
#include "text/FileStringA.h"
#include "text/GenString.h"

// Floats spread over the normal range, as a decoded config or model text writes them.
static void BM_FloatToStr(benchmark::State& state) {
  GenString s;
  uint32_t u = 0x3C000000u;
  for (auto _ : state) {
    u = u * 1664525u + 1013904223u;
    uint32_t bits = (u & 0x807FFFFFu) | (0x30000000u + (u >> 9 & 0x1F800000u));
    float v;
    std::memcpy(&v, &bits, 4);
    benchmark::DoNotOptimize(s.str_FloatToStr(v));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FloatToStr);

static void BM_JoinFolderAndFile(benchmark::State& state) {
  FileStringA f;
  for (auto _ : state) benchmark::DoNotOptimize(f.fs_format_folder_and_file("p:\\addon\\data\\sub", "..\\textures\\a_co.paa"));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_JoinFolderAndFile);

static void BM_CompareTokens(benchmark::State& state) {
  BisTokens t;
  t.tkn_convert_csv("*.pac,*.paa,*.rtm,*.sqf,*.sqs,*.bikb,*.fsm,*.wss,*.ogg,*.jpg,*.png,*.lip,thumbs.db");
  char const* names[] = {"data\\model.p3d", "textures\\a_co.paa", "scripts\\init.sqf", "config.cpp"};
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(FileStringA::fs_CompareTokens(names[i++ & 3], &t));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CompareTokens);
